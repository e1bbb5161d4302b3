#pragma once

#include "crossover/bottlelaunchmode.h"
#include "games/gamekind.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

// The zsh script of one launch attempt: it stops the bottle when the mode asks for it, records
// its exit code in the status file, and starts the Korvane client with a fixed environment.
namespace LaunchScript {

// The search path and DLL overrides of every Wine command the launcher runs: Homebrew before the
// system, Steam's overlay renderer and Wine's CoreAudio driver disabled.
inline const QString searchPath = QStringLiteral("/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin");
inline const QString dllOverrides = QStringLiteral("gameoverlayrenderer64.dll=d;winecoreaudio.drv=d");

// POSIX single quotes: the value reaches the program byte for byte, whatever it holds.
QString quote(const QString &value);

// What the script does when `wineserver -k` finds no server to stop. Wine's wineserver exits 1
// then, the same status as a kill that failed; an idle bottle is exactly what a cold start
// wants, so the Linux build (CrossOver for Linux ships Wine's wineserver) asks `-k0`, which
// succeeds only while a server still runs, and fails the script only in that case. The macOS
// script keeps the designed single line.
enum class IdleServer { failsScript, tolerated };
#ifdef Q_OS_MACOS
inline constexpr IdleServer hostIdleServer = IdleServer::failsScript;
#else
inline constexpr IdleServer hostIdleServer = IdleServer::tolerated;
#endif

// How long a stopped bottle rests before Steam starts again in it.
inline constexpr int restartDelaySeconds = 8;

QString render(BottleLaunchMode mode, const QString &bottle, const QString &wineServer, const QString &directory,
               const QString &cli, const QStringList &arguments, const QMap<QString, QString> &environment,
               const QString &statusPath, const std::optional<QString> &restartMarkerPath,
               IdleServer idleServer = hostIdleServer, int restartDelay = restartDelaySeconds);

// The eleven variables the script gives the client.
QMap<QString, QString> environment(const QString &bottle, const QString &winePath, const QString &wineServerPath,
                                   const QString &applicationDataDirectory);

// The client's command line: the bottle, game and mods folders, the renderer, verbosity, the
// profile's own arguments, then "start" and the game's client name.
QStringList arguments(const QString &bottle, const QString &gameDirectory, const QString &modsDirectory,
                      const QStringList &profileArguments, GameKind game);

} // namespace LaunchScript
