#include "crossover/wineprocessprobe.h"

#include "platform/privatedirectory.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringDecoder>
#include <QUuid>

#include <algorithm>
#include <climits>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {


QString makeWorkingFolder()
{
    const QString parent = QDir::tempPath();
    const QString name = u"Korvane-process-probe-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    // Created with its final permissions, so the listing is never readable by others, not even
    // for the moment between a mkdir and a chmod.
    if (!QDir().mkpath(parent) || !QDir(parent).mkdir(name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        throw WineProcessProbe::SystemError(u"Could not create the folder %1 in %2"_s.arg(name, parent));
    return parent + u'/' + name;
}

// Ends a debugger that outlived its time: a terminate request first, then a kill for one that
// ignores it, and always a wait, so that no zombie and no running process is left behind.
void stop(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (process.waitForFinished(WineProcessProbe::terminateGraceMilliseconds))
        return;
    process.kill();
    process.waitForFinished(-1);
}

} // namespace

namespace WineProcessProbe {

BottleProcessSnapshot read(const QString &winePath, const QMap<QString, QString> &environment,
                           double timeoutSeconds)
{
    const QDeadlineTimer deadline(std::llround(std::max(0.0, timeoutSeconds) * 1000.0));
    const PrivateDirectory::Removal folder(makeWorkingFolder());
    const QString outputPath = folder.path() + u"/processes.txt"_s;
    {
        QFile output(outputPath);
        if (!output.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFile::ReadOwner | QFile::WriteOwner))
            throw SystemError(output.errorString());
    }

    QProcessEnvironment processEnvironment;
    for (auto entry = environment.cbegin(); entry != environment.cend(); ++entry)
        processEnvironment.insert(entry.key(), entry.value());
    // The debugger needs no display; without this Wine would try to reach an X server.
    processEnvironment.insert(u"WINEDLLOVERRIDES"_s, u"winex11.drv="_s);

    QProcess process;
    process.setProgram(winePath);
    process.setArguments({u"winedbg"_s, u"--command"_s, u"info process"_s});
    process.setProcessEnvironment(processEnvironment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setStandardOutputFile(outputPath);
    process.start();
    if (!process.waitForStarted(int(std::clamp<qint64>(deadline.remainingTime(), 1000, INT_MAX)))) {
        const QString error = process.errorString();
        stop(process);
        throw SystemError(error);
    }
    if (!process.waitForFinished(int(std::clamp<qint64>(deadline.remainingTime(), 0, INT_MAX)))) {
        stop(process);
        throw WineProcessProbeError::timedOut;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        throw WineProcessProbeError::failed;

    QFile output(outputPath);
    if (!output.open(QIODevice::ReadOnly))
        throw SystemError(output.errorString());
    if (output.size() > maximumOutputSize)
        throw WineProcessProbeError::unrecognizedOutput;
    const QByteArray bytes = output.readAll();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        throw SystemError(u"The process listing is not UTF-8 text"_s);
    return BottleProcessSnapshot(text);
}

QString describe(WineProcessProbeError error)
{
    switch (error) {
    case WineProcessProbeError::timedOut: return u"Wine's debugger did not answer in time"_s;
    case WineProcessProbeError::failed: return u"Wine's debugger ended with an error"_s;
    case WineProcessProbeError::unrecognizedOutput: return u"Wine's debugger printed no process listing"_s;
    }
    return {};
}

} // namespace WineProcessProbe
