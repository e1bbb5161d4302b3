// Linux only: the script tolerates stopping an idle bottle there (see LaunchScript::IdleServer).
// The launch script run for real: rendered, started by zsh under the pseudo-terminal runner, and
// carried out against the simulated CrossOver, whose call log tells what each program was given.
#include "crossover/compatibilityprofile.h"
#include "crossover/launchscript.h"
#include "platform/terminalprocess.h"
#include "support/bottletree.h"
#include "support/crossoversandbox.h"
#include "support/testhome.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {
QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QStringList argvOf(const QJsonObject &call)
{
    QStringList argv;
    for (const QJsonValue &argument : call.value(u"argv"_s).toArray())
        argv.append(argument.toString());
    return argv;
}

// The wineserver calls that stop the bottle, as opposed to the `-k0` question whether one survived.
QList<QJsonObject> kills(const QList<QJsonObject> &wineServerCalls)
{
    QList<QJsonObject> found;
    for (const QJsonObject &call : wineServerCalls)
        if (argvOf(call).mid(1) == QStringList{u"-k"_s})
            found.append(call);
    return found;
}
} // namespace

class TestLaunchScriptRun : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo(u"/bin/zsh"_s).isExecutable())
            QSKIP("the launch script needs /bin/zsh");
    }

    void run_data()
    {
        QTest::addColumn<QString>("bottleName");
        QTest::addColumn<BottleLaunchMode>("mode");
        QTest::addColumn<QJsonObject>("scenario");
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<QByteArray>("status");
        QTest::addColumn<bool>("clientRuns");
        QTest::addColumn<int>("killCalls");
        QTest::addColumn<bool>("markerRemains");

        const QJsonObject wellBehaved;
        const QStringList steam{u"C:\\Program Files (x86)\\Steam\\steam.exe"_s};
        const QJsonObject exitSeven{{u"cli"_s, QJsonObject{{u"exitCode"_s, 7}}}};

        // Names a shell would take apart if a single value escaped its quotes. The idle bottle
        // (nothing running) is stopped too: its failed `-k` must not fail the script.
        QTest::newRow("single quote") << u"Bob's bottle"_s << BottleLaunchMode(BottleLaunchMode::coldStart) << wellBehaved
                                      << steam << QByteArray("0\n") << true << 1 << false;
        QTest::newRow("dollar HOME") << u"$HOME ${HOME} $(id)"_s << BottleLaunchMode(BottleLaunchMode::reuseSteam)
                                     << wellBehaved << steam << QByteArray("0\n") << true << 0 << true;
        QTest::newRow("backtick") << u"a`id`b"_s << BottleLaunchMode(BottleLaunchMode::recovery) << wellBehaved
                                  << steam << QByteArray("0\n") << true << 1 << false;
        QTest::newRow("spaces") << u"two  spaces "_s << BottleLaunchMode(BottleLaunchMode::profileChange) << wellBehaved
                                << steam << QByteArray("0\n") << true << 1 << false;
        QTest::newRow("double quote") << u"say \"hi\" \\n"_s << BottleLaunchMode(BottleLaunchMode::coldStart)
                                      << wellBehaved << QStringList() << QByteArray("0\n") << true << 1 << false;
        QTest::newRow("newline") << u"line\nbreak"_s << BottleLaunchMode(BottleLaunchMode::coldStart)
                                 << wellBehaved << steam << QByteArray("0\n") << true << 1 << false;

        // The status file holds the client's own exit code, whether the bottle was stopped or not.
        QTest::newRow("exit 7 reusing") << u"Steam"_s << BottleLaunchMode(BottleLaunchMode::reuseSteam) << exitSeven
                                        << steam << QByteArray("7\n") << true << 0 << true;
        QTest::newRow("exit 7 cold") << u"Steam"_s << BottleLaunchMode(BottleLaunchMode::coldStart) << exitSeven << steam
                                     << QByteArray("7\n") << true << 1 << false;

        // A bottle that cannot be stopped: the client must not start in it, and the restart it
        // waits for is still pending.
        const QJsonObject survives{{u"wineserverSurvivesKill"_s, true}, {u"wineserverExitCode"_s, 1}};
        QTest::newRow("kill fails") << u"Steam"_s << BottleLaunchMode(BottleLaunchMode::recovery) << survives << steam
                                    << QByteArray("1\n") << false << 1 << true;
    }

    void run()
    {
        QFETCH(QString, bottleName);
        QFETCH(BottleLaunchMode, mode);
        QFETCH(QJsonObject, scenario);
        QFETCH(QStringList, running);
        QFETCH(QByteArray, status);
        QFETCH(bool, clientRuns);
        QFETCH(int, killCalls);
        QFETCH(bool, markerRemains);

        TestHome home;
        const CrossOverSandbox sandbox(home);
        sandbox.writeScenario(scenario);
        const QString bottle = sandbox.addBottle(bottleName);
        QVERIFY(QFileInfo(bottle).isDir());
        sandbox.setRunning(bottle, running);

        // `sleep 8` in the stop line must not cost eight seconds here.
        const QString stubs = home.root() + u"/stubs"_s;
        BottleTree::touch(stubs + u"/sleep"_s, true, "#!/bin/sh\nexit 0\n");

        const QString data = home.paths.applicationSupport + u"/Korvane Mac Launcher"_s;
        const QString marker = CompatibilityProfile::restartMarker(data, bottle);
        QDir().mkpath(QFileInfo(marker).absolutePath());
        QVERIFY(QFile(marker).open(QIODevice::WriteOnly));
        const QString statusPath = data + u"/launch-1.status"_s;
        const QString gameDirectory = bottle + u"/drive_c/Program Files (x86)/Steam/steamapps/common/ets2"_s;
        const QStringList arguments
            = LaunchScript::arguments(bottle, gameDirectory, bottle + u"/mods"_s, {u"--name=it's"_s}, GameKind::ets2);
        const auto environment = LaunchScript::environment(bottle, sandbox.winePath(), sandbox.wineServerPath(), data);
        const QString scriptPath = data + u"/launch-1.zsh"_s;
        BottleTree::touch(scriptPath, true,
                          LaunchScript::render(mode, bottle, sandbox.wineServerPath(), bottle, sandbox.cliPath(),
                                               arguments, environment, statusPath, marker)
                              .toUtf8());

        // What the launcher hands on of its own environment, with the terminal's variables.
        const QMap<QString, QString> inherited{{u"HOME"_s, sandbox.home},
                                               {u"PATH"_s, stubs + u":/usr/bin:/bin"_s},
                                               {u"LANG"_s, u"C.UTF-8"_s},
                                               {u"TERM"_s, u"xterm-256color"_s},
                                               {u"TERM_PROGRAM"_s, u"KorvaneMacLauncher"_s}};
        const auto terminal = TerminalProcess::create();
        QByteArray output;
        QList<TerminalExit> exits;
        connect(terminal.get(), &TerminalProcess::output, this, [&](const QByteArray &bytes) { output += bytes; });
        connect(terminal.get(), &TerminalProcess::finished, this, [&](TerminalExit exit) { exits.append(exit); });
        QVERIFY2(terminal->start(scriptPath, inherited, home.root()), qPrintable(terminal->errorString()));
        QVERIFY(terminal->waitForFinished(60s));
        QCOMPARE(exits.size(), 1);
        const TerminalExit expectedExit{status.trimmed().toInt(), 0};
        QVERIFY2(exits.first() == expectedExit, output.constData());

        QCOMPARE(readFile(statusPath), status);
        QCOMPARE(QFileInfo::exists(marker), markerRemains);

        const QList<QJsonObject> wineServerCalls = sandbox.calls(u"wineserver"_s);
        QCOMPARE(kills(wineServerCalls).size(), killCalls);
        for (const QJsonObject &call : wineServerCalls) {
            const QJsonObject env = call.value(u"env"_s).toObject();
            QCOMPARE(env.value(u"CX_BOTTLE"_s).toString(), bottle);
            QCOMPARE(env.value(u"WINEPREFIX"_s).toString(), bottle);
        }
        QCOMPARE(sandbox.running(bottle), killCalls > 0 ? QStringList() : running);

        const QList<QJsonObject> clientCalls = sandbox.calls(u"korvane-cli"_s);
        QCOMPARE(clientCalls.size(), clientRuns ? 1 : 0);
        if (!clientRuns)
            return;
        const QJsonObject client = clientCalls.first();
        QCOMPARE(argvOf(client).mid(1), arguments);
        QCOMPARE(client.value(u"cwd"_s).toString(), bottle);
        const QJsonObject env = client.value(u"env"_s).toObject();
        for (auto entry = environment.cbegin(); entry != environment.cend(); ++entry)
            QCOMPARE(env.value(entry.key()).toString(), entry.value());
        QCOMPARE(env.value(u"HOME"_s).toString(), sandbox.home);
        QCOMPARE(env.value(u"TERM"_s).toString(), u"xterm-256color"_s);
        const QJsonObject size{{u"rows"_s, TerminalProcess::rows}, {u"columns"_s, TerminalProcess::columns}};
        QCOMPARE(client.value(u"terminal"_s).toObject(), size);
        QVERIFY(client.value(u"controllingTerminal"_s).toBool());
        QCOMPARE(client.value(u"stdout"_s).toString(), u"tty"_s);
    }
};

QTEST_GUILESS_MAIN(TestLaunchScriptRun)
#include "tst_launchscriptrun_linux.moc"
