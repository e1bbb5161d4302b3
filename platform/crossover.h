#pragma once

#include <QString>

// Where CrossOver lives on this machine: its wine and wineserver launchers and the directory
// that holds the user's bottles. Everything inside a bottle (Steam, the game library) has the
// same layout on every system, so only these three locations differ.
struct CrossOverLocation {
    QString winePath;
    QString wineServerPath;
    QString bottlesDirectory;

    // The installed CrossOver for the user whose home directory is given: the application's
    // fixed paths on macOS; $CX_ROOT (default /opt/cxoffice) and ~/.cxoffice on Linux.
    static CrossOverLocation system(const QString &home);
};
