#pragma once

#include "games/gamekind.h"
#include "platform/paths.h"
#include "platform/userdefaults.h"

#include <QStringList>
#include <QTextStream>

#include <memory>

// What every korvanectl command works with: the user's store and paths, and the two output
// streams (results on stdout, errors on stderr).
struct CliContext {
    std::unique_ptr<UserDefaults> defaults;
    Paths paths;
    QTextStream &out;
    QTextStream &err;
};

using CliCommand = int (*)(CliContext &context, const QStringList &arguments);

// Removes "--name VALUE" from the arguments and returns VALUE. An option given without its
// value is an error: `missing` is set so the command can say so.
std::optional<QString> takeOption(QStringList &arguments, const QString &name, bool *missing);
// Removes a "--name" switch and tells whether it was there.
bool takeSwitch(QStringList &arguments, const QString &name);
// The game a "--game" value names: "ets2", "ats", or a game's full name.
std::optional<GameKind> gameFromOption(const QString &name);
// Reads an optional "--game" value into `game`; false, said on stderr, when it names no game.
bool readGameOption(CliContext &context, const std::optional<QString> &value, std::optional<GameKind> *game);

int gameVersionCommand(CliContext &context, const QStringList &arguments);
int textCommand(CliContext &context, const QStringList &arguments);
int statusCommand(CliContext &context, const QStringList &arguments);
int selectCommand(CliContext &context, const QStringList &arguments);
int bottleConfigCommand(CliContext &context, const QStringList &arguments);
int launchScriptCommand(CliContext &context, const QStringList &arguments);
int settingsCommand(CliContext &context, const QStringList &arguments);
int serversCommand(CliContext &context, const QStringList &arguments);
int favoriteCommand(CliContext &context, const QStringList &arguments);
int compatCommand(CliContext &context, const QStringList &arguments);
int reportSendCommand(CliContext &context, const QStringList &arguments);
int redactCommand(CliContext &context, const QStringList &arguments);
int tailCommand(CliContext &context, const QStringList &arguments);
int diagnosticsCommand(CliContext &context, const QStringList &arguments);
int sessionsCommand(CliContext &context, const QStringList &arguments);
int probeCommand(CliContext &context, const QStringList &arguments);
int launchCommand(CliContext &context, const QStringList &arguments);
int stopCommand(CliContext &context, const QStringList &arguments);
int steamCommand(CliContext &context, const QStringList &arguments);
int updateCommand(CliContext &context, const QStringList &arguments);
