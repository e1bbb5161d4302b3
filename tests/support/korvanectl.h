#pragma once

#include "support/testhome.h"

#include <QProcess>
#include <QProcessEnvironment>

// Runs the built korvanectl as a child process inside a test home: its user defaults are the
// home's store (through XDG_CONFIG_HOME) and its resources the source tree's.
struct CliResult {
    int exitCode = -1;
    QString out;
    QString err;
};

inline QString korvanectlDefaultsPath(const TestHome &home)
{
    return home.root() + QStringLiteral("/config/korvane-launcher/defaults.json");
}

inline QString korvanectlProgram()
{
    return qEnvironmentVariable("KVN_KORVANECTL", QStringLiteral(KVN_BINARY_DIR "/bin/korvanectl"));
}

// Starts korvanectl in `process` without waiting, for tests that act while it runs (signals,
// a service answering on this thread).
// `program` replaces the built korvanectl, for a copy of it in an installed tree.
inline void startKorvanectl(QProcess &process, const TestHome &home, const QStringList &arguments,
                            const QProcessEnvironment &extra = QProcessEnvironment(), const QString &program = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home.paths.home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.root() + QStringLiteral("/config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home.root() + QStringLiteral("/data"));
    environment.insert(QStringLiteral("TMPDIR"), home.paths.temporary);
    environment.insert(QStringLiteral("KORVANE_RESOURCES_DIR"), home.paths.resources);
    environment.insert(extra);
    process.setProcessEnvironment(environment);
    process.start(program.isEmpty() ? korvanectlProgram() : program, arguments);
}

inline CliResult runKorvanectl(const TestHome &home, const QStringList &arguments,
                               const QByteArray &input = {},
                               const QProcessEnvironment &extra = QProcessEnvironment())
{
    QProcess process;
    startKorvanectl(process, home, arguments, extra);
    CliResult result;
    if (!process.waitForStarted(30000))
        return result;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}
