#include "platform/userdefaults.h"

#include <QDir>
#include <QStandardPaths>

std::unique_ptr<UserDefaults> UserDefaults::openStandard()
{
    // XDG_CONFIG_HOME (or ~/.config), one document for the launcher and korvanectl alike.
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return std::make_unique<JsonUserDefaults>(base + QStringLiteral("/korvane-launcher/defaults.json"));
}
