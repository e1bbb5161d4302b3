#include "platform/terminalprocess.h"
#include "support/crossoversandbox.h"
#include "support/testhome.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

char *toString(const TerminalExit &exit)
{
    return QTest::toString(exit.crashed() ? u"signal %1"_s.arg(exit.signal) : u"exit %1"_s.arg(exit.code));
}

namespace {
// A running terminal process and everything it printed.
struct Run {
    std::unique_ptr<TerminalProcess> process = TerminalProcess::create();
    QByteArray output;
    QList<TerminalExit> exits;

    Run()
    {
        QObject::connect(process.get(), &TerminalProcess::output, [this](const QByteArray &bytes) { output += bytes; });
        QObject::connect(process.get(), &TerminalProcess::finished, [this](TerminalExit exit) { exits.append(exit); });
    }
};

bool gone(qint64 pid)
{
    if (::kill(pid_t(pid), 0) != 0)
        return errno == ESRCH;
    // A process that ended but whose parent (here: whoever adopted it) has not reaped it yet.
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    return stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") Z ");
}

// A path as one single-quoted shell word (the test's paths hold no quote).
QByteArray quoted(const QString &path)
{
    return "'" + path.toUtf8() + "'";
}

// The pid the script printed after "label ".
qint64 printedPid(const QByteArray &output, const char *label)
{
    const QRegularExpression expression(QString::fromLatin1(label) + u" ([0-9]+)"_s);
    return expression.match(QString::fromUtf8(output)).captured(1).toLongLong();
}
} // namespace

class TestTerminalProcess : public QObject {
    Q_OBJECT

    TestHome m_home;
    int m_scripts = 0;

    QString script(const QByteArray &text)
    {
        const QString path = m_home.root() + u"/script-%1.zsh"_s.arg(++m_scripts);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    QMap<QString, QString> environment() const
    {
        return {{u"PATH"_s, u"/usr/bin:/bin"_s}, {u"HOME"_s, m_home.paths.home}, {u"LANG"_s, u"C.UTF-8"_s},
                {u"KVN_MARK"_s, u"it's \"quoted\" $HOME"_s}};
    }

    // A background job that ignores SIGHUP, and the script goes on only once it does. The job
    // sets the trap itself: zsh gives a background job default dispositions whatever the script
    // ignores. Runs in readyFolder().
    static QByteArray ignoringHangup(const QByteArray &body)
    {
        return "( trap '' HUP; : >ready; " + body + " ) &\nwhile [[ ! -e ready ]]; do :; done\n";
    }

    QString readyFolder()
    {
        const QString folder = m_home.root() + u"/ready-%1"_s.arg(++m_scripts);
        QDir().mkpath(folder);
        return folder;
    }

private Q_SLOTS:
    // The client sees a terminal of 120 by 30 as its controlling terminal, in a session of its
    // own, with the given environment and folder; reading its input ends at once.
    void runsInATerminalOfItsOwn()
    {
        Run run;
        QVERIFY(run.process->start(script("stty size </dev/tty\n"
                                          "[ -t 1 ] && print stdout-is-terminal\n"
                                          "read -r answer; print \"read:$?\"\n"
                                          "cat; print \"cat:$?\"\n"
                                          "print \"ids $$ $(cut -d' ' -f5,6 /proc/$$/stat)\"\n"
                                          "print -r -- \"mark:$KVN_MARK\" \"dir:$PWD\"\n"),
                                   environment(), m_home.paths.home));
        const qint64 pid = run.process->processId();
        QVERIFY(pid > 0);
        QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 20000);
        QCOMPARE(run.exits.first(), (TerminalExit{0, 0}));

        const QString text = QString::fromUtf8(run.output);
        QVERIFY2(text.contains(u"30 120\r\n"_s), qPrintable(text));
        QVERIFY2(text.contains(u"stdout-is-terminal"_s), qPrintable(text));
        QVERIFY2(text.contains(u"read:1"_s), qPrintable(text));
        QVERIFY2(text.contains(u"cat:0"_s), qPrintable(text));
        // Process group and session both led by the child, not the test's.
        QVERIFY2(text.contains(u"ids %1 %1 %1"_s.arg(pid)), qPrintable(text));
        QVERIFY(::getpgrp() != pid_t(pid) && ::getsid(0) != pid_t(pid));
        QVERIFY2(text.contains(u"mark:it's \"quoted\" $HOME dir:"_s + m_home.paths.home), qPrintable(text));
        QVERIFY2(::kill(pid_t(pid), 0) != 0 && errno == ESRCH, "the child was not reaped");
        QVERIFY(!run.process->isRunning());
    }

    // Bytes reach the reader as the terminal wrote them, the last ones before the exit too:
    // a UTF-8 character intact, LF turned into CR LF, a progress line's CR kept.
    void deliversEveryByte()
    {
        Run run;
        QVERIFY(run.process->start(script("printf 'Grüße ✓\\n10%%\\r20%%\\r'\n"
                                          "yes 'console line' | head -n 40000\n"
                                          "printf last"),
                                   environment(), m_home.paths.home));
        QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 30000);
        QVERIFY(run.output.startsWith("Grüße ✓\r\n10%\r20%\r"));
        QCOMPARE(run.output.count("console line\r\n"), 40000);
        QVERIFY(run.output.endsWith("console line\r\nlast"));
    }

    // What a process left behind by the script writes after the script ended still arrives:
    // the terminal is read until no process holds it any more.
    void deliversWhatOutlivesTheScript()
    {
        Run run;
        QVERIFY(run.process->start(script(ignoringHangup("while kill -0 $$ 2>/dev/null; do :; done; print late")
                                          + "exit 4\n"),
                                   environment(), readyFolder()));
        QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 20000);
        QCOMPARE(run.exits.first(), (TerminalExit{4, 0}));
        QCOMPARE(run.output, "late\r\n");
    }

    void stopEndsTheWholeGroup_data()
    {
        QTest::addColumn<QByteArray>("grandchild");

        // Both ignore the hangup that the end of the session would send them: only a signal to
        // the group reaches them.
        QTest::newRow("grandchild that obeys") << ignoringHangup("exec sleep 300");
        QTest::newRow("grandchild that ignores SIGTERM") << ignoringHangup("trap '' TERM; exec sleep 300");
    }

    void stopEndsTheWholeGroup()
    {
        QFETCH(QByteArray, grandchild);
        Run run;
        QVERIFY(run.process->start(script(grandchild + "print \"grandchild $!\"\nwait\n"), environment(),
                                   readyFolder()));
        QTRY_VERIFY_WITH_TIMEOUT(printedPid(run.output, "grandchild") > 0, 20000);
        const qint64 sleeper = printedPid(run.output, "grandchild");
        QVERIFY(!gone(sleeper));

        run.process->stop(300ms);
        QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 20000);
        QCOMPARE(run.exits.first(), (TerminalExit{0, SIGTERM}));
        QTRY_VERIFY_WITH_TIMEOUT(gone(sleeper), 20000);
    }

    void destroyingARunningProcessLeavesNothing()
    {
        qint64 pid = 0;
        {
            Run run;
            QVERIFY(run.process->start(script("print started\nsleep 300\n"), environment(), m_home.paths.home));
            pid = run.process->processId();
            QTRY_VERIFY_WITH_TIMEOUT(run.output.contains("started"), 20000);
        }
        QVERIFY2(::kill(pid_t(pid), 0) != 0 && errno == ESRCH, "still running or not reaped");
    }

    void waitsWithoutAnEventLoop()
    {
        Run run;
        QVERIFY(run.process->start(script("print done\nexit 3\n"), environment(), m_home.paths.home));
        QVERIFY(run.process->waitForFinished(20s));
        QCOMPARE(run.exits, (QList<TerminalExit>{{3, 0}}));
        QVERIFY(run.output.contains("done\r\n"));
    }

    // The simulated client under the terminal: it prints its progress, writes the game's and its
    // own log, and ends as its scenario says.
    void simulatedClientUnderTheTerminal()
    {
        CrossOverSandbox sandbox(m_home);
        const QString bottle = sandbox.addBottle();
        sandbox.writeScenario(QJsonObject{
            {u"cli"_s, QJsonObject{{u"exitCode"_s, 5},
                                   {u"steps"_s, QJsonArray{QJsonObject{{u"progress"_s, QJsonArray{u"10%"_s, u"20%"_s}}},
                                                          QJsonObject{{u"print"_s, u"[client] ready\n"_s}},
                                                          QJsonObject{{u"gameLog"_s, u"Map loaded\n"_s}},
                                                          QJsonObject{{u"clientLog"_s, u"[client] SteamID: 1\n"_s}},
                                                          QJsonObject{{u"run"_s, u"C:\\ATS\\amtrucks.exe"_s}}}}}}});
        const QByteArray text = "env HOME=" + quoted(m_home.paths.home) + " WINE=" + quoted(sandbox.winePath())
            + " WINEPREFIX=" + quoted(bottle) + " " + quoted(sandbox.cliPath()) + " -x " + quoted(bottle) + " start atskvn\n";
        Run run;
        QVERIFY(run.process->start(script(text), environment(), sandbox.resources + u"/CLI"_s));
        QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 20000);
        QCOMPARE(run.exits.first(), (TerminalExit{5, 0}));
        QVERIFY2(run.output.startsWith("10%\r20%\r[client] ready\r\n"), run.output.constData());

        QCOMPARE(sandbox.calls(u"korvane-cli"_s).value(0).value(u"stdin"_s).toString(), u"null"_s);
        QCOMPARE(sandbox.running(bottle), QStringList{u"C:\\ATS\\amtrucks.exe"_s});

        QFile gameLog(m_home.paths.home + u"/Documents/American Truck Simulator/game.log.txt"_s);
        QVERIFY(gameLog.open(QIODevice::ReadOnly));
        QCOMPARE(gameLog.readAll(), "Map loaded\n");
        const QStringList clientLogs =
            QDir(m_home.paths.home + u"/Documents/ATSKVN/logs"_s).entryList({u"client_*.txt"_s});
        QCOMPARE(clientLogs.size(), 1);
    }

    // The client behaviours the launch tests rely on: a flood arrives whole; a freeze leaves the
    // game's log at the hang marker and keeps running; a client that ignores SIGTERM still goes
    // with the group; a list of runs plays one entry per call.
    void simulatedClientBehaviours_data()
    {
        QTest::addColumn<QJsonValue>("cli");
        QTest::addColumn<bool>("stop");
        QTest::addColumn<QList<TerminalExit>>("exits"); // one per run of the script

        const QJsonArray flood{QJsonObject{{u"flood"_s, 20000}}};
        QTest::newRow("flood, one run a call")
            << QJsonValue(QJsonArray{QJsonObject{{u"steps"_s, flood}, {u"exitCode"_s, 3}},
                                     QJsonObject{{u"exitCode"_s, 4}}})
            << false << QList<TerminalExit>{{3, 0}, {4, 0}, {4, 0}};
        QTest::newRow("freeze") << QJsonValue(QJsonObject{{u"steps"_s, QJsonArray{QJsonObject{{u"freeze"_s, true}}}}})
                                << true << QList<TerminalExit>{{0, SIGTERM}};
        QTest::newRow("hang ignoring SIGTERM")
            << QJsonValue(QJsonObject{{u"ignoreTerm"_s, true},
                                      {u"steps"_s, QJsonArray{QJsonObject{{u"hang"_s, true}}}}})
            << true << QList<TerminalExit>{{0, SIGTERM}};
    }

    void simulatedClientBehaviours()
    {
        QFETCH(QJsonValue, cli);
        QFETCH(bool, stop);
        QFETCH(QList<TerminalExit>, exits);
        TestHome home;
        CrossOverSandbox sandbox(home);
        sandbox.writeScenario({{u"cli"_s, cli}});
        QFile gameLog(home.paths.home + u"/Documents/Euro Truck Simulator 2/game.log.txt"_s);
        const QByteArray client = "env HOME=" + quoted(home.paths.home) + " WINE=" + quoted(sandbox.winePath()) + " "
            + quoted(sandbox.cliPath()) + " start ets2kvn\n";
        for (qsizetype index = 0; index < exits.size(); ++index) {
            Run run;
            QVERIFY(run.process->start(script(client + "exit $?\n"), environment(), home.root()));
            if (stop) {
                QTRY_COMPARE_WITH_TIMEOUT(sandbox.calls(u"korvane-cli"_s).size(), 1, 20000);
                if (QByteArray(QTest::currentDataTag()) == "freeze")
                    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(gameLog.fileName()), 20000);
                QVERIFY(run.exits.isEmpty());
                run.process->stop(200ms);
            }
            QTRY_COMPARE_WITH_TIMEOUT(run.exits.size(), 1, 20000);
            QCOMPARE(run.exits.first(), exits.at(index));
            if (!stop)
                QCOMPARE(run.output.count("\r\n"), index == 0 ? 20000 : 0);
        }
        const qint64 pid = sandbox.calls(u"korvane-cli"_s).constLast().value(u"pid"_s).toInteger();
        QTRY_VERIFY_WITH_TIMEOUT(gone(pid), 20000);
        if (gameLog.open(QIODevice::ReadOnly))
            QVERIFY(gameLog.readAll().trimmed().endsWith("Enforcing 'floor_reflection' to 'off'"));
    }

    void startFailures()
    {
        Run run;
        QVERIFY(!run.process->start(script("true\n"), environment(), m_home.root() + u"/missing"_s));
        QVERIFY2(run.process->errorString().contains(u"/missing"_s), qPrintable(run.process->errorString()));
        QCOMPARE(run.process->processId(), 0);
        QVERIFY(!run.process->isRunning());
        QCoreApplication::processEvents();
        QVERIFY(run.exits.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestTerminalProcess)
#include "tst_terminalprocess.moc"
