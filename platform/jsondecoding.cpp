#include "platform/jsondecoding.h"

#include "platform/urlerror.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

QJsonObject JsonDecoding::object(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw DecodingError(parseError.errorString());
    if (!document.isObject())
        throw DecodingError(u"the document is not a JSON object"_s);
    return document.object();
}

std::optional<qint64> JsonDecoding::integer(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    // toInteger answers its default for a number with a fraction or out of range; two
    // different defaults tell that apart from a stored value equal to one of them.
    const qint64 first = value.toInteger(0);
    const qint64 second = value.toInteger(1);
    if (first != second)
        return std::nullopt;
    return first;
}
