#pragma once

#include "crossover/bottleprocesssnapshot.h"

#include <QMap>
#include <QString>

#include <stdexcept>

// Which Windows programs already run in a bottle, asked of Wine's debugger.
namespace WineProcessProbe {

// The probe could not even be run: its working folder or output file could not be made, the
// output could not be read, or wine could not be started. Carries the system's description.
class SystemError : public std::runtime_error {
public:
    explicit SystemError(const QString &description)
        : std::runtime_error(description.toStdString()), m_description(description) {}
    QString description() const { return m_description; }

private:
    QString m_description;
};

// Output larger than this is no process listing (10,000 processes take about 600 KB).
inline constexpr qint64 maximumOutputSize = 16 * 1024 * 1024;
// How long a debugger that ignored the terminate request at the time-out gets before it is killed.
inline constexpr int terminateGraceMilliseconds = 1000;

// Runs `winePath winedbg --command "info process"` with the given environment (the bottle's
// process environment; Wine's X11 driver is switched off for the run) and returns the listing's
// executables. Blocks the calling thread until the debugger ends or `timeoutSeconds` pass, so
// call it off the main thread. Throws WineProcessProbeError (timedOut, failed,
// unrecognizedOutput) or SystemError. Its private temporary folder is gone on every way out,
// and so is a debugger that outlived the time-out.
BottleProcessSnapshot read(const QString &winePath, const QMap<QString, QString> &environment,
                           double timeoutSeconds = 10);

// A short English description of a probe error, for logs and korvanectl.
QString describe(WineProcessProbeError error);

} // namespace WineProcessProbe
