#include "platform/paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

Paths Paths::system()
{
    Paths paths = platformDefaults();
    const QString override = qEnvironmentVariable("KORVANE_RESOURCES_DIR");
    if (!override.isEmpty())
        paths.resources = QDir::cleanPath(QFileInfo(override).absoluteFilePath());
    const QString tmp = qEnvironmentVariable("TMPDIR");
    paths.temporary = QDir::cleanPath(tmp.isEmpty() ? QDir::tempPath() : tmp);
    return paths;
}

QString Paths::resourcesBesideProgram()
{
    if (!QCoreApplication::instance())
        return {};
    const QString candidate =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/../share/korvane-launcher"_s);
    return QFileInfo(candidate).isDir() ? candidate : QString();
}

Paths Paths::underHome(const QString &home)
{
    Paths paths = system();
    const QString oldHome = paths.home;
    paths.home = QDir::cleanPath(home);
    if (paths.applicationSupport.startsWith(oldHome + u'/'))
        paths.applicationSupport = paths.home + paths.applicationSupport.mid(oldHome.size());
    return paths;
}
