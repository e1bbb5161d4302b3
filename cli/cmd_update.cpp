#include "cli/context.h"
#include "cli/modelsession.h"

#include "platform/bundleinfo.h"
#include "updates/appupdates.h"
#include "updates/releasenotes.h"
#include "updates/rollbackbackup.h"
#include "updates/updateconfiguration.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>

#if !defined(Q_OS_MACOS)
#include "updates/appcastupdater.h"
#endif

using namespace Qt::StringLiterals;

namespace {

const QString usage = u"usage: korvanectl update status [--json] | channel stable|beta [--yes] | check [--json]"
                      " | install [--yes] | backup | notes [--lang en|de|hu]\n"_s;

QJsonValue optionalText(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

// The update controller as the window has it: over the user's store, attached to a launcher
// model, with the platform's updater for a configured build.
struct UpdateSession {
    ModelSession launcher;
    AppUpdates updates;

    explicit UpdateSession(CliContext &context)
        : launcher(context)
        , updates(AppUpdatesContext::system(*context.defaults, launcher.clock, context.paths))
    {
        updates.attach(*launcher.model);
    }
};

// Why this build cannot update itself, or nothing when it can.
std::optional<QString> notConfigured(const AppUpdates &updates)
{
    if (updates.systemManaged())
        return u"This launcher was installed by the system's package manager, which also updates it."_s;
    if (!updates.configured())
        return u"This build has no update feed or no valid public key (a developer build); "
               "KORVANE_FEED_URL and KORVANE_PUBLIC_ED_KEY can name them."_s;
    return std::nullopt;
}

int showStatus(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    if (!rest.isEmpty()) {
        context.err << usage;
        return 2;
    }
    // A status reads what is stored and built in; it starts no updater.
    SystemClock clock;
    AppUpdates updates(AppUpdatesContext::system(*context.defaults, clock, context.paths));
    if (json) {
        const QJsonObject object{
            {u"configured"_s, updates.configured()},
            {u"systemManaged"_s, updates.systemManaged()},
            {u"channel"_s, updates.channel().rawValue()},
            {u"phase"_s, updates.phase().key},
            {u"availableVersion"_s, optionalText(updates.availableVersion())},
            {u"releaseChannel"_s, updates.releaseChannel()},
            {u"feed"_s, QJsonValue(updates.info().value(BundleInfo::feedURLKey).toString())},
        };
        context.out << QJsonDocument(object).toJson(QJsonDocument::Compact) << '\n';
        return 0;
    }
    context.out << "configured: " << (updates.configured() ? "yes" : "no") << '\n';
    if (const auto why = notConfigured(updates))
        context.out << "  " << *why << '\n';
    context.out << "channel: " << updates.channel().rawValue() << '\n'
                << "phase: " << updates.phase().text() << '\n'
                << "available version: " << updates.availableVersion().value_or(u"none known"_s) << '\n'
                << "release line: " << updates.releaseChannel() << '\n';
    return 0;
}

int changeChannel(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = takeSwitch(rest, u"--yes"_s);
    std::optional<UpdateChannel> channel;
    for (const UpdateChannel known : UpdateChannel::allCases())
        if (rest.size() == 1 && rest.first() == known.rawValue())
            channel = known;
    if (!channel) {
        context.err << usage;
        return 2;
    }
    // --yes stands for the window's confirmation, which only the beta channel asks for.
    if (*channel == UpdateChannel::beta && !yes) {
        context.out << L("channel.confirm.title") << '\n'
                    << L("channel.confirm.detail") << '\n'
                    << "Nothing was changed; run again with --yes to switch to the beta channel.\n";
        return 1;
    }
    UpdateSession session(context);
    session.updates.setChannel(*channel);
    if (UpdateChannel::saved(*context.defaults) != *channel) {
        context.err << "korvanectl: the channel cannot change now; " << L("update.wait") << '\n';
        return 1;
    }
    if (const auto message = session.updates.message())
        context.out << message->text() << '\n';
    return 0;
}

#if !defined(Q_OS_MACOS)

struct CheckOutcome {
    QString result; // "found", "upToDate", "refused", "failed"
    QString detail;
    std::optional<AppcastItem> item;
};

CheckOutcome runCheck(UpdateSession &session)
{
    auto *engine = qobject_cast<AppcastUpdater *>(session.updates.engine());
    if (!engine || !session.updates.canCheck())
        return {u"refused"_s, L("update.wait"), std::nullopt};
    CheckOutcome outcome;
    bool finished = false;
    QEventLoop loop;
    QObject::connect(engine, &AppcastUpdater::checkFinished, &loop,
                     [&](const std::optional<QString> &refusal, const std::optional<QString> &error) {
                         if (refusal)
                             outcome = {u"refused"_s, *refusal, std::nullopt};
                         else if (error)
                             outcome = {u"failed"_s, *error, std::nullopt};
                         else if (engine->foundUpdate())
                             outcome = {u"found"_s, engine->foundUpdate()->displayVersion(), engine->foundUpdate()};
                         else
                             outcome = {u"upToDate"_s, {}, std::nullopt};
                         finished = true;
                         loop.quit();
                     });
    session.updates.check();
    // A refused check ends before check() returns.
    if (!finished)
        loop.exec();
    return outcome;
}

void printOutcome(CliContext &context, const CheckOutcome &outcome, const AppUpdates &updates)
{
    if (outcome.result == "found"_L1)
        context.out << "Update available: " << outcome.detail << " (build " << outcome.item->version << ")\n";
    else if (outcome.result == "upToDate"_L1)
        context.out << "The launcher is up to date ("
                    << updates.info().value(BundleInfo::shortVersionKey).toString() << ").\n";
    else
        context.err << "korvanectl: the update check " << (outcome.result == "refused"_L1 ? "was refused" : "failed") << ": " << outcome.detail << '\n';
    if (const auto backup = updates.backupForSession())
        context.out << "Rollback copy: " << *backup << '\n';
}

int checkNow(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    if (!rest.isEmpty()) {
        context.err << usage;
        return 2;
    }
    UpdateSession session(context);
    CheckOutcome outcome;
    if (const auto why = notConfigured(session.updates))
        outcome = {u"refused"_s, *why, std::nullopt};
    else
        outcome = runCheck(session);
    if (json) {
        const QJsonObject object{
            {u"result"_s, outcome.result},
            {u"version"_s, outcome.item ? QJsonValue(outcome.item->displayVersion()) : QJsonValue(QJsonValue::Null)},
            {u"message"_s, outcome.item ? QJsonValue(QJsonValue::Null) : QJsonValue(outcome.detail)},
            {u"backup"_s, optionalText(session.updates.backupForSession())},
        };
        context.out << QJsonDocument(object).toJson(QJsonDocument::Compact) << '\n';
    } else {
        printOutcome(context, outcome, session.updates);
    }
    return outcome.result == "found"_L1 || outcome.result == "upToDate"_L1 ? 0 : 1;
}

int installNow(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = takeSwitch(rest, u"--yes"_s);
    if (!rest.isEmpty()) {
        context.err << usage;
        return 2;
    }
    UpdateSession session(context);
    if (const auto why = notConfigured(session.updates)) {
        context.err << "korvanectl: " << *why << '\n';
        return 1;
    }
    const CheckOutcome outcome = runCheck(session);
    printOutcome(context, outcome, session.updates);
    if (outcome.result != "found"_L1)
        return outcome.result == "upToDate"_L1 ? 0 : 1;
    if (!yes) {
        context.out << "Nothing was installed; run again with --yes to install it.\n";
        return 1;
    }
    std::optional<QString> failure;
    bool finished = false;
    QEventLoop loop;
    QObject::connect(&session.updates, &AppUpdates::installFinished, &loop,
                     [&](const std::optional<QString> &error) {
                         failure = error;
                         finished = true;
                         loop.quit();
                     });
    // The steps as they come; the end is said below, in words that fit an installation.
    QObject::connect(&session.updates, &AppUpdates::phaseChanged, &loop, [&] {
        if (session.updates.phase().key != "center.complete"_L1 && session.updates.phase().key != "center.failed"_L1)
            context.out << session.updates.phase().text() << '\n' << Qt::flush;
    });
    session.updates.install();
    if (!finished)
        loop.exec();
    if (failure) {
        context.err << "korvanectl: the update was not installed: " << *failure << '\n';
        return 1;
    }
    context.out << "Installed " << outcome.detail << " into " << ApplicationCopy::runningApplication()
                << ". It runs from the next start of the launcher.\n";
    return 0;
}

#else

// On macOS Sparkle checks and installs, with its own dialogs, from the launcher's window.
int checkNow(CliContext &context, const QStringList &)
{
    context.err << "korvanectl: on macOS updates are checked and installed in the launcher's update centre\n";
    return 1;
}

int installNow(CliContext &context, const QStringList &arguments)
{
    return checkNow(context, arguments);
}

#endif

int saveBackupNow(CliContext &context, const QStringList &arguments)
{
    if (!arguments.isEmpty()) {
        context.err << usage;
        return 2;
    }
    // The copy is made here, in the foreground, so that the reason of a refusal can be said.
    SystemClock clock;
    const AppUpdatesContext system = AppUpdatesContext::system(*context.defaults, clock, context.paths);
    const AppUpdates updates(system);
    try {
        const QString copy = RollbackBackup::save(system.application, updates.backupDirectory(),
                                                  {updates.info(), clock.now(), system.applicationCopy});
        context.out << L("update.backup.saved") << '\n' << copy << '\n' << L(RollbackBackup::restoreHelpKey) << '\n';
        return 0;
    } catch (const RollbackBackup::Error &error) {
        context.err << "korvanectl: " << error.description() << '\n';
        return 1;
    }
}

int showNotes(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto code = takeOption(rest, u"--lang"_s, &missing);
    std::optional<AppLanguage> language = code ? AppLanguage::fromRawValue(*code) : L10n::currentLanguage();
    if (missing || !rest.isEmpty() || !language) {
        context.err << usage;
        return 2;
    }
    context.out << LatestReleaseNotes::load(context.paths.resources, *language) << '\n';
    return 0;
}

} // namespace

int updateCommand(CliContext &context, const QStringList &arguments)
{
    if (arguments.isEmpty()) {
        context.err << usage;
        return 2;
    }
    const QString verb = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (verb == "status"_L1)
        return showStatus(context, rest);
    if (verb == "channel"_L1)
        return changeChannel(context, rest);
    if (verb == "check"_L1)
        return checkNow(context, rest);
    if (verb == "install"_L1)
        return installNow(context, rest);
    if (verb == "backup"_L1)
        return saveBackupNow(context, rest);
    if (verb == "notes"_L1)
        return showNotes(context, rest);
    context.err << usage;
    return 2;
}
