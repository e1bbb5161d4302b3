// Linux only: an idle bottle that a cold start stops makes the Linux script succeed (see
// LaunchScript::IdleServer), and the simulated CrossOver is built for Linux.
// Whole launches against the simulated CrossOver and a local HTTPS service, with every interval
// of the launch shortened: the chain from the checklist to the client's end, its failures, the
// freeze watchdog's retries, and the stop and Steam commands.
#include "core/consolelog.h"
#include "core/launchcontroller.h"
#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"
#include "crossover/freezewatch.h"
#include "crossover/statusfile.h"
#include "platform/terminalprocess_fake.h"
#include "support/bottletree.h"
#include "support/crossoversandbox.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/launcherrig.h"

#include <QJsonArray>
#include <QtTest>

#include <csignal>

Q_DECLARE_METATYPE(std::optional<int>)
Q_DECLARE_METATYPE(FreezeWatch::Verdict)

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString steamWindowsPath = u"C:\\Program Files (x86)\\Steam\\steam.exe"_s;
const QString gameWindowsPath
    = u"C:\\Program Files (x86)\\Steam\\steamapps\\common\\Euro Truck Simulator 2\\bin\\win_x64\\eurotrucks2.exe"_s;

QJsonObject client(const QJsonArray &steps, int exitCode = 0)
{
    return {{u"cli"_s, QJsonObject{{u"steps"_s, steps}, {u"exitCode"_s, exitCode}}}};
}

// A zombie counts as gone: it runs nothing, and whoever adopted it reaps it when it likes.
bool alive(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    const QByteArray line = stat.readAll();
    const qsizetype state = line.lastIndexOf(')') + 2;
    return state < line.size() && line.at(state) != 'Z';
}

QStringList argvOf(const QJsonObject &call)
{
    QStringList argv;
    for (const QJsonValue &argument : call.value(u"argv"_s).toArray())
        argv.append(argument.toString());
    return argv;
}

// One launcher over a sandboxed CrossOver with one bottle that holds Steam and the game, a
// service that supports the installed version, and a granted microphone.
struct Launch {
    LauncherRig rig;
    CrossOverSandbox sandbox{rig.home};
    LocalHttpsServer service;
    SystemClock realClock;
    QString bottle;
    LauncherModel *model = nullptr;

    // `applied`: the bottle already carries the profile and waits for no restart.
    explicit Launch(const QJsonObject &scenario = {}, bool steamRunning = true, bool applied = true)
    {
        sandbox.writeScenario(scenario);
        bottle = sandbox.addBottle();
        writeFakeGameExecutable(bottle + u"/drive_c/Program Files (x86)/Steam/steamapps/common/Euro Truck Simulator 2/"
                                         u"bin/win_x64/eurotrucks2.exe"_s,
                                {1, 53, 3, 14});
        respond(u"1.53.3.14s"_s);
        if (steamRunning)
            sandbox.setRunning(bottle, {steamWindowsPath});
        // The console in the language whose keys the launcher's texts are.
        rig.home.defaults->setString(u"appLanguage"_s, u"hu"_s);
        rig.modelClock = &realClock;
        rig.microphone.status = MicrophoneAuthorization::authorized;
        rig.timings = {50ms, 50ms, 400ms, 20s, 0, 10, 500ms};
        rig.serviceConfiguration = service.configuration();
        model = &rig.start();
        if (applied) {
            model->configureCrossOverBottle();
            QFile::remove(marker());
        }
    }

    void respond(const QString &supported)
    {
        service.respond(u"/v2/version"_s,
                        ScriptedResponse::json(R"({"supported_game_version":")" + supported.toUtf8()
                                               + R"(","supported_ats_game_version":"1.53"})"));
    }
    QString marker() const
    {
        return CompatibilityProfile::restartMarker(model->applicationDataDirectory(), bottle);
    }
    QString configuration() const
    {
        QFile file(BottleConfiguration::configurationPath(bottle));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    // The session once it has ended.
    std::optional<PlaySession> ended(std::chrono::milliseconds timeout = 20s)
    {
        QDeadlineTimer deadline(timeout);
        while ((model->activity().current() || model->isRunning()) && !deadline.hasExpired())
            QTest::qWait(20);
        return model->activity().current() ? std::nullopt : model->activity().latest();
    }
    QList<QJsonObject> kills() const
    {
        QList<QJsonObject> found;
        for (const QJsonObject &call : sandbox.calls(u"wineserver"_s))
            if (argvOf(call).mid(1) == QStringList{u"-k"_s})
                found.append(call);
        return found;
    }
    // Every simulated program the launch started has ended (the launcher's own exit included).
    bool nothingLeft()
    {
        rig.model.reset();
        model = nullptr;
        QDeadlineTimer deadline(5s);
        for (;;) {
            bool running = false;
            for (const QJsonObject &call : sandbox.calls())
                running = running || ::alive(call.value(u"pid"_s).toInteger());
            if (!running)
                return true;
            if (deadline.hasExpired())
                return false;
            QTest::qWait(20);
        }
    }
};

} // namespace

class TestLaunch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo(u"/bin/zsh"_s).isExecutable())
            QSKIP("the launch script needs /bin/zsh");
    }

    // The mode follows the snapshot and the pending restart; a running game refuses the launch
    // and leaves the bottle exactly as it was.
    void modes_data()
    {
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<bool>("applied");
        QTest::addColumn<bool>("earlierMarker");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("kills");

        const QStringList steam{steamWindowsPath};
        QTest::newRow("Steam runs, profile in place") << steam << true << false << u"Játék indítása a futó Steammel"_s << 0;
        QTest::newRow("Steam runs, profile changed now") << steam << false << false << u"Grafikai beállítások alkalmazása"_s << 1;
        QTest::newRow("Steam runs, earlier change pending") << steam << true << true << u"Grafikai beállítások alkalmazása"_s << 1;
        QTest::newRow("Steam does not run") << QStringList() << true << false << u"Palackleállítás és 8 mp várakozás"_s << 1;
        QTest::newRow("a game runs") << QStringList{steamWindowsPath, gameWindowsPath} << false << false
                                     << u"A játék már fut"_s << 0;
    }
    void modes()
    {
        QFETCH(QStringList, running);
        QFETCH(bool, applied);
        QFETCH(bool, earlierMarker);
        QFETCH(QString, status);
        QFETCH(int, kills);

        Launch launch(client({QJsonObject{{u"print"_s, u"Starting game\r\n"_s}}}), false, applied);
        launch.sandbox.setRunning(launch.bottle, running);
        if (earlierMarker)
            BottleTree::touch(launch.marker());
        const QString before = launch.configuration();
        QStringList statuses;
        connect(launch.model, &LauncherModel::statusChanged, this,
                [&] { statuses.append(launch.model->statusMessage().key); });

        launch.model->launchKorvane();
        const auto session = launch.ended();
        QVERIFY(session);
        QVERIFY2(statuses.contains(status), qPrintable(statuses.join(u" | "_s)));
        QCOMPARE(launch.kills().size(), kills);
        const bool refused = running.contains(gameWindowsPath);
        if (refused) {
            QCOMPARE(session->stage, LaunchStage::cancelled);
            QCOMPARE(launch.configuration(), before);
            QVERIFY(launch.sandbox.calls(u"korvane-cli"_s).isEmpty());
            QCOMPARE(launch.sandbox.running(launch.bottle), running);
            QVERIFY(launch.model->logText().contains(u"Már fut ATS vagy ETS2"_s));
        } else {
            QCOMPARE(session->stage, LaunchStage::finished);
            QCOMPARE(launch.model->statusMessage().key, u"A játék bezárult"_s);
            QVERIFY(launch.model->logText().contains(u"Starting game\n\n"_s));
            QVERIFY(!QFileInfo::exists(launch.marker())); // the restart happened, or none was due
        }
        QVERIFY(!launch.model->isRunning());
        QVERIFY(!launch.model->activeLaunchToken());
        QVERIFY(launch.nothingLeft());
    }

    // The rows of the failure tables that a whole launch reaches. Each ends the session with
    // its reason, names the issue and leaves the launcher idle.
    void failures_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("issue");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("line");

        QTest::newRow("checklist") << u"no Steam"_s << u"missing_requirement"_s << u"steam"_s << u"Beállítás szükséges"_s
                                   << QString();
        QTest::newRow("microphone denied") << u"microphone"_s << u"microphone_permission"_s << u"microphone"_s
                                           << u"Mikrofonengedély szükséges"_s << u"Adatvédelem és biztonság"_s;
        QTest::newRow("data folder") << u"storage"_s << u"storage"_s << u"storage"_s << u"compat.checking"_s
                                     << u"HIBA: Az indítási környezet nem készíthető elő:"_s;
        QTest::newRow("probe") << u"probe"_s << u"preflight"_s << u"probe"_s
                               << u"Indítás előtti ellenőrzés sikertelen"_s << u"Biztonságból nem állítottuk le"_s;
        QTest::newRow("configuration") << u"configuration"_s << u"preflight"_s << u"probe"_s
                                       << u"Indítás előtti ellenőrzés sikertelen"_s << u"Biztonságból nem állítottuk le"_s;
        QTest::newRow("script folder") << u"launches"_s << u"launch"_s << u"unexpected"_s << u"Indítási hiba"_s
                                       << u"HIBA: "_s;
        QTest::newRow("exit 7") << u"exit 7"_s << u"exit_7"_s << u"unexpected"_s << u"Hiba (kód: %d)"_s
                                << u"hibával állt le (kód: 7)"_s;
        QTest::newRow("exit 7, the console named it") << u"exit 7 network"_s << u"exit_7"_s << u"network"_s
                                                      << u"Hiba (kód: %d)"_s << u"(kód: 7)"_s;
    }
    void failures()
    {
        QFETCH(QString, fault);
        QFETCH(QString, reason);
        QFETCH(QString, issue);
        QFETCH(QString, status);
        QFETCH(QString, line);

        QJsonObject scenario;
        if (fault == u"probe"_s)
            scenario.insert(u"winedbg"_s, u"failure"_s);
        if (fault.startsWith(u"exit 7"_s))
            scenario = client({QJsonObject{{u"print"_s, fault.endsWith(u"network"_s) ? u"HTTP Error 500\n"_s : u"x\n"_s}}}, 7);
        Launch launch(scenario);
        const QString data = launch.model->applicationDataDirectory();
        if (fault == u"no Steam"_s)
            QFile::remove(launch.model->steamPath());
        if (fault == u"microphone"_s)
            launch.rig.microphone.status = MicrophoneAuthorization::denied;
        if (fault == u"storage"_s)
            BottleTree::touch(launch.model->modsDirectory());
        if (fault == u"configuration"_s)
            BottleTree::touch(BottleConfiguration::configurationPath(launch.bottle), false,
                              "[EnvironmentVariables]\n\"WINEMSYNC\" = \"0\"\n[EnvironmentVariables]\n");
        if (fault == u"launches"_s)
            BottleTree::touch(data + u"/Launches"_s);
        const QString configuration = launch.configuration();

        launch.model->launchKorvane();
        const auto session = launch.ended();
        QVERIFY(session);
        QCOMPARE(session->stage, LaunchStage::failed);
        QCOMPARE(launch.model->activity().failure()->reason, reason);
        QCOMPARE(launch.model->issue()->rawValue(), issue);
        QCOMPARE(launch.model->statusMessage().key, status);
        if (!line.isEmpty())
            QVERIFY2(launch.model->logText().contains(line), qPrintable(launch.model->logText()));
        QVERIFY(!launch.model->activeLaunchToken());
        QVERIFY(!launch.model->isCheckingSteam());
        // Before the client, nothing in the bottle is stopped or rewritten.
        if (!fault.startsWith(u"exit"_s)) {
            QVERIFY(launch.kills().isEmpty());
            QCOMPARE(launch.configuration(), configuration);
        }
        QVERIFY(launch.nothingLeft());
    }

    void versionDecision_data()
    {
        QTest::addColumn<QString>("supported");
        QTest::addColumn<bool>("confirm");
        QTest::addColumn<bool>("switchGame");
        QTest::addColumn<QString>("status");
        QTest::addColumn<LaunchStage>("stage");
        QTest::newRow("mismatch, declined") << u"1.54"_s << false << false << u"compat.mismatch"_s << LaunchStage(LaunchStage::cancelled);
        QTest::newRow("mismatch, confirmed") << u"1.54"_s << true << false << u"A játék bezárult"_s << LaunchStage(LaunchStage::finished);
        QTest::newRow("unknown, confirmed after switching games") << u"1.*x"_s << true << true << QString() << LaunchStage(LaunchStage::cancelled);
    }
    void versionDecision()
    {
        QFETCH(QString, supported);
        QFETCH(bool, confirm);
        QFETCH(bool, switchGame);
        QFETCH(QString, status);
        QFETCH(LaunchStage, stage);

        Launch launch;
        launch.respond(supported);
        launch.model->launchKorvane();
        QTRY_VERIFY(launch.model->pendingCompatibility());
        QVERIFY(!launch.model->isRunning());
        launch.model->launchKorvane(); // a decision is pending: nothing happens
        QCOMPARE(launch.service.requestCount(u"/v2/version"_s), 1);
        if (switchGame)
            launch.model->setGame(GameKind::ats);
        if (confirm)
            launch.model->confirmCompatibilityLaunch();
        else
            launch.model->cancelCompatibilityLaunch(true);
        const auto session = launch.ended();
        QVERIFY(session);
        QCOMPARE(session->stage, stage);
        if (!status.isEmpty())
            QCOMPARE(launch.model->statusMessage().key, status);
        QVERIFY(!launch.model->pendingCompatibility());
        QCOMPARE(launch.sandbox.calls(u"korvane-cli"_s).size(), stage == LaunchStage::finished ? 1 : 0);
        QVERIFY(launch.nothingLeft());
    }

    // Asked once; a consent starts the launch again from the version check.
    void microphoneQuestion_data()
    {
        QTest::addColumn<bool>("granted");
        QTest::newRow("granted") << true;
        QTest::newRow("refused") << false;
    }
    void microphoneQuestion()
    {
        QFETCH(bool, granted);
        Launch launch;
        launch.rig.microphone.status = MicrophoneAuthorization::notDetermined;
        launch.model->launchKorvane();
        QTRY_COMPARE(launch.rig.microphone.questions.size(), 1);
        QCOMPARE(launch.model->statusMessage().key, u"Mikrofonengedélyre vár"_s);
        QVERIFY(launch.model->isRunning());
        launch.rig.microphone.answer(granted);
        const auto session = launch.ended();
        QVERIFY(session);
        QCOMPARE(session->stage, granted ? LaunchStage::finished : LaunchStage::failed);
        QCOMPARE(launch.service.requestCount(u"/v2/version"_s), granted ? 2 : 1);
        QVERIFY(launch.nothingLeft());
    }

    // Every attempt freezes: three recoveries restart the bottle, then the launcher gives up,
    // stops the bottle and reports the freeze.
    void freezeGivesUpAfterThreeRetries()
    {
        Launch launch(client({QJsonObject{{u"freeze"_s, true}}}));
        QSignalSpy bottleStopped(&launch.model->launch(), &LaunchController::bottleStopFinished);
        QList<BottleLaunchMode> modes;
        connect(&launch.model->launch(), &LaunchController::attemptStarted, this,
                [&](LaunchAttempt *attempt) { modes.append(attempt->plan().mode); });
        launch.model->launchKorvane();
        const auto session = launch.ended(30s);
        QVERIFY(session);
        QTRY_COMPARE(bottleStopped.size(), 1);
        QCOMPARE(session->stage, LaunchStage::failed);
        QCOMPARE(session->retries, 3);
        QCOMPARE(launch.model->activity().failure()->reason, u"startup_freeze"_s);
        const QList<BottleLaunchMode> expected{BottleLaunchMode::reuseSteam, BottleLaunchMode::recovery,
                                               BottleLaunchMode::recovery, BottleLaunchMode::recovery};
        QCOMPARE(modes, expected);
        QCOMPARE(launch.sandbox.calls(u"korvane-cli"_s).size(), 4);
        QCOMPARE(launch.kills().size(), 4); // three recovery scripts and the final stop
        const QString log = launch.model->logText();
        for (const QString &retry : {u"(1/3)"_s, u"(2/3)"_s, u"(3/3)"_s})
            QVERIFY2(log.contains(u"Automatikus újrapróbálkozás "_s + retry), qPrintable(log));
        QVERIFY(log.contains(u"A palackot leállítom"_s));
        QCOMPARE(launch.model->statusMessage().key, u"Betöltési fagyás – leállítva"_s);
        QVERIFY(launch.nothingLeft());
    }

    void loadHidesTheLauncher_data()
    {
        QTest::addColumn<QJsonArray>("steps");
        QTest::addColumn<QByteArray>("clientLog");
        QTest::addColumn<QString>("line");
        const QJsonObject hang{{u"hang"_s, true}};
        // The client keeps writing to the log that was newest when the attempt began.
        QTest::newRow("client log") << QJsonArray{hang} << QByteArray("[client] SteamID: 7656\n")
                                    << u"sikeres Korvane-indítást"_s;
        QTest::newRow("game log") << QJsonArray{QJsonObject{{u"gameLog"_s, u"[sys] Map loaded\n"_s}},
                                                QJsonObject{{u"print"_s, u"HTTP Error 500\n"_s}}, hang}
                                  << QByteArray() << u"sikeres betöltést"_s;
    }
    void loadHidesTheLauncher()
    {
        QFETCH(QJsonArray, steps);
        QFETCH(QByteArray, clientLog);
        QFETCH(QString, line);
        Launch launch(client(steps));
        // What the log held before the attempt is history, load marker or not.
        const QString clientLogPath = launch.model->multiplayerLogDirectory() + u"/client_0_old.txt"_s;
        BottleTree::touch(clientLogPath, false, "[client] SteamID: 1\n");
        launch.model->windowPreferences().setHideOnLaunch(true);
        connect(&launch.model->launch(), &LaunchController::attemptStarted, this, [&] {
            QTimer::singleShot(200ms, launch.model, [&] {
                QFile log(clientLogPath);
                QVERIFY(log.open(QIODevice::Append) && log.write(clientLog) >= 0);
            });
        });
        launch.model->launchKorvane();
        QTRY_VERIFY_WITH_TIMEOUT(launch.model->gameStartupDetected(), 10000);
        QVERIFY2(launch.model->logText().contains(line), qPrintable(launch.model->logText()));
        QCOMPARE(launch.model->statusMessage().key, u"A játék betöltött"_s);
        QCOMPARE(launch.rig.desktop.hides, 1);
        QCOMPARE(launch.model->activity().current()->stage, LaunchStage::playing);
        launch.model->appendLog(u"HTTP Error 500\n"_s); // after the load the console names nothing
        QCOMPARE(launch.model->issue(), std::nullopt);

        const qint64 clientPid = launch.sandbox.calls(u"korvane-cli"_s).value(0).value(u"pid"_s).toInteger();
        QVERIFY(alive(clientPid));
        launch.model->stopBottle();
        QTRY_VERIFY(!alive(clientPid)); // gone by the stop itself, not by the launcher's exit
        QCOMPARE(launch.model->statusMessage().key, u"Leállítás elküldve"_s);
        QCOMPARE(launch.rig.desktop.unhides, 1);
        QCOMPARE(launch.model->activity().latest()->stage, LaunchStage::cancelled);
        QTRY_COMPARE(launch.kills().size(), 1);
        QVERIFY(launch.nothingLeft());
    }

    // Stopping while the version check still runs leaves Steam and the bottle alone; the
    // check's late answer changes nothing.
    void stopWhilePreparing()
    {
        Launch launch;
        launch.service.respond(u"/v2/version"_s, ScriptedResponse{200, {}, "{}", false, 200, 1});
        launch.model->launchKorvane();
        QVERIFY(launch.model->isCheckingSteam());
        launch.model->stopBottle();
        QVERIFY(!launch.model->isRunning());
        QCOMPARE(launch.model->statusMessage().key, u"Indítás megszakítva"_s);
        QVERIFY(launch.model->logText().contains(u"megszakítottad"_s));
        QCOMPARE(launch.model->activity().latest()->stage, LaunchStage::cancelled);
        QTest::qWait(500);
        QCOMPARE(launch.model->statusMessage().key, u"Indítás megszakítva"_s);
        QVERIFY(!launch.model->pendingCompatibility());
        QVERIFY(launch.sandbox.calls().isEmpty());
    }

    void steam_data()
    {
        QTest::addColumn<bool>("withSteam");
        QTest::newRow("Steam in the bottle") << true;
        QTest::newRow("no Steam") << false;
    }
    void steam()
    {
        QFETCH(bool, withSteam);
        Launch launch;
        if (!withSteam)
            QFile::remove(launch.model->steamPath());
        launch.model->openSteam();
        QCOMPARE(launch.model->logText().contains(u"HIBA: A Windows Steam vagy a CrossOver Wine nem található."_s),
                 !withSteam);
        QCOMPARE(launch.model->isRunning(), false);
        if (!withSteam) {
            QTest::qWait(200);
            QVERIFY(launch.sandbox.calls().isEmpty());
            return;
        }
        QCOMPARE(launch.model->statusMessage().key, u"Steam elindítva"_s);
        QTRY_COMPARE(launch.sandbox.calls(u"wine"_s).size(), 1);
        const QJsonObject call = launch.sandbox.calls(u"wine"_s).first();
        QCOMPARE(argvOf(call).mid(1), (QStringList{launch.model->steamPath(), u"-no-cef-sandbox"_s}));
        QCOMPARE(call.value(u"env"_s).toObject().value(u"WINEPREFIX"_s).toString(), launch.bottle);
        QCOMPARE(call.value(u"stdout"_s).toString(), u"null"_s);
    }

    // With a terminal the test drives: the console's treatment of what arrives, and the silence
    // of an attempt whose token was replaced.
    void console()
    {
        Launch launch;
        QList<QPointer<FakeTerminalProcess>> terminals;
        launch.rig.terminals = [&terminals] {
            auto terminal = std::make_unique<FakeTerminalProcess>();
            terminal->endsOnTerminate = false;
            terminals.append(terminal.get());
            return std::unique_ptr<TerminalProcess>(std::move(terminal));
        };
        LauncherModel &model = launch.rig.start();
        launch.model = &model;
        const auto statusOf = [](const FakeTerminalProcess &terminal) -> QString {
            const QFileInfo script(terminal.scriptPath);
            return script.path() + u'/' + script.completeBaseName() + u".status"_s;
        };
        model.launchKorvane();
        QTRY_COMPARE(terminals.size(), 1);
        FakeTerminalProcess &first = *terminals.first();
        first.print("10%\r20%\r");
        first.print("line\r\n\xC3");
        first.print("\xA9!\n");
        QVERIFY2(model.logText().endsWith(u"10%\n20%\nline\n\n\uFFFD\uFFFD!\n"_s), qPrintable(model.logText()));

        // A freeze replaces the attempt: what the old one still says is not heard.
        BottleTree::touch(model.gameLogPath(), false, "Enforcing 'floor_reflection'\n");
        QTRY_COMPARE_WITH_TIMEOUT(terminals.size(), 2, 5000);
        QVERIFY(first.signalsSent.contains(SIGTERM));
        const QString afterRetry = model.logText();
        BottleTree::touch(statusOf(first), false, "0\n");
        first.print("old attempt\n");
        first.exit(0);
        QTest::qWait(300);
        QCOMPARE(model.logText(), afterRetry);
        QVERIFY(model.isRunning());
        QCOMPARE(model.activity().current()->retries, 1);

        // The new attempt: a status that is not a number is read again, a code ends it.
        FakeTerminalProcess &second = *terminals.at(1);
        const QString secondStatus = statusOf(second);
        BottleTree::touch(secondStatus, false, "abc");
        QTest::qWait(300);
        QVERIFY(model.isRunning());
        BottleTree::touch(secondStatus, false, "  7\n");
        QTRY_VERIFY(!model.isRunning());
        QCOMPARE(model.activity().failure()->reason, u"exit_7"_s);
    }

    void processEndsWithoutStatus()
    {
        Launch launch;
        QPointer<FakeTerminalProcess> terminal;
        launch.rig.terminals = [&terminal] {
            auto made = std::make_unique<FakeTerminalProcess>();
            terminal = made.get();
            return std::unique_ptr<TerminalProcess>(std::move(made));
        };
        LauncherModel &model = launch.rig.start();
        launch.model = &model;
        model.launchKorvane();
        QTRY_VERIFY(terminal);
        terminal->exit(0);
        QCOMPARE(model.activity().latest()->stage, LaunchStage::failed);
        QCOMPARE(model.activity().failure()->reason, u"launcher_exit"_s);
        QCOMPARE(model.statusMessage().key, u"Az indítófolyamat váratlanul leállt"_s);
        QCOMPARE(model.issue(), LaunchIssue(LaunchIssue::unexpected));
    }

    void statusFile_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<std::optional<int>>("code");
        QTest::newRow("code and line break") << QByteArray("0\n") << std::optional<int>(0);
        QTest::newRow("spaces around") << QByteArray("  7\n") << std::optional<int>(7);
        QTest::newRow("negative") << QByteArray("-1") << std::optional<int>(-1);
        QTest::newRow("plus") << QByteArray("+3\n") << std::optional<int>(3);
        QTest::newRow("lowest") << QByteArray("-2147483648") << std::optional<int>(INT_MIN);
        QTest::newRow("overflow") << QByteArray("2147483648") << std::optional<int>();
        QTest::newRow("letters") << QByteArray("abc") << std::optional<int>();
        QTest::newRow("empty") << QByteArray("\n") << std::optional<int>();
        QTest::newRow("sign alone") << QByteArray("-") << std::optional<int>();
        QTest::newRow("two numbers") << QByteArray("1 2") << std::optional<int>();
        QTest::newRow("not UTF-8") << QByteArray("1\xff") << std::optional<int>();
    }
    void statusFile()
    {
        QFETCH(QByteArray, contents);
        QFETCH(std::optional<int>, code);
        QCOMPARE(StatusFile::exitCode(contents), code);
    }

    // What the watchdog makes of the logs, with the start and the present moment chosen.
    void freezeVerdict_data()
    {
        QTest::addColumn<QByteArray>("clientBefore");
        QTest::addColumn<QByteArray>("clientAfter");
        QTest::addColumn<QByteArray>("game");
        QTest::addColumn<int>("gameAge"); // seconds before the start (negative: after it)
        QTest::addColumn<int>("now");     // seconds after the start
        QTest::addColumn<FreezeWatch::Verdict>("verdict");
        using V = FreezeWatch::Verdict;
        const QByteArray hang = "x\n[gfx] Enforcing 'floor_reflection' to 'off'\n";
        QTest::newRow("old client marker") << QByteArray("[client] SteamID: 1\n") << QByteArray("more\n") << QByteArray()
                                           << 0 << 10 << V::watching;
        QTest::newRow("new client marker") << QByteArray("old\n") << QByteArray("[cb_radio] Speaker initialized\n")
                                           << QByteArray() << 0 << 10 << V::clientLoaded;
        QTest::newRow("client marker split by the start") << QByteArray("[client] Initializing")
                                                          << QByteArray(" gameplay\n") << QByteArray() << 0 << 10
                                                          << V::watching;
        QTest::newRow("client log not UTF-8") << QByteArray() << QByteArray("\xff[client] SteamID: 1\n") << QByteArray()
                                              << 0 << 10 << V::watching;
        QTest::newRow("old game log") << QByteArray() << QByteArray() << QByteArray("Map loaded\n") << 5 << 10
                                      << V::watching;
        QTest::newRow("loaded and hang") << QByteArray() << QByteArray() << QByteArray("Map loaded\n" + hang) << -1
                                         << 100 << V::gameLoaded;
        QTest::newRow("hang, 29 s still") << QByteArray() << QByteArray() << hang << -1 << 30 << V::watching;
        QTest::newRow("hang, 30 s still") << QByteArray() << QByteArray() << hang << -1 << 31 << V::frozen;
        QTest::newRow("game log not UTF-8") << QByteArray() << QByteArray() << QByteArray("\xc3" + hang) << -1 << 100
                                            << V::watching;
    }
    void freezeVerdict()
    {
        QFETCH(QByteArray, clientBefore);
        QFETCH(QByteArray, clientAfter);
        QFETCH(QByteArray, game);
        QFETCH(int, gameAge);
        QFETCH(int, now);
        QFETCH(FreezeWatch::Verdict, verdict);

        TestHome home;
        const QDateTime start = QDateTime::currentDateTimeUtc().addSecs(-1000);
        FreezeWatch::Watch watch{home.root() + u"/game.log.txt"_s, home.root() + u"/client_1.txt"_s, 0, start};
        BottleTree::touch(*watch.clientLog, false, clientBefore);
        watch.clientOffset = FreezeWatch::sizeOf(*watch.clientLog);
        QFile clientLog(*watch.clientLog);
        QVERIFY(clientLog.open(QIODevice::Append) && clientLog.write(clientAfter) >= 0);
        clientLog.close();
        if (!game.isEmpty()) {
            BottleTree::touch(watch.gameLog, false, game);
            QFile gameLog(watch.gameLog);
            QVERIFY(gameLog.open(QIODevice::ReadWrite)
                    && gameLog.setFileTime(start.addSecs(-gameAge), QFileDevice::FileModificationTime));
        }
        QCOMPARE(FreezeWatch::assess(FreezeWatch::observe(watch), start, start.addSecs(now), 30s), verdict);
    }
};

QTEST_GUILESS_MAIN(TestLaunch)
#include "tst_launch_linux.moc"
