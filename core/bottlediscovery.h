#pragma once

#include "core/bottle.h"

#include <functional>

// Finding CrossOver bottles: every directory below the bottles root that holds a
// "cxbottle.conf", at any depth.
namespace BottleDiscovery {

inline const QString markerName = QStringLiteral("cxbottle.conf");
inline const QString steamExecutable = QStringLiteral("drive_c/Program Files (x86)/Steam/steam.exe");
inline const QString steamLibrary = QStringLiteral("drive_c/Program Files (x86)/Steam/steamapps/common");

// The bottles below `root`, in the order the walk meets them. Hidden entries are skipped, and
// so are the contents of packages (directories such as "Something.app" that macOS shows as one
// file); symbolic links are not followed. An unreadable root or subtree yields nothing.
QList<Bottle> find(const QString &root);

// Bottles with Steam first, then by name in the user's locale ignoring case; ties keep their
// order. `hasSteam` is asked once per bottle.
QList<Bottle> sorted(const QList<Bottle> &bottles, const std::function<bool(const Bottle &)> &hasSteam);

} // namespace BottleDiscovery
