#include "platform/paths.h"

#include <QDir>

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

    // The build tree mirrors an installation's layout: bin/ and a share/korvane-launcher link
    // to the sources.
    paths.resources = resourcesBesideProgram();
    return paths;
}
