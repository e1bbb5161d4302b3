#include "platform/clock_fake.h"
#include "sessions/sessionactivity.h"
#include "support/korvanectl.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestKorvanectlSessions : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TestHome> m_home;

    // No CrossOver installed, whatever the machine has.
    CliResult korvanectl(const QStringList &arguments, const QByteArray &input = {})
    {
        QProcessEnvironment noCrossOver;
        noCrossOver.insert(u"CX_ROOT"_s, m_home->root() + u"/no-crossover"_s);
        return runKorvanectl(*m_home, arguments, input, noCrossOver);
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
        QTest::addColumn<QString>("output");
        QTest::newRow("standard home") << QStringList{u"redact"_s} << QByteArray("at HOME/x.cfg\nowner 76561198012345678\n")
                                       << u"at [PATH]\nowner [ID]\n"_s;
        QTest::newRow("given home") << QStringList{u"redact"_s, u"--home"_s, u"/home/anna"_s}
                                    << QByteArray("Loading /home/anna/x.cfg now\r\nok") << u"Loading [PATH]\n\nok"_s;
        QTest::newRow("invalid UTF-8 survives") << QStringList{u"redact"_s} << QByteArray("a\xff\n") << u"a\uFFFD\n"_s;
    }

    void redact()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(QString, output);
        const CliResult result = korvanectl(arguments, input.replace("HOME", m_home->paths.home.toUtf8()));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, output);
    }

    void tail_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::newRow("bounded") << QStringList{u"tail"_s, u"LOG"_s, u"--max"_s, u"8"_s} << 0 << u"second\n"_s;
        QTest::newRow("missing file") << QStringList{u"tail"_s, u"NOFILE"_s} << 1 << u"[unavailable]\n"_s;
        QTest::newRow("bound that is no number") << QStringList{u"tail"_s, u"LOG"_s, u"--max"_s, u"many"_s} << 2 << QString();
    }

    void tail()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        const QString log = m_home->root() + u"/game.log.txt"_s;
        writeFile(log, "first\nsecond\n");
        arguments.replaceInStrings(u"NOFILE"_s, m_home->root() + u"/nothing.txt"_s);
        arguments.replaceInStrings(u"LOG"_s, log);
        const CliResult result = korvanectl(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, output);
    }

    void sessionsShowsWhatIsStored()
    {
        FakeClock clock;
        {
            JsonUserDefaults defaults(korvanectlDefaultsPath(*m_home));
            SessionActivity activity(defaults, clock, {m_home->paths.home, {}, u"Test OS"_s});
            activity.setKeepHistory(true);
            activity.begin(GameKind::ets2);
            activity.finish(LaunchStage::failed, u"exit_7"_s);
            activity.begin(GameKind::ats); // still open: the launcher is running
        }
        const CliResult result = korvanectl({u"sessions"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const QJsonObject stored = QJsonDocument::fromJson(result.out.toUtf8()).object();
        QCOMPARE(stored.value(u"keepHistory"_s).toBool(), true);
        QCOMPARE(stored.value(u"current"_s).toObject().value(u"stage"_s).toString(), u"checking"_s);
        QCOMPARE(stored.value(u"current"_s).toObject().value(u"game"_s).toString(), u"American Truck Simulator"_s);
        QCOMPARE(stored.value(u"latest"_s).toObject().value(u"stage"_s).toString(), u"failed"_s);
        QCOMPARE(stored.value(u"history"_s).toArray().size(), 1);
        QCOMPARE(stored.value(u"failure"_s).toObject().value(u"reason"_s).toString(), u"exit_7"_s);

        // Looking does not close the open session.
        JsonUserDefaults after(korvanectlDefaultsPath(*m_home));
        QVERIFY(after.contains(SessionActivity::activeKey));

        const CliResult text = korvanectl({u"sessions"_s});
        QCOMPARE(text.exitCode, 0);
        QVERIFY(text.out.contains(u"failure report: "_s));
        QVERIFY(text.out.contains(u"Reason: exit_7"_s));
        QVERIFY(text.out.contains(u"history: 1\n"_s));
    }

    void diagnosticsOfTheStoredGame()
    {
        JsonUserDefaults(korvanectlDefaultsPath(*m_home)).setString(u"game"_s, u"American Truck Simulator"_s);
        writeFile(m_home->paths.home + u"/Documents/American Truck Simulator/game.log.txt"_s,
                  "Loaded " + m_home->paths.home.toUtf8() + "/Documents/x\nDone\n");
        writeFile(m_home->paths.home + u"/Documents/ATSKVN/logs/client_1.txt"_s, "client says hi\n");
        const QString zip = m_home->root() + u"/Korvane-Diagnostics.zip"_s;

        const CliResult result = korvanectl({u"diagnostics"_s, u"-o"_s, zip, u"--print"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.startsWith(u"Korvane Mac Launcher diagnostics\n"_s));
        for (const QString &part : {u"\nGame: American Truck Simulator\n"_s, u"\nCrossOver: unavailable\n"_s,
                                    u"\n--- Game ---\nLoaded [PATH]\nDone\n"_s, u"\n--- Multiplayer client ---\nclient says hi\n"_s})
            QVERIFY2(result.out.contains(part), qPrintable(part));

        QProcess unzip;
        unzip.start(u"unzip"_s, {u"-p"_s, zip, u"Diagnostics/report.txt"_s});
        QVERIFY(unzip.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(unzip.readAllStandardOutput()), result.out);
    }

    void diagnosticsNeedsSomethingToDo()
    {
        QCOMPARE(korvanectl({u"diagnostics"_s}).exitCode, 2);
        QCOMPARE(korvanectl({u"diagnostics"_s, u"-o"_s, m_home->root() + u"/no/such/folder/x.zip"_s}).exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlSessions)
#include "tst_korvanectl_sessions.moc"
