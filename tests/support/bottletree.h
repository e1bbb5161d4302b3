#pragma once

#include "games/gamekind.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

// Builds the parts of a CrossOver installation that the launcher looks at: bottles, Steam,
// games, CrossOver's wine and the bundled client, as real files in a test's directory.
namespace BottleTree {

inline QString touch(const QString &path, bool executable = false, const QByteArray &content = QByteArray("x"))
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        permissions |= QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    file.setPermissions(permissions);
    return path;
}

inline QString steamLibrary(const QString &bottle)
{
    return bottle + QStringLiteral("/drive_c/Program Files (x86)/Steam/steamapps/common");
}

// A bottle directory "root/name" with its cxbottle.conf and, when asked, Windows Steam.
inline QString makeBottle(const QString &root, const QString &name, bool withSteam = false)
{
    const QString bottle = root + u'/' + name;
    touch(bottle + QStringLiteral("/cxbottle.conf"), false, "[EnvironmentVariables]\n");
    if (withSteam)
        touch(bottle + QStringLiteral("/drive_c/Program Files (x86)/Steam/steam.exe"));
    return bottle;
}

// The game's executable below a game directory; returns the directory.
inline QString installGameAt(const QString &gameDirectory, GameKind game)
{
    touch(gameDirectory + QStringLiteral("/bin/win_x64/") + game.executable());
    return gameDirectory;
}

inline QString installGame(const QString &bottle, GameKind game)
{
    return installGameAt(steamLibrary(bottle) + u'/' + game.rawValue(), game);
}

// CrossOver's bin/wine and bin/wineserver under an install root.
inline void installCrossOver(const QString &root, bool executable = true)
{
    touch(root + QStringLiteral("/bin/wine"), executable);
    touch(root + QStringLiteral("/bin/wineserver"), executable);
}

// The bundled client in a resource directory: its launcher and the Windows injector.
inline void installClient(const QString &resources, bool launcher = true, bool injector = true)
{
    if (launcher)
        touch(resources + QStringLiteral("/CLI/korvane-cli"), true);
    if (injector)
        touch(resources + QStringLiteral("/CLI/_internal/korvane_cli/korvane-cli.exe"));
}

} // namespace BottleTree
