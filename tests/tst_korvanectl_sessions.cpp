#include "platform/clock_fake.h"
#include "sessions/sessionactivity.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
struct Result {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};
} // namespace

// korvanectl as a user runs it, over a test home: its store is the home's standard one.
class TestKorvanectlSessions : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TestHome> m_home;

    QString standardDefaultsPath() const { return m_home->paths.home + u"/.config/korvane-launcher/defaults.json"_s; }

    Result korvanectl(const QStringList &arguments, const QByteArray &input = {})
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOME"_s, m_home->paths.home);
        environment.insert(u"XDG_CONFIG_HOME"_s, m_home->paths.home + u"/.config"_s);
        environment.insert(u"XDG_DATA_HOME"_s, m_home->paths.home + u"/.local/share"_s);
        environment.insert(u"TMPDIR"_s, m_home->paths.temporary);
        environment.insert(u"CX_ROOT"_s, m_home->root() + u"/no-crossover"_s);
        process.setProcessEnvironment(environment);
        process.start(qEnvironmentVariable("KVN_KORVANECTL"), arguments);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
            return {};
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }

    void writeFile(const QString &path, const QByteArray &content)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<TestHome>(); }
    void cleanup() { m_home.reset(); }

    void redact_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("standard home") << QStringList{u"redact"_s} << QByteArray("at HOME/x.cfg\nowner 76561198012345678\n")
                                       << QByteArray("at [PATH]\nowner [ID]\n");
        QTest::newRow("given home") << QStringList{u"redact"_s, u"--home"_s, u"/Users/anna"_s}
                                    << QByteArray("Loading /Users/anna/Library/x.cfg now\r\nok") << QByteArray("Loading [PATH]\n\nok");
        QTest::newRow("invalid UTF-8 survives") << QStringList{u"redact"_s} << QByteArray("a\xff\n") << QByteArray("a\xef\xbf\xbd\n");
    }

    void redact()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(QByteArray, output);
        const Result result = korvanectl(arguments, input.replace("HOME", m_home->paths.home.toUtf8()));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, output);
    }

    void tail_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("bounded") << QStringList{u"tail"_s, u"LOG"_s, u"--max"_s, u"8"_s} << 0 << QByteArray("second\n");
        QTest::newRow("missing file") << QStringList{u"tail"_s, u"NOFILE"_s} << 1 << QByteArray("[unavailable]\n");
        QTest::newRow("bound that is no number") << QStringList{u"tail"_s, u"LOG"_s, u"--max"_s, u"many"_s} << 2 << QByteArray();
    }

    void tail()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, output);
        const QString log = m_home->root() + u"/game.log.txt"_s;
        writeFile(log, "first\nsecond\n");
        arguments.replaceInStrings(u"NOFILE"_s, m_home->root() + u"/nothing.txt"_s);
        arguments.replaceInStrings(u"LOG"_s, log);
        const Result result = korvanectl(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, output);
    }

    void sessionsShowsWhatIsStored()
    {
        FakeClock clock;
        {
            JsonUserDefaults defaults(standardDefaultsPath());
            SessionActivity activity(defaults, clock, {m_home->paths.home, {}, u"Test OS"_s});
            activity.setKeepHistory(true);
            activity.begin(GameKind::ets2);
            activity.finish(LaunchStage::failed, u"exit_7"_s);
            activity.begin(GameKind::ats); // still open: the launcher is running
        }
        const Result result = korvanectl({u"sessions"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const QJsonObject stored = QJsonDocument::fromJson(result.out).object();
        QCOMPARE(stored.value(u"keepHistory"_s).toBool(), true);
        QCOMPARE(stored.value(u"current"_s).toObject().value(u"stage"_s).toString(), u"checking"_s);
        QCOMPARE(stored.value(u"current"_s).toObject().value(u"game"_s).toString(), u"American Truck Simulator"_s);
        QCOMPARE(stored.value(u"latest"_s).toObject().value(u"stage"_s).toString(), u"failed"_s);
        QCOMPARE(stored.value(u"history"_s).toArray().size(), 1);
        QCOMPARE(stored.value(u"failure"_s).toObject().value(u"reason"_s).toString(), u"exit_7"_s);

        // Looking does not close the open session.
        JsonUserDefaults after(standardDefaultsPath());
        QVERIFY(after.contains(SessionActivity::activeKey));

        const Result text = korvanectl({u"sessions"_s});
        QCOMPARE(text.exitCode, 0);
        QVERIFY(text.out.contains("failure report: "));
        QVERIFY(text.out.contains("Reason: exit_7"));
        QVERIFY(text.out.contains("history: 1\n"));
    }

    void diagnosticsOfTheStoredGame()
    {
        JsonUserDefaults(standardDefaultsPath()).setString(u"game"_s, u"American Truck Simulator"_s);
        writeFile(m_home->paths.home + u"/Documents/American Truck Simulator/game.log.txt"_s,
                  "Loaded " + m_home->paths.home.toUtf8() + "/Documents/x\nDone\n");
        writeFile(m_home->paths.home + u"/Documents/ATSKVN/logs/client_1.txt"_s, "client says hi\n");
        const QString zip = m_home->root() + u"/Korvane-Diagnostics.zip"_s;

        const Result result = korvanectl({u"diagnostics"_s, u"-o"_s, zip, u"--print"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.startsWith("Korvane Mac Launcher diagnostics\n"));
        QVERIFY(result.out.contains("Game: American Truck Simulator\n"));
        QVERIFY(result.out.contains("\n--- Game ---\nLoaded [PATH]\nDone\n"));
        QVERIFY(result.out.contains("\n--- Multiplayer client ---\nclient says hi\n"));
        QVERIFY(result.out.contains("CrossOver: unavailable\n"));

        QProcess unzip;
        unzip.start(u"unzip"_s, {u"-p"_s, zip, u"Diagnostics/report.txt"_s});
        QVERIFY(unzip.waitForFinished(60000));
        QCOMPARE(unzip.readAllStandardOutput(), result.out);
    }

    void diagnosticsNeedsSomethingToDo()
    {
        QCOMPARE(korvanectl({u"diagnostics"_s}).exitCode, 2);
        QCOMPARE(korvanectl({u"diagnostics"_s, u"-o"_s, m_home->root() + u"/no/such/folder/x.zip"_s}).exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlSessions)
#include "tst_korvanectl_sessions.moc"
