#pragma once

#include "crossover/compatibilityprofile.h"

#include <QByteArray>
#include <QString>

#include <stdexcept>

// The file side of the compatibility profile: a bottle's cxbottle.conf brought to the profile,
// the pending-restart marker beside the launcher's other data, and a way back to the file as it
// was before the launcher first changed it (the bottle may serve other programs too).
namespace BottleConfiguration {

// A file that could not be read or written; the message names the file and the reason.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A cxbottle.conf holds a few kilobytes; anything near this is not one.
inline constexpr qint64 maximumSize = qint64(8) << 20;

QString configurationPath(const QString &bottle);
// Where the bottle's file is kept, byte for byte, from before the launcher's first change.
QString keptOriginalPath(const QString &applicationDataDirectory, const QString &bottle);

struct Check {
    QString current;
    CompatibilityProfile::ConfigurationUpdate update;
};

// What applying the profile would write, without writing. Throws FileError, ConfigurationError.
Check check(const QString &bottle);

// Brings the bottle's file to the profile, rewriting it (atomically, its permissions kept) only
// when something changes; the original is kept first, once, and the restart marker is written
// before the file, so a changed file always has its marker. Returns whether the bottle still
// has to restart for the profile to take effect. Throws FileError, ConfigurationError; on an
// error before the marker nothing is written.
bool apply(const QString &applicationDataDirectory, const QString &bottle);

// Puts the kept original back (atomically, the current permissions kept) and marks the bottle
// for a restart, as any change of the file does. Returns false when the file already is the
// original (nothing written). Throws FileError, also when no original was ever kept.
bool restore(const QString &applicationDataDirectory, const QString &bottle);

} // namespace BottleConfiguration
