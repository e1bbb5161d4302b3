#pragma once

#include "sessions/launchstage.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUuid>

#include <optional>

// The record of one attempt to start the multiplayer client.
struct PlaySession {
    QUuid id;
    // Raw value of the GameKind played.
    QString game;
    QDateTime started;
    std::optional<QDateTime> loaded;
    std::optional<QDateTime> ended;
    LaunchStage stage = LaunchStage::checking;
    qint64 retries = 0;
    qint64 errors = 0;

    // Whole seconds from start to load, never negative; nothing before the game loaded.
    std::optional<qint64> startupSeconds() const;
    // Whole seconds of play, up to `now` while the session is open; nothing before the game
    // loaded or for an interrupted session (its end is only when the next run noticed it).
    std::optional<qint64> playSeconds(const QDateTime &now) const;

    // The stored form: keys id, game, started, loaded, ended, stage, retries, errors in this
    // order, loaded and ended left out when absent. Nothing when a date cannot be encoded.
    std::optional<QByteArray> toJson() const;
    // The whole record or nothing: every key but loaded and ended is required, and a stage
    // that is not one of the raw values makes the record unreadable.
    static std::optional<PlaySession> fromJson(const QByteArray &json);
    static std::optional<PlaySession> fromJsonObject(const QJsonObject &object);

    // A JSON array of sessions, as stored for the history; nothing when one fails to encode.
    static std::optional<QByteArray> listToJson(const QList<PlaySession> &sessions);
    // All sessions or nothing.
    static std::optional<QList<PlaySession>> listFromJson(const QByteArray &json);

    bool operator==(const PlaySession &) const = default;
};

Q_DECLARE_METATYPE(PlaySession)
