#pragma once

#include <QMetaType>
#include <QSet>
#include <QString>

#include <array>
#include <optional>

class UserDefaults;

// Which releases the launcher updates to: the feed's default channel only, or also the items
// marked "beta".
class UpdateChannel {
public:
    enum Value : quint8 { stable, beta };

    constexpr UpdateChannel(Value value = stable) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<UpdateChannel, 2> allCases() { return {UpdateChannel(stable), UpdateChannel(beta)}; }

    QString rawValue() const;
    QString id() const { return rawValue(); }
    // The localisation key of its name.
    QString title() const { return QStringLiteral("channel.") + rawValue(); }
    // The feed's channel names it installs from besides the default channel.
    QSet<QString> allowed() const;

    // The user-defaults key of the selected channel.
    static inline const QString defaultsKey = QStringLiteral("updateChannel");
    // The stored channel: only the exact text "beta" selects beta, so that a damaged or
    // hand-edited value never moves anyone onto pre-releases.
    static UpdateChannel saved(const UserDefaults &defaults);

private:
    Value m_value;
};

Q_DECLARE_METATYPE(UpdateChannel)
