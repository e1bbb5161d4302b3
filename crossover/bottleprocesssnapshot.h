#pragma once

#include <QSet>
#include <QString>

// Why a look at the bottle's running programs gave no answer. Every case stops a launch alike.
enum class WineProcessProbeError { timedOut, failed, unrecognizedOutput };

// The Windows programs running in a bottle, as lower-cased executable file names
// ("steam.exe"), read from the listing of Wine's debugger.
struct BottleProcessSnapshot {
    QSet<QString> executables;

    BottleProcessSnapshot() = default;
    // Parses a process listing; throws WineProcessProbeError::unrecognizedOutput for anything
    // that is not one or that lists no process.
    explicit BottleProcessSnapshot(const QString &output);

    bool steamIsRunning() const { return executables.contains(QStringLiteral("steam.exe")); }
    // Either game counts, whichever one is selected: the bottle can run only one at a time.
    bool truckGameIsRunning() const
    {
        return executables.contains(QStringLiteral("amtrucks.exe"))
            || executables.contains(QStringLiteral("eurotrucks2.exe"));
    }
};
