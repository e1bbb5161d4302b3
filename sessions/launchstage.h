#pragma once

#include <QMetaType>
#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// How far one attempt to start the multiplayer client got. The raw values are stored in the
// user defaults and carried in failure reports, so they never change.
class LaunchStage {
public:
    // Declaration order is the order of allCases() and of the stored raw values' table.
    enum Value : quint8 { checking, steam, updating, starting, playing, finished, failed, cancelled, interrupted };

    constexpr LaunchStage(Value value = checking) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<LaunchStage, 9> allCases()
    {
        return {LaunchStage(checking), LaunchStage(steam),    LaunchStage(updating),
                LaunchStage(starting), LaunchStage(playing),  LaunchStage(finished),
                LaunchStage(failed),   LaunchStage(cancelled), LaunchStage(interrupted)};
    }
    // Exact, case-sensitive match of a raw value; anything else is no stage.
    static std::optional<LaunchStage> fromRawValue(QStringView rawValue);

    QString rawValue() const;
    // A session is closed with a terminal stage; an active stage belongs to the open session.
    constexpr bool isTerminal() const { return m_value >= finished; }
    // The localised "stage.<raw value>" text.
    QString title() const;

private:
    Value m_value;
};

Q_DECLARE_METATYPE(LaunchStage)
