#pragma once

#include "games/gamekind.h"

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

class UserDefaults;

// One game's launch settings: its bottle, a hand-chosen game directory, intro skipping, the
// Wine desktop size and the two window preferences.
struct GameProfile {
    QString bottle;     // empty: none chosen
    QString directory;  // empty: the automatic directory
    bool skipIntro = true;
    QString desktopSize = QStringLiteral("1920x1080");
    bool hide = false;
    bool restore = true;

    static const QStringList &sizes();

    // Known desktop size; bottle and directory empty or absolute, at most 4,096 UTF-8 bytes,
    // without control or format characters.
    bool valid() const;
    // The extra arguments the Korvane client gets for this profile.
    QStringList arguments() const;

    QJsonObject toJson() const;
    // All six members with their JSON types, or nothing.
    static std::optional<GameProfile> fromJson(const QJsonObject &object);

    // The rule bottle and directory paths follow; the settings document uses it too.
    static bool isAcceptablePath(const QString &path);

    bool operator==(const GameProfile &) const = default;
};

// The per-game profiles, persisted as one JSON document under "gameProfiles.v1". Holds only
// valid profiles of known games.
class GameProfiles {
public:
    explicit GameProfiles(UserDefaults &defaults);

    // Stores a valid profile for the game; an invalid one changes nothing.
    void save(const GameProfile &profile, GameKind game);
    const QHash<QString, GameProfile> &values() const { return m_values; }
    std::optional<GameProfile> profile(GameKind game) const;

    static inline const QString defaultsKey = QStringLiteral("gameProfiles.v1");

private:
    UserDefaults &m_defaults;
    QHash<QString, GameProfile> m_values;
};

// How the game renders. Only DirectX 11 is offered; "gl" is still recognised when read so that
// an old setting is migrated rather than dropped.
class RenderingBackend {
public:
    enum Value : quint8 { dx11, gl };

    constexpr RenderingBackend(Value value = dx11) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static std::optional<RenderingBackend> fromRawValue(QStringView rawValue);
    static constexpr std::array<RenderingBackend, 1> supportedCases() { return {RenderingBackend(dx11)}; }

    QString rawValue() const;
    QString id() const { return rawValue(); }
    QString title() const;

private:
    Value m_value;
};

Q_DECLARE_METATYPE(RenderingBackend)
