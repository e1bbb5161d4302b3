#include "cli/context.h"
#include "cli/modelsession.h"

#include "core/launchermodel.h"
#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"
#include "crossover/launchscript.h"
#include "platform/recordcoding.h"

#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

QString describe(CompatibilityProfile::ConfigurationError error)
{
    switch (error) {
    case CompatibilityProfile::ConfigurationError::ambiguousSection:
        return u"the file has more than one [EnvironmentVariables] section"_s;
    case CompatibilityProfile::ConfigurationError::ambiguousSetting:
        return u"[EnvironmentVariables] sets CX_GRAPHICS_BACKEND or WINEMSYNC more than once"_s;
    case CompatibilityProfile::ConfigurationError::malformedSetting:
        return u"a CX_GRAPHICS_BACKEND or WINEMSYNC line in [EnvironmentVariables] is not of the form \"KEY\" = \"VALUE\""_s;
    }
    return {};
}

// The lines that differ between the file and its update: the edits sit in one section, so the
// common beginning and end leave a short middle, shown as removed and added lines.
void printChange(QTextStream &out, const QString &before, const QString &after)
{
    const QString separator = before.contains(u"\r\n"_s) ? u"\r\n"_s : u"\n"_s;
    const QStringList old = before.split(separator);
    const QStringList now = after.split(separator);
    qsizetype first = 0;
    while (first < old.size() && first < now.size() && old.at(first) == now.at(first))
        ++first;
    qsizetype oldEnd = old.size();
    qsizetype newEnd = now.size();
    while (oldEnd > first && newEnd > first && old.at(oldEnd - 1) == now.at(newEnd - 1)) {
        --oldEnd;
        --newEnd;
    }
    out << "@@ line " << first + 1 << " @@\n";
    for (qsizetype i = first; i < oldEnd; ++i)
        out << "- " << old.at(i) << '\n';
    for (qsizetype i = first; i < newEnd; ++i)
        out << "+ " << now.at(i) << '\n';
}

} // namespace

int bottleConfigCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool check = takeSwitch(rest, u"--check"_s);
    const bool restore = takeSwitch(rest, u"--restore"_s);
    if (!rest.isEmpty() || (check && restore)) {
        context.err << "usage: korvanectl bottle-config [--check | --restore]\n";
        return 2;
    }
    ModelSession session(context);
    LauncherModel &model = *session.model;
    if (!requireBottle(context, model))
        return 1;
    const QString path = BottleConfiguration::configurationPath(model.selectedBottlePath());
    try {
        if (restore) {
            if (model.restoreBottleConfiguration())
                context.out << "Restored the original " << path << "; the bottle restarts at the next launch.\n";
            else
                context.out << path << " already is the original; nothing was changed.\n";
            return 0;
        }
        const BottleConfiguration::Check preview = BottleConfiguration::check(model.selectedBottlePath());
        if (check) {
            if (!preview.update.changed) {
                context.out << path << " already carries the profile (" << CompatibilityProfile::graphicsName
                            << ", MSync).\n";
                return 0;
            }
            context.out << "--- " << path << "\n+++ with the profile\n";
            printChange(context.out, preview.current, preview.update.text);
            return 1;
        }
        const bool pending = model.configureCrossOverBottle();
        context.out << (preview.update.changed ? u"Updated "_s : u"Unchanged: "_s) << path << '\n';
        if (pending)
            context.out << "The bottle restarts at the next launch to take the change.\n";
        return 0;
    } catch (CompatibilityProfile::ConfigurationError error) {
        context.err << "korvanectl: " << path << " was left alone: " << describe(error) << '\n';
    } catch (const BottleConfiguration::FileError &error) {
        context.err << "korvanectl: " << QString::fromStdString(error.what()) << '\n';
    }
    return 1;
}

int launchScriptCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto name = takeOption(rest, u"--mode"_s, &missing);
    const auto mode = name ? BottleLaunchMode::fromRawValue(*name) : std::nullopt;
    if (missing || !rest.isEmpty() || !mode) {
        context.err << "usage: korvanectl launch-script --mode reuseSteam|coldStart|profileChange|recovery\n";
        return 2;
    }
    ModelSession session(context);
    const LauncherModel &model = *session.model;
    const QString bottle = model.selectedBottlePath();
    const QString data = model.applicationDataDirectory();
    const GameProfile profile = model.profiles().profile(model.game()).value_or(GameProfile{});
    const QString status = data + u"/Launches/launch-"_s + RecordCoding::uuidText(QUuid::createUuid()) + u".status"_s;
    // Exactly the text an attempt writes, which has no final line break.
    context.out << LaunchScript::render(
        *mode, bottle, model.wineServerPath(), model.cliDirectory().value_or(data), model.cliPath(),
        LaunchScript::arguments(bottle, model.gameDirectory(), model.modsDirectory(), profile.arguments(), model.game()),
        LaunchScript::environment(bottle, model.winePath(), model.wineServerPath(), data), status,
        CompatibilityProfile::restartMarker(data, bottle));
    return 0;
}
