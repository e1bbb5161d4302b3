#pragma once

#include <QMetaType>
#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// One of the two games the launcher can start. The raw value is at once the identifier, the
// name shown to the user, the game's folder in the Steam library and the key of per-game data.
class GameKind {
public:
    enum Value : quint8 { ets2, ats };

    constexpr GameKind(Value value = ets2) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<GameKind, 2> allCases() { return {GameKind(ets2), GameKind(ats)}; }
    // Exact, case-sensitive match of a raw value; anything else is no game.
    static std::optional<GameKind> fromRawValue(QStringView rawValue);

    QString rawValue() const;
    QString id() const { return rawValue(); }
    // The file name below "bin/win_x64" of the game directory.
    QString executable() const;
    // The game argument of the Korvane command-line client.
    QString cliName() const;
    // The code the server list uses for this game.
    QString serverCode() const;

private:
    Value m_value;
};

Q_DECLARE_METATYPE(GameKind)
