#include "crossover/launchscript.h"

#include "crossover/compatibilityprofile.h"

using namespace Qt::StringLiterals;

namespace LaunchScript {

namespace {
QString serverStopLine(IdleServer idleServer)
{
    const QString kill = u"env CX_BOTTLE=\"$bottle\" WINEPREFIX=\"$bottle\" \"$wine_server\" -k"_s;
    if (idleServer == IdleServer::failsScript)
        return kill + u" 2>/dev/null || exit 1\n"_s;
    return kill + u" 2>/dev/null || ! "_s + kill + u"0 2>/dev/null || exit 1\n"_s;
}
} // namespace

QString quote(const QString &value)
{
    QString quoted = value;
    quoted.replace(u'\'', u"'\\''"_s);
    return u'\'' + quoted + u'\'';
}

QString render(BottleLaunchMode mode, const QString &bottle, const QString &wineServer, const QString &directory,
               const QString &cli, const QStringList &arguments, const QMap<QString, QString> &environment,
               const QString &statusPath, const std::optional<QString> &restartMarkerPath, IdleServer idleServer,
               int restartDelay)
{
    QString script = u"#!/bin/zsh\n"
                     "stty rows 30 columns 120 2>/dev/null || true\n"
                     "bottle="_s
        + quote(bottle) + u"\nwine_server="_s + quote(wineServer) + u"\nstatus_file="_s + quote(statusPath)
        + u"\ntrap 'exit_code=$?; printf \"%s\\n\" \"$exit_code\" > \"$status_file\"' EXIT\n\n"_s;

    if (mode.resetsBottle()) {
        script += serverStopLine(idleServer);
        script += u"sleep "_s + QString::number(restartDelay) + u'\n';
        if (restartMarkerPath)
            script += u"/bin/rm -f -- "_s + quote(*restartMarkerPath) + u" || exit 1\n"_s;
        else
            script += u'\n';
    } else {
        script += u"# Reuse Steam in this bottle. No shutdown and no cold-start delay.\n"_s;
    }

    script += u"cd "_s + quote(directory) + u" || exit 1\n\nenv \\\n"_s;
    // QMap iterates in ascending key order, the order the script lists them in.
    for (auto entry = environment.cbegin(); entry != environment.cend(); ++entry)
        script += u"  "_s + entry.key() + u'=' + quote(entry.value()) + u" \\\n"_s;

    script += u"  "_s + quote(cli);
    for (const QString &argument : arguments)
        script += u" \\\n    "_s + quote(argument);
    script += u"\nexit $?"_s;
    return script;
}

QMap<QString, QString> environment(const QString &bottle, const QString &winePath, const QString &wineServerPath,
                                   const QString &applicationDataDirectory)
{
    return {{u"CX_BOTTLE"_s, bottle},
            {u"CX_GRAPHICS_BACKEND"_s, CompatibilityProfile::graphicsBackend},
            {u"PATH"_s, searchPath},
            {u"PYTHONUNBUFFERED"_s, u"1"_s},
            {u"WINE"_s, winePath},
            {u"WINEARCH"_s, u"win64"_s},
            {u"WINEDLLOVERRIDES"_s, dllOverrides},
            {u"WINEMSYNC"_s, CompatibilityProfile::msync},
            {u"WINEPREFIX"_s, bottle},
            {u"WINESERVER"_s, wineServerPath},
            {u"XDG_DATA_HOME"_s, applicationDataDirectory}};
}

QStringList arguments(const QString &bottle, const QString &gameDirectory, const QString &modsDirectory,
                      const QStringList &profileArguments, GameKind game)
{
    QStringList list{u"-w"_s, u"-x"_s, bottle, u"-g"_s, gameDirectory, u"-m"_s, modsDirectory,
                     u"-r"_s, u"dx11"_s, u"-vv"_s, u"--without-wine-discord-ipc-bridge"_s};
    list += profileArguments;
    list << u"start"_s << game.cliName();
    return list;
}

} // namespace LaunchScript
