#pragma once

#include <QMetaType>
#include <QString>
#include <QStringView>

#include <array>
#include <optional>

struct BottleProcessSnapshot;

// How an attempt treats the bottle before it starts the client. Only reuseSteam leaves the
// running bottle alone; every other mode stops it first.
class BottleLaunchMode {
public:
    enum Value : quint8 { reuseSteam, coldStart, profileChange, recovery };

    constexpr BottleLaunchMode(Value value = reuseSteam) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<BottleLaunchMode, 4> allCases()
    {
        return {BottleLaunchMode(reuseSteam), BottleLaunchMode(coldStart), BottleLaunchMode(profileChange),
                BottleLaunchMode(recovery)};
    }
    static std::optional<BottleLaunchMode> fromRawValue(QStringView rawValue);
    QString rawValue() const;

    constexpr bool resetsBottle() const { return m_value != reuseSteam; }

    // The mode of a first attempt: none while a game already runs (the launch must not touch
    // it), otherwise keep a running Steam unless a changed bottle configuration waits for a
    // restart, and start cold when Steam does not run.
    static std::optional<BottleLaunchMode> normal(const BottleProcessSnapshot &snapshot, bool compatibilityChanged);

private:
    Value m_value;
};

Q_DECLARE_METATYPE(BottleLaunchMode)
