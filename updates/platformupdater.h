#pragma once

#include "platform/applicationcopy.h"
#include "platform/updaterengine.h"

#include <QVariantMap>

#include <memory>

class UserDefaults;

// The platform's updater and rollback verification: Sparkle and codesign on macOS, the appcast
// reader and the installed tree's signed manifest on Linux.
namespace PlatformUpdater {

// The updater for a configured build, unstarted, with `delegate` deciding for it; null when the
// platform has none. Sparkle keeps its settings itself; the Linux updater keeps them in `defaults`.
std::unique_ptr<UpdaterEngine> make(UpdaterDelegate &delegate, const QVariantMap &info, UserDefaults &defaults);

// How a rollback copy of the running application is made and verified, with the dictionary's
// public key where the platform's check needs one.
ApplicationCopy applicationCopy(const QVariantMap &info);
// Whether the application at `path` belongs to the system's package manager (a Debian package
// under /usr), which alone may replace it.
bool managedBySystem(const QString &path);

} // namespace PlatformUpdater
