// Writes one of the launcher's files over and over through the launcher's own code, so that a
// test can kill it with SIGKILL at any moment and check what is left on disk.
// usage: crashwriter_linux KIND ROOT FIRST_GENERATION
//   KIND  defaults | sessions | export | import | diagnostics
//   ROOT  a test home's root, laid out as TestHome lays it out
// Prints "ready" once set up, then each generation's number once it is written, until killed.
// Exit status: 2 wrong usage.

#include "core/launchermodel.h"
#include "core/settingstransferflow.h"
#include "platform/clock_fake.h"
#include "platform/desktop_fake.h"
#include "platform/filepanels_fake.h"
#include "platform/microphone_fake.h"
#include "platform/systeminfo_fake.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"
#include "preferences/stringtables.h"
#include "servers/serverlistmodel.h"
#include "sessions/diagnosticarchive.h"
#include "sessions/sessionactivity.h"
#include "support/crashwriting.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

void announce(const char *line)
{
    std::printf("%s\n", line);
    std::fflush(stdout);
}

void announce(qint64 generation)
{
    std::printf("%lld\n", static_cast<long long>(generation));
    std::fflush(stdout);
}

// The launcher and the models the settings flow needs, over the test's home.
struct Launcher {
    FakeClock clock;
    FakeFilePanels panels;
    FakeDesktop desktop;
    FakeMicrophone microphone;
    FakeSystemFacts system;
    FakeConfirmationDialog confirmation;
    std::unique_ptr<LauncherModel> model;
    std::unique_ptr<ServerListModel> servers;
    std::unique_ptr<LanguageSettings> language;
    std::unique_ptr<SettingsTransferFlow> flow;

    Launcher(JsonUserDefaults &defaults, const CrashWriting::Home &home)
    {
        ServiceConfiguration service;
        service.apiBaseURL = QUrl(u"https://127.0.0.1:9"_s);
        model = std::make_unique<LauncherModel>(LauncherContext{defaults, clock, microphone, system, home.paths,
                                                                home.crossOver, service, &panels, &desktop});
        servers = std::make_unique<ServerListModel>(defaults, clock, service);
        language = std::make_unique<LanguageSettings>(defaults);
        flow = std::make_unique<SettingsTransferFlow>(*model, *servers, *language, panels, confirmation);
    }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    bool numeric = false;
    const qint64 first = arguments.value(3).toLongLong(&numeric);
    if (arguments.size() != 4 || !numeric) {
        std::fputs("usage: crashwriter_linux KIND ROOT FIRST_GENERATION\n", stderr);
        return 2;
    }
    const QString kind = arguments[1];
    const CrashWriting::Home home(arguments[2]);
    JsonUserDefaults defaults(home.defaultsPath());
    // The settings flow words its questions and answers.
    L10n::install(&defaults, std::make_shared<const StringTables>(StringTables::load(home.paths.resources)));

    std::function<void(qint64)> write;
    std::unique_ptr<Launcher> launcher;
    std::unique_ptr<SessionActivity> sessions;
    FakeClock clock;
    if (kind == u"defaults") {
        write = [&](qint64 generation) { defaults.setObject(CrashWriting::recordKey, CrashWriting::record(generation)); };
    } else if (kind == u"sessions") {
        sessions = std::make_unique<SessionActivity>(defaults, clock);
        sessions->setKeepHistory(true);
        write = [&](qint64 generation) {
            sessions->begin(generation % 2 ? GameKind::ats : GameKind::ets2);
            sessions->transition(LaunchStage::starting);
            sessions->append(QString::fromLatin1(CrashWriting::payload(generation).left(4000)));
            sessions->loaded();
            sessions->finish(generation % 3 ? LaunchStage::finished : LaunchStage::failed, u"crash test"_s);
        };
    } else if (kind == u"export") {
        launcher = std::make_unique<Launcher>(defaults, home);
        write = [&](qint64 generation) {
            launcher->servers->replaceFavorites(CrashWriting::favorites(generation));
            launcher->panels.answers.append(home.exportPath());
            if (!launcher->flow->exportSettings() || !launcher->flow->lastError().isEmpty())
                qFatal("export: %s", qUtf8Printable(launcher->flow->lastError()));
        };
    } else if (kind == u"import") {
        launcher = std::make_unique<Launcher>(defaults, home);
        write = [&](qint64 generation) {
            launcher->panels.answers.append(home.importPath(generation));
            if (!launcher->flow->importSettings() || !launcher->flow->lastError().isEmpty())
                qFatal("import: %s", qUtf8Printable(launcher->flow->lastError()));
        };
    } else if (kind == u"diagnostics") {
        write = [&](qint64 generation) {
            DiagnosticArchive::save(CrashWriting::report(generation), home.archivePath(), home.paths.temporary);
        };
    } else {
        std::fprintf(stderr, "unknown kind %s\n", qPrintable(kind));
        return 2;
    }

    announce("ready");
    for (qint64 generation = first;; ++generation) {
        write(generation);
        announce(generation);
    }
}
