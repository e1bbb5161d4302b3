#include "platform/applicationcopy.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace {

// Runs a system tool with no input and its output discarded, and waits for it however long it
// takes: a large bundle takes ditto and codesign a while, and giving up halfway would leave a
// copy that was never checked.
bool runTool(const QString &program, const QStringList &arguments, QString *error)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted(-1) || !process.waitForFinished(-1)) {
        if (error)
            *error = program + QStringLiteral(": ") + process.errorString();
        return false;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        if (error)
            *error = program + QStringLiteral(" ended with status ") + QString::number(process.exitCode());
        return false;
    }
    return true;
}

} // namespace

ApplicationCopy ApplicationCopy::system()
{
    ApplicationCopy copy;
    copy.isApplication = [](const QString &path) { return QFileInfo(path).suffix() == QStringLiteral("app"); };
    // ditto keeps what a signed bundle is made of (links, modes, extended attributes) exactly.
    copy.copy = [](const QString &from, const QString &to, QString *error) {
        return runTool(QStringLiteral("/usr/bin/ditto"), {from, to}, error);
    };
    copy.verify = [](const QString &path) {
        return runTool(QStringLiteral("/usr/bin/codesign"),
                       {QStringLiteral("--verify"), QStringLiteral("--deep"), QStringLiteral("--strict"), path},
                       nullptr);
    };
    return copy;
}

QString ApplicationCopy::runningApplication()
{
    // Contents/MacOS/<program> of the bundle, for the launcher and for korvanectl beside it.
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../.."));
}
