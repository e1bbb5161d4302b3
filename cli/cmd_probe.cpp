#include "cli/context.h"
#include "cli/modelsession.h"

#include "crossover/bottlelaunchmode.h"
#include "crossover/wineprocessprobe.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// TEMPORARY, until LauncherModel::processEnvironment() is merged: the same entries, built here,
// less WINEMSYNC and CX_GRAPHICS_BACKEND, which the launch also takes out before it probes.
// Replace the whole function by `model.processEnvironment()` minus those two keys.
QMap<QString, QString> temporaryProbeEnvironment(const LauncherModel &model)
{
    const Paths &paths = model.paths();
    const QString cfEncoding = qEnvironmentVariable("__CF_USER_TEXT_ENCODING");
    const auto cliDirectory = model.cliDirectory();
    return {
        {u"HOME"_s, paths.home},
        {u"USER"_s, paths.loginName},
        {u"LOGNAME"_s, paths.loginName},
        {u"TMPDIR"_s, paths.temporary},
        {u"SHELL"_s, u"/bin/zsh"_s},
        {u"COMMAND_MODE"_s, u"unix2003"_s},
        {u"LANG"_s, u"C.UTF-8"_s},
        {u"LC_ALL"_s, u"C.UTF-8"_s},
        {u"LC_CTYPE"_s, u"C.UTF-8"_s},
        {u"TERM"_s, u"dumb"_s},
        {u"MallocNanoZone"_s, u"0"_s},
        {u"XPC_FLAGS"_s, u"0x0"_s},
        {u"XPC_SERVICE_NAME"_s, u"0"_s},
        {u"__CF_USER_TEXT_ENCODING"_s, cfEncoding.isEmpty() ? u"0x1F5:0x1D:0x2B"_s : cfEncoding},
        {u"PATH"_s, u"/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"_s},
        {u"WINE"_s, model.winePath()},
        {u"WINESERVER"_s, model.wineServerPath()},
        {u"CX_BOTTLE"_s, model.selectedBottlePath()},
        {u"WINEPREFIX"_s, model.selectedBottlePath()},
        {u"WINEARCH"_s, u"win64"_s},
        {u"PYTHONUNBUFFERED"_s, u"1"_s},
        {u"PWD"_s, cliDirectory ? *cliDirectory : paths.home},
        {u"XDG_DATA_HOME"_s, model.applicationDataDirectory()},
        {u"WINEDLLOVERRIDES"_s, u"gameoverlayrenderer64.dll=d;winecoreaudio.drv=d"_s},
    };
}

// TEMPORARY, until CompatibilityProfile is merged: whether a changed bottle configuration still
// waits for a bottle restart, read from the restart marker the way configureCrossOverBottle
// leaves it. Replace by a check of `CompatibilityProfile::restartMarker(...)`, and also count a
// configuration that `updatingBottleConfiguration` would still change (a launch would change
// it now and restart the bottle), without writing anything.
bool temporaryRestartPending(const LauncherModel &model)
{
    const QFileInfo bottle(model.selectedBottlePath());
    const QString canonical = bottle.exists() ? bottle.canonicalFilePath() : QDir::cleanPath(bottle.absoluteFilePath());
    const QByteArray digest = QCryptographicHash::hash(canonical.toUtf8(), QCryptographicHash::Sha256).toHex();
    const QString digits = QString::fromLatin1(digest);
    return QFileInfo::exists(model.applicationDataDirectory() + u"/Profiles/"_s + digits + u".restart-required"_s);
}

} // namespace

int probeCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto timeoutText = takeOption(rest, u"--timeout"_s, &missing);
    const bool json = takeSwitch(rest, u"--json"_s);
    double timeout = 10;
    bool timeoutValid = true;
    if (timeoutText)
        timeout = timeoutText->toDouble(&timeoutValid);
    if (missing || !rest.isEmpty() || !timeoutValid || !std::isfinite(timeout) || timeout <= 0 || timeout > 3600) {
        context.err << "usage: korvanectl probe [--timeout SECONDS] [--json]   (0 < SECONDS <= 3600)\n";
        return 2;
    }

    ModelSession session(context);
    const LauncherModel &model = *session.model;
    if (model.selectedBottlePath().isEmpty()) {
        context.err << "korvanectl: no CrossOver bottle is selected (see korvanectl status)\n";
        return 1;
    }
    BottleProcessSnapshot snapshot;
    try {
        snapshot = WineProcessProbe::read(model.winePath(), temporaryProbeEnvironment(model), timeout);
    } catch (WineProcessProbeError error) {
        context.err << "korvanectl: the process probe failed: " << WineProcessProbe::describe(error) << '\n';
        return 1;
    } catch (const WineProcessProbe::SystemError &error) {
        context.err << "korvanectl: the process probe failed: " << error.description() << '\n';
        return 1;
    }

    QStringList executables = snapshot.executables.values();
    executables.sort();
    const std::optional<BottleLaunchMode> mode = BottleLaunchMode::normal(snapshot, temporaryRestartPending(model));
    const QString modeText = mode ? mode->rawValue() : u"none"_s;
    if (json) {
        context.out << QJsonDocument(QJsonObject{{u"executables"_s, QJsonArray::fromStringList(executables)},
                                                 {u"mode"_s, modeText}})
                           .toJson(QJsonDocument::Indented);
        return 0;
    }
    context.out << "bottle: " << model.selectedBottlePath() << '\n';
    for (const QString &executable : std::as_const(executables))
        context.out << "  " << executable << '\n';
    context.out << "mode:   " << modeText
                << (mode ? "" : " (a game already runs in this bottle; a launch would stop here)") << '\n';
    return 0;
}
