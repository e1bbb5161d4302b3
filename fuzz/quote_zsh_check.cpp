// Reads every file of the given folders as a value (UTF-8, as the fuzz target does), quotes it
// for the launch script, and has one real zsh print each quoted value, and each value through
// a variable assignment as the script writes them, into files compared with the value's bytes.
#include "crossover/launchscript.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QStringList files;
    for (const QString &folder : application.arguments().mid(1)) {
        const QDir directory(folder);
        for (const QString &name : directory.entryList(QDir::Files, QDir::Name))
            files.append(directory.filePath(name));
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "usage: quote_zsh_check FOLDER... (no values found)\n");
        return 2;
    }
    QTemporaryDir scratch;
    if (!scratch.isValid())
        return 2;

    QList<QByteArray> expected;
    QString script = QStringLiteral("setopt no_clobber\n");
    for (qsizetype i = 0; i < files.size(); ++i) {
        QFile file(files.at(i));
        if (!file.open(QIODevice::ReadOnly))
            return 2;
        const QString value = QString::fromUtf8(file.readAll());
        expected.append(value.toUtf8());
        const QString direct = LaunchScript::quote(scratch.filePath(QStringLiteral("direct-%1").arg(i)));
        const QString assigned = LaunchScript::quote(scratch.filePath(QStringLiteral("assigned-%1").arg(i)));
        script += QStringLiteral("print -rn -- %1 > %2\n").arg(LaunchScript::quote(value), direct);
        script += QStringLiteral("value=%1\nprint -rn -- \"$value\" > %2\n").arg(LaunchScript::quote(value), assigned);
    }
    const QString scriptPath = scratch.filePath(QStringLiteral("check.zsh"));
    QFile scriptFile(scriptPath);
    if (!scriptFile.open(QIODevice::WriteOnly) || scriptFile.write(script.toUtf8()) < 0)
        return 2;
    scriptFile.close();

    QProcess zsh;
    zsh.setProcessChannelMode(QProcess::ForwardedChannels);
    zsh.start(QStringLiteral("zsh"), {QStringLiteral("-f"), scriptPath});
    if (!zsh.waitForFinished(120000) || zsh.exitStatus() != QProcess::NormalExit || zsh.exitCode() != 0) {
        std::fprintf(stderr, "zsh failed on the quoted values (exit %d)\n", zsh.exitCode());
        return 1;
    }
    int failures = 0;
    for (qsizetype i = 0; i < files.size(); ++i) {
        bool failed = false;
        for (const QString &kind : {QStringLiteral("direct"), QStringLiteral("assigned")}) {
            QFile out(scratch.filePath(QStringLiteral("%1-%2").arg(kind).arg(i)));
            if (!out.open(QIODevice::ReadOnly) || out.readAll() != expected.at(i)) {
                std::fprintf(stderr, "%s: zsh read back a different value (%s)\n", qPrintable(files.at(i)),
                             qPrintable(kind));
                failed = true;
            }
        }
        failures += failed ? 1 : 0;
    }
    std::printf("%lld of %lld values read back unchanged by zsh\n", static_cast<long long>(files.size() - failures),
                static_cast<long long>(files.size()));
    return failures == 0 ? 0 : 1;
}
