#include "platform/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Paths Paths::platformDefaults()
{
    Paths paths;
    paths.home = QDir::homePath();

    QString login = qEnvironmentVariable("USER");
    if (const passwd *entry = ::getpwuid(::getuid()); entry && entry->pw_name)
        login = QString::fromLocal8Bit(entry->pw_name);
    paths.loginName = login;

    // XDG_DATA_HOME, falling back to ~/.local/share, as the XDG base directory rules say.
    const QString xdgData = qEnvironmentVariable("XDG_DATA_HOME");
    paths.applicationSupport = xdgData.startsWith(u'/') ? QDir::cleanPath(xdgData)
                                                        : paths.home + u"/.local/share"_s;

    // Installed: <prefix>/bin/<program> beside <prefix>/share/korvane-launcher. The build
    // tree mirrors that layout (bin/ and a share/korvane-launcher link to the sources).
    if (QCoreApplication::instance()) {
        const QString candidate = QDir::cleanPath(QCoreApplication::applicationDirPath()
                                                  + u"/../share/korvane-launcher"_s);
        if (QFileInfo(candidate).isDir())
            paths.resources = candidate;
    }
    return paths;
}
