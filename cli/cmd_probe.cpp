#include "cli/context.h"
#include "cli/modelsession.h"

#include "crossover/bottleconfiguration.h"
#include "crossover/bottlelaunchmode.h"
#include "crossover/processenvironment.h"
#include "crossover/wineprocessprobe.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Whether a launch now would restart the bottle for the profile: a change is still waiting for
// its restart, or the file does not carry the profile yet (the launch would change it first).
// Nothing is written; a file the launch could not use leads to no restart either.
bool restartPending(const LauncherModel &model)
{
    const QString bottle = model.selectedBottlePath();
    if (QFileInfo::exists(CompatibilityProfile::restartMarker(model.applicationDataDirectory(), bottle)))
        return true;
    try {
        return BottleConfiguration::check(bottle).update.changed;
    } catch (const BottleConfiguration::FileError &) {
    } catch (CompatibilityProfile::ConfigurationError) {
    }
    return false;
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
        snapshot = WineProcessProbe::read(model.winePath(), ProcessEnvironment::forProbe(model.processEnvironment()), timeout);
    } catch (WineProcessProbeError error) {
        context.err << "korvanectl: the process probe failed: " << WineProcessProbe::describe(error) << '\n';
        return 1;
    } catch (const WineProcessProbe::SystemError &error) {
        context.err << "korvanectl: the process probe failed: " << error.description() << '\n';
        return 1;
    }

    QStringList executables = snapshot.executables.values();
    executables.sort();
    const std::optional<BottleLaunchMode> mode = BottleLaunchMode::normal(snapshot, restartPending(model));
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
