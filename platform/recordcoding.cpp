#include "platform/recordcoding.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {
// 2001-01-01T00:00:00Z in milliseconds since the Unix epoch.
constexpr qint64 referenceEpochMs = 978307200000;
// About 300,000 years either way: far beyond any real date, well inside QDateTime's range and
// exact in a double's millisecond arithmetic.
constexpr double maximumReferenceSeconds = 1e13;

QByteArray encodeValue(const QJsonValue &value)
{
    // QJsonDocument only writes arrays and objects: write a one-element array and take its
    // inside, so strings and numbers are escaped and formatted exactly as Qt does elsewhere.
    const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return wrapped.mid(1, wrapped.size() - 2);
}
} // namespace

std::optional<double> RecordCoding::referenceSeconds(const QDateTime &date)
{
    if (!date.isValid())
        return std::nullopt;
    return double(date.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0;
}

std::optional<QDateTime> RecordCoding::dateFromReferenceSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) > maximumReferenceSeconds)
        return std::nullopt;
    const qint64 ms = qint64(std::llround(seconds * 1000.0)) + referenceEpochMs;
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

QString RecordCoding::uuidText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> RecordCoding::uuidFromText(const QString &text)
{
    static const QRegularExpression form(
        u"\\A[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}\\z"_s);
    if (!form.match(text).hasMatch())
        return std::nullopt;
    return QUuid::fromString(text);
}

std::optional<QJsonObject> RecordCoding::parseObject(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

QByteArray RecordCoding::orderedObject(std::initializer_list<std::pair<QString, QJsonValue>> members)
{
    QByteArray out = "{";
    bool first = true;
    for (const auto &[key, value] : members) {
        if (value.isUndefined())
            continue;
        if (!first)
            out += ',';
        first = false;
        out += encodeValue(key);
        out += ':';
        out += encodeValue(value);
    }
    out += '}';
    return out;
}

QByteArray RecordCoding::array(const QList<QByteArray> &encodedElements)
{
    QByteArray out = "[";
    for (qsizetype i = 0; i < encodedElements.size(); ++i) {
        if (i > 0)
            out += ',';
        out += encodedElements.at(i);
    }
    out += ']';
    return out;
}
