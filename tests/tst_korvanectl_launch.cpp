#include "crossover/compatibilityprofile.h"
#include "sessions/playsession.h"
#include "support/bottletree.h"
#include "support/crossoversandbox.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/korvanectl.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

#include <cerrno>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

const QString steamInBottle = u"C:\\Program Files (x86)\\Steam\\steam.exe"_s;
using Version = QList<quint16>;

QStringList argv(const QJsonObject &call)
{
    QStringList arguments;
    for (const QJsonValue &argument : call.value(u"argv"_s).toArray())
        arguments.append(argument.toString());
    return arguments;
}

// The pid a simulated program recorded is gone: no process, or one that only waits to be reaped
// (the machine's init may be slow to collect orphans).
bool processGone(qint64 pid)
{
    if (::kill(pid_t(pid), 0) != 0)
        return errno == ESRCH;
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    return stat.open(QIODevice::ReadOnly) && stat.readAll().split(' ').value(2) == "Z";
}

// korvanectl in a home with the simulated CrossOver, one bottle that holds Steam and the game,
// and the version service on this thread. The service answers while the test waits on the
// child's end with an event loop, so the child runs without blocking this thread.
struct LaunchHome {
    TestHome home;
    CrossOverSandbox sandbox{home};
    QString bottle = sandbox.addBottle();
    LocalHttpsServer service;
    QProcess process;
    QSignalSpy finished{&process, &QProcess::finished};
    QString out;

    LaunchHome()
    {
        service.respond(u"/v2/version"_s, ScriptedResponse::json(R"({"supported_game_version":"1.53.3.14s",
                                                                      "supported_ats_game_version":"1.53"})"));
        QObject::connect(&process, &QProcess::readyReadStandardOutput,
                         [this] { out += QString::fromUtf8(process.readAllStandardOutput()); });
    }

    void installGame(GameKind game, const Version &version) const
    {
        const QString directory = BottleTree::installGame(bottle, game);
        if (!writeFakeGameExecutable(directory + u"/bin/win_x64/"_s + game.executable(), version))
            qFatal("cannot write the game executable");
    }

    // Steam runs and the bottle already carries the profile with no restart pending, so a launch
    // keeps Steam and never sits through the bottle restart.
    void keepSteamRunning() const
    {
        if (run({u"bottle-config"_s}).exitCode != 0)
            qFatal("bottle-config failed");
        QFile::remove(CompatibilityProfile::restartMarker(home.root() + u"/data/Korvane Mac Launcher"_s, bottle));
        sandbox.setRunning(bottle, {steamInBottle});
    }

    // What the simulated client does: its steps as JSON, then its exit code.
    void scriptClient(const QByteArray &steps, int exitCode = 0) const
    {
        const QJsonArray parsed = QJsonDocument::fromJson(steps).array();
        if (parsed.isEmpty())
            qFatal("the client's steps are not a JSON array");
        sandbox.writeScenario({{u"cli"_s, QJsonObject{{u"steps"_s, parsed}, {u"exitCode"_s, exitCode}}}});
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = sandbox.environment();
        environment.insert(u"KORVANE_API_URL"_s, service.url().toString());
        environment.insert(u"KORVANE_CA_FILE"_s, LocalHttpsServer::certificatePath());
        return environment;
    }

    // A short command that needs no service.
    CliResult run(const QStringList &arguments) const
    {
        return runKorvanectl(home, arguments, {}, environment());
    }

    void start(const QStringList &arguments) { startKorvanectl(process, home, arguments, environment()); }

    bool waitForEnd() { return !finished.isEmpty() || finished.wait(60000); }

    QList<QJsonObject> calls(const QString &role, const QString &argument = {}) const
    {
        QList<QJsonObject> found;
        for (const QJsonObject &call : sandbox.calls(role))
            if (argument.isEmpty() || argv(call).contains(argument))
                found.append(call);
        return found;
    }

    // The session korvanectl printed as its last line.
    std::optional<PlaySession> printedSession() const
    {
        const QStringList lines = out.split(u'\n', Qt::SkipEmptyParts);
        return lines.isEmpty() ? std::nullopt : PlaySession::fromJson(lines.last().toUtf8());
    }
};

} // namespace

class TestKorvanectlLaunch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void launch_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<GameKind>("game");
        QTest::addColumn<Version>("version");
        QTest::addColumn<int>("clientExit");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("stage");
        QTest::addColumn<QString>("explanation");
        const GameKind ets2 = GameKind::ets2;
        const Version supported{1, 53, 3, 14};
        const Version older{1, 52, 1, 0};
        QTest::newRow("client ends well") << QStringList() << ets2 << supported << 0 << 0 << u"finished"_s << QString();
        QTest::newRow("client fails") << QStringList() << ets2 << supported << 7 << 1 << u"failed"_s << u"exit_7"_s;
        QTest::newRow("version mismatch declined") << QStringList() << ets2 << older << 0 << 2 << u"cancelled"_s
                                                   << u"installed: 1.52.1.0, supported: 1.53.3.14s"_s;
        QTest::newRow("version mismatch confirmed")
            << QStringList{u"--yes"_s} << ets2 << older << 0 << 0 << u"finished"_s << QString();
        QTest::newRow("the game asked for")
            << QStringList{u"--game"_s, u"ats"_s} << GameKind(GameKind::ats) << Version{1, 53, 2, 0} << 0 << 0
            << u"finished"_s << QString();
    }

    void launch()
    {
        QFETCH(QStringList, options);
        QFETCH(GameKind, game);
        QFETCH(Version, version);
        QFETCH(int, clientExit);
        QFETCH(int, exitCode);
        QFETCH(QString, stage);
        QFETCH(QString, explanation);
        LaunchHome launch;
        launch.installGame(game, version);
        launch.keepSteamRunning();
        launch.scriptClient(R"([{"progress": ["10%", "20%"]}, {"print": "Starting game\n"}])", clientExit);

        launch.start(QStringList{u"launch"_s, u"--json"_s} + options);
        QVERIFY(launch.waitForEnd());
        const QString err = QString::fromUtf8(launch.process.readAllStandardError());
        QVERIFY2(launch.process.exitCode() == exitCode, qPrintable(launch.out + err));

        const std::optional<PlaySession> session = launch.printedSession();
        QVERIFY2(session, qPrintable(launch.out));
        QCOMPARE(session->stage.rawValue(), stage);
        QCOMPARE(session->game, game.rawValue());
        QVERIFY(session->ended);
        // The session record has no reason: why it did not finish is said on stderr.
        if (!explanation.isEmpty())
            QVERIFY2(err.contains(explanation), qPrintable(err));

        const QList<QJsonObject> clients = launch.calls(u"korvane-cli"_s);
        if (stage == "cancelled"_L1) {
            // Declined before anything touched the bottle: no probe, no configuration, no client.
            QCOMPARE(launch.sandbox.calls(), QList<QJsonObject>());
            return;
        }
        QCOMPARE(clients.size(), 1);
        QCOMPARE(argv(clients.first()).last(), game.cliName());
        // The console as it grew: the client's progress arrived line by line.
        QVERIFY2(launch.out.contains(u"10%\n"_s) && launch.out.contains(u"20%\n"_s)
                     && launch.out.contains(u"Starting game\n"_s),
                 qPrintable(launch.out));
        // Steam was kept: the bottle was never stopped.
        QCOMPARE(launch.calls(u"wineserver"_s, u"-k"_s).size(), 0);
    }

    void stoppedBySignal_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void stoppedBySignal()
    {
        QFETCH(int, signal);
        LaunchHome launch;
        launch.installGame(GameKind::ets2, {1, 53, 3, 14});
        launch.keepSteamRunning();
        launch.scriptClient(R"([{"print": "Waiting for the game\n"}, {"hang": true}])");

        launch.start({u"launch"_s, u"--json"_s});
        QTRY_VERIFY_WITH_TIMEOUT(launch.out.contains(u"Waiting for the game"_s), 30000);
        const QList<QJsonObject> clients = launch.calls(u"korvane-cli"_s);
        QCOMPARE(clients.size(), 1);
        QVERIFY(::kill(pid_t(launch.process.processId()), signal) == 0);

        QVERIFY(launch.waitForEnd());
        QCOMPARE(launch.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(launch.process.exitCode(), 2);
        const std::optional<PlaySession> session = launch.printedSession();
        QVERIFY2(session, qPrintable(launch.out));
        QCOMPARE(session->stage, LaunchStage(LaunchStage::cancelled));
        // The bottle was told to stop, and the client is gone with korvanectl.
        QTRY_COMPARE_WITH_TIMEOUT(launch.calls(u"wineserver"_s, u"-k"_s).size(), 1, 10000);
        QCOMPARE(launch.calls(u"wineserver"_s, u"-k"_s).first().value(u"env"_s).toObject().value(u"WINEPREFIX"_s),
                 QJsonValue(launch.bottle));
        const qint64 client = clients.first().value(u"pid"_s).toInteger();
        QTRY_VERIFY_WITH_TIMEOUT(processGone(client), 10000);
    }

    void checklistIncomplete()
    {
        // No bottle: the launch fails before anything runs.
        TestHome home;
        CrossOverSandbox sandbox(home);
        const CliResult launch = runKorvanectl(home, {u"launch"_s, u"--json"_s}, {}, sandbox.environment());
        QCOMPARE(launch.exitCode, 1);
        QVERIFY2(launch.err.startsWith(u"korvanectl: "_s) && launch.err.contains(u"missing_requirement"_s),
                 qPrintable(launch.err));
        const auto session = PlaySession::fromJson(launch.out.trimmed().toUtf8());
        QVERIFY2(session && session->stage == LaunchStage::failed, qPrintable(launch.out));
        QCOMPARE(sandbox.calls(), QList<QJsonObject>());

        const CliResult stop = runKorvanectl(home, {u"stop"_s}, {}, sandbox.environment());
        QCOMPARE(stop.exitCode, 1);
        QVERIFY(stop.err.contains(u"no bottle is selected"_s));
    }

    void steam_data()
    {
        QTest::addColumn<bool>("withSteam");
        QTest::newRow("Steam in the bottle") << true;
        QTest::newRow("no Steam in the bottle") << false;
    }

    void steam()
    {
        QFETCH(bool, withSteam);
        TestHome home;
        home.installLocalization();
        CrossOverSandbox sandbox(home);
        const QString bottle = sandbox.addBottle(u"Steam"_s, GameKind::ets2, withSteam);

        const CliResult run = runKorvanectl(home, {u"steam"_s}, {}, sandbox.environment());
        if (!withSteam) {
            QCOMPARE(run.exitCode, 1);
            QCOMPARE(run.err, L("HIBA: A Windows Steam vagy a CrossOver Wine nem található.\n"));
            QCOMPARE(sandbox.calls(), QList<QJsonObject>());
            return;
        }
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QCOMPARE(run.out, L("Windows Steam indítása…\n"));
        QTRY_COMPARE_WITH_TIMEOUT(sandbox.calls(u"wine"_s).size(), 1, 10000);
        const QJsonObject call = sandbox.calls(u"wine"_s).first();
        QCOMPARE(argv(call).mid(1),
                 (QStringList{bottle + u"/drive_c/Program Files (x86)/Steam/steam.exe"_s, u"-no-cef-sandbox"_s}));
        QCOMPARE(call.value(u"env"_s).toObject().value(u"WINEPREFIX"_s), QJsonValue(bottle));
    }

    void stop()
    {
        TestHome home;
        home.installLocalization();
        CrossOverSandbox sandbox(home);
        const QString bottle = sandbox.addBottle();
        sandbox.setRunning(bottle, {steamInBottle});

        const CliResult run = runKorvanectl(home, {u"stop"_s}, {}, sandbox.environment());
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QCOMPARE(run.out, L("A CrossOver-palack folyamatainak leállítása…\n"));
        QTRY_COMPARE_WITH_TIMEOUT(sandbox.calls(u"wineserver"_s).size(), 1, 10000);
        QCOMPARE(argv(sandbox.calls(u"wineserver"_s).first()).mid(1), QStringList{u"-k"_s});
        QTRY_COMPARE_WITH_TIMEOUT(sandbox.running(bottle), QStringList(), 10000);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlLaunch)
#include "tst_korvanectl_launch.moc"
