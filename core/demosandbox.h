#pragma once

#include "core/launchtimings.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The demo mode: a throwaway home with the simulated CrossOver (the simcrossover program), a
// bottle that holds Windows Steam and both games, and a client that prints, freezes once while
// loading, then comes up and plays. It lets anyone watch a whole launch, the console, a freeze
// and its recovery and a failure report without Windows or CrossOver.
//
// `prepare` runs before anything reads the environment: it points this process (HOME, the XDG
// folders, CX_ROOT, KORVANE_RESOURCES_DIR, KORVANE_API_URL) at the sandbox, so that every
// front end builds its models exactly as it always does.
namespace DemoSandbox {

struct Setup {
    QString root;
    QString home;
    QString bottle;
};

inline constexpr const char *activeVariable = "KORVANE_DEMO_ROOT";

// The simulator installed beside the running program (bin/ of the build tree and of an
// installation alike); empty when there is none.
QString simulatorBeside(const QString &programDirectory);

// Lays the sandbox out in a new folder below the system's temporary folder and points the
// process at it. Nothing when the simulator or the string tables are missing (`error` says
// which).
std::optional<Setup> prepare(const QString &simulator, const QString &resources, QString *error);

// The demo's root when this process runs one.
std::optional<QString> activeRoot();

// A demo is watched, not waited through: the freeze shows after seconds, not half a minute.
LaunchTimings timings();

// The smallest Windows executable whose version resource names `version`.
QByteArray executableWithVersion(const QList<quint16> &version);

} // namespace DemoSandbox
