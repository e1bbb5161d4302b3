#pragma once

#include <QMap>
#include <QProcessEnvironment>
#include <QString>

#include <optional>

// The environment of the launcher's own Wine commands (process probe, Steam start, bottle stop),
// built from scratch: whatever the launcher itself was started with (a shell's WINEPREFIX, a
// DYLD_ variable, a stray LANG) must not reach Wine. Only TMPDIR and __CF_USER_TEXT_ENCODING
// are taken over, because the system sets them per user and session.
namespace ProcessEnvironment {

struct Inputs {
    QString home;
    QString loginName;
    // Used when the launcher's own TMPDIR is not set.
    QString systemTemporaryDirectory;
    QString winePath;
    QString wineServerPath;
    QString bottle;
    // The working directory the commands are given; the home directory when absent.
    std::optional<QString> cliDirectory;
    QString applicationDataDirectory;
};

QMap<QString, QString> build(const Inputs &inputs, const QProcessEnvironment &own);

// The environment for the process probe: the profile's graphics and synchronisation variables
// are left out, so that listing the processes never starts Wine with a setup of its own.
QMap<QString, QString> forProbe(QMap<QString, QString> environment);

} // namespace ProcessEnvironment
