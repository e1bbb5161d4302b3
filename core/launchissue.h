#pragma once

#include <QMetaType>
#include <QString>
#include <QUuid>

#include <array>
#include <optional>

// The closed set of things that can keep a launch from working, each with a title and a help
// text for the user.
class LaunchIssue {
public:
    enum Value : quint8 {
        crossover,
        bottle,
        steam,
        game,
        cli,
        microphone,
        steamLogin,
        network,
        version,
        probe,
        storage,
        unexpected,
    };

    constexpr LaunchIssue(Value value = unexpected) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<LaunchIssue, 12> allCases()
    {
        return {crossover, bottle, steam, game, cli, microphone, steamLogin, network, version, probe, storage, unexpected};
    }
    static std::optional<LaunchIssue> fromRawValue(QStringView rawValue);

    QString rawValue() const;
    QString id() const { return rawValue(); }
    QString title() const;
    QString detail() const;

    // The problem a piece of the client's console output reports, if it is one we know.
    static std::optional<LaunchIssue> classify(const QString &text);

private:
    Value m_value;
};

Q_DECLARE_METATYPE(LaunchIssue)
Q_DECLARE_METATYPE(std::optional<LaunchIssue>)

// One row of the readiness checklist.
struct EnvironmentCheck {
    QUuid id;
    QString title;
    QString detail;
    bool ok = false;
};
