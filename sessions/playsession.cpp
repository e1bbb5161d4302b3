#include "sessions/playsession.h"

#include "platform/jsondecoding.h"
#include "platform/recordcoding.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {
qint64 wholeSecondsBetween(const QDateTime &from, const QDateTime &to)
{
    // Truncated toward zero, and a clock that went backwards counts as no time at all.
    return std::max<qint64>(0, from.msecsTo(to) / 1000);
}

std::optional<QDateTime> optionalDate(const QJsonObject &object, const QString &key, bool *ok)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    const auto date = value.isDouble() ? RecordCoding::dateFromReferenceSeconds(value.toDouble()) : std::nullopt;
    if (!date)
        *ok = false;
    return date;
}
} // namespace

std::optional<qint64> PlaySession::startupSeconds() const
{
    if (!loaded)
        return std::nullopt;
    return wholeSecondsBetween(started, *loaded);
}

std::optional<qint64> PlaySession::playSeconds(const QDateTime &now) const
{
    if (stage == LaunchStage::interrupted || !loaded)
        return std::nullopt;
    return wholeSecondsBetween(*loaded, ended.value_or(now));
}

std::optional<QByteArray> PlaySession::toJson() const
{
    const auto startedSeconds = RecordCoding::referenceSeconds(started);
    const auto loadedSeconds = loaded ? RecordCoding::referenceSeconds(*loaded) : std::nullopt;
    const auto endedSeconds = ended ? RecordCoding::referenceSeconds(*ended) : std::nullopt;
    if (!startedSeconds || (loaded && !loadedSeconds) || (ended && !endedSeconds))
        return std::nullopt;
    return RecordCoding::orderedObject({
        {u"id"_s, RecordCoding::uuidText(id)},
        {u"game"_s, game},
        {u"started"_s, *startedSeconds},
        {u"loaded"_s, loadedSeconds ? QJsonValue(*loadedSeconds) : QJsonValue(QJsonValue::Undefined)},
        {u"ended"_s, endedSeconds ? QJsonValue(*endedSeconds) : QJsonValue(QJsonValue::Undefined)},
        {u"stage"_s, stage.rawValue()},
        {u"retries"_s, retries},
        {u"errors"_s, errors},
    });
}

std::optional<PlaySession> PlaySession::fromJson(const QByteArray &json)
{
    const auto object = RecordCoding::parseObject(json);
    return object ? fromJsonObject(*object) : std::nullopt;
}

std::optional<PlaySession> PlaySession::fromJsonObject(const QJsonObject &object)
{
    const auto id = RecordCoding::uuidFromText(object.value(u"id"_s).toString());
    const QJsonValue game = object.value(u"game"_s);
    const QJsonValue started = object.value(u"started"_s);
    const auto stage = LaunchStage::fromRawValue(object.value(u"stage"_s).toString());
    const auto retries = JsonDecoding::integer(object.value(u"retries"_s));
    const auto errors = JsonDecoding::integer(object.value(u"errors"_s));
    if (!id || !game.isString() || !started.isDouble() || !stage || !retries || !errors)
        return std::nullopt;
    const auto startedDate = RecordCoding::dateFromReferenceSeconds(started.toDouble());
    bool ok = startedDate.has_value();
    PlaySession session;
    session.id = *id;
    session.game = game.toString();
    session.started = startedDate.value_or(QDateTime());
    session.loaded = optionalDate(object, u"loaded"_s, &ok);
    session.ended = optionalDate(object, u"ended"_s, &ok);
    session.stage = *stage;
    session.retries = *retries;
    session.errors = *errors;
    if (!ok)
        return std::nullopt;
    return session;
}

std::optional<QByteArray> PlaySession::listToJson(const QList<PlaySession> &sessions)
{
    QList<QByteArray> encoded;
    encoded.reserve(sessions.size());
    for (const PlaySession &session : sessions) {
        auto json = session.toJson();
        if (!json)
            return std::nullopt;
        encoded.append(std::move(*json));
    }
    return RecordCoding::array(encoded);
}

std::optional<QList<PlaySession>> PlaySession::listFromJson(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<PlaySession> sessions;
    const QJsonArray array = document.array();
    sessions.reserve(array.size());
    for (const QJsonValue &element : array) {
        auto session = element.isObject() ? fromJsonObject(element.toObject()) : std::nullopt;
        if (!session)
            return std::nullopt;
        sessions.append(std::move(*session));
    }
    return sessions;
}
