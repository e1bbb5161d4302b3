#include "crossover/bottleconfiguration.h"
#include "crossover/bottlelaunchmode.h"
#include "crossover/bottleprocesssnapshot.h"
#include "crossover/wineprocessprobe.h"
#include "support/bottletree.h"
#include "support/crossoversandbox.h"
#include "support/korvanectl.h"
#include "support/testhome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <QtConcurrent/QtConcurrentRun>

#include <cerrno>
#include <csignal>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
// A listing as Debian's Wine 8 (wine64 8.0) printed it for `winedbg --command "info process"`
// in a prefix made with `wineboot -i`, with cmd.exe running and a program started from
// "C:\Program Files (x86)\Steam\Steam.exe" beside it. Byte for byte.
const QString realListing = uR"( pid      threads  executable (all id:s are in hex)
 00000138 1        'start.exe'
=00000140 1        \_ 'winedbg.exe'
 00000130 1        'Steam.exe'
 00000048 2        'explorer.exe'
 00000040 9        'services.exe'
 000000ec 6        \_ 'rpcss.exe'
 000000d4 3        \_ 'svchost.exe'
 000000b4 4        \_ 'plugplay.exe'
 00000080 7        \_ 'winedevice.exe'
 00000054 6        \_ 'winedevice.exe'
 00000028 1        'start.exe'
 00000118 1        \_ 'cmd.exe'
)"_s;
const QString header = u" pid      threads  executable (all id:s are in hex)\n"_s;
const QStringList wineServices{u"explorer.exe"_s, u"plugplay.exe"_s, u"rpcss.exe"_s, u"services.exe"_s,
                               u"start.exe"_s,    u"svchost.exe"_s,  u"winedbg.exe"_s, u"winedevice.exe"_s};

QStringList sorted(QStringList names)
{
    names.sort();
    return names;
}

QStringList namesOf(const BottleProcessSnapshot &snapshot)
{
    return sorted(snapshot.executables.values());
}

QStringList probeFolders()
{
    return QDir(QDir::tempPath()).entryList({u"Korvane-process-probe-*"_s}, QDir::AllEntries | QDir::Hidden);
}

QString errorName(WineProcessProbeError error)
{
    static const QStringList names{u"timedOut"_s, u"failed"_s, u"unrecognizedOutput"_s};
    return names.value(int(error));
}

mode_t modeOf(const QString &path)
{
    struct stat info{};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777 : 0;
}

bool processGone(qint64 pid)
{
    return ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
}
} // namespace

class TestProcessProbe : public QObject {
    Q_OBJECT

    TestHome m_home;
    std::optional<CrossOverSandbox> m_sandbox;
    QString m_bottle;

private Q_SLOTS:
    void initTestCase()
    {
        // The probe's folder goes to the temporary directory; this one is the test's own.
        qputenv("TMPDIR", m_home.paths.temporary.toUtf8());
        m_sandbox.emplace(m_home);
        m_bottle = m_sandbox->addBottle();
    }

    void parse_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QStringList>("expected"); // empty: unrecognizedOutput

        QTest::newRow("full Windows path")
            << header + u" 00000020 3        'C:\\Program Files (x86)\\Steam\\steam.exe'\n"_s
                                           << QStringList{u"steam.exe"_s};
        QTest::newRow("debugger mark and child marker")
            << header + u"=00000128 1        \\_ 'winedbg.exe'\n 00000130 2        \\_'amtrucks.exe'\n"_s
            << QStringList{u"amtrucks.exe"_s, u"winedbg.exe"_s};
        QTest::newRow("mixed case lower-cased") << header + u" 00000044 1 'C:\\Windows\\System32\\ExplOrer.EXE'\n"_s
                                                << QStringList{u"explorer.exe"_s};
        QTest::newRow("forward slashes") << header + u" 00000044 1 'C:/Games/ATS/bin/win_x64/amtrucks.exe'\n"_s
                                         << QStringList{u"amtrucks.exe"_s};
        QTest::newRow("non-ASCII name") << header + u" 00000044 1 'C:\\Spiele\\ÜBERSICHT.EXE'\n"_s
                                        << QStringList{u"übersicht.exe"_s};
        const QStringList realNames = sorted(wineServices + QStringList{u"cmd.exe"_s, u"steam.exe"_s});
        QTest::newRow("real Wine 8 listing") << realListing << realNames;
        QTest::newRow("CR LF line ends") << QString(realListing).replace(u"\n"_s, u"\r\n"_s) << realNames;
        QTest::newRow("lone CR line ends") << QString(realListing).replace(u'\n', u'\r') << realNames;
        QTest::newRow("tabs and spaces after the name")
            << header + u" 00000020 3 'steam.exe' \t \n"_s << QStringList{u"steam.exe"_s};
        QTest::newRow("Unicode spaces between the columns")
            << header + u" 00000020\u2003 3\u00a0'steam.exe'\n"_s << QStringList{u"steam.exe"_s};
        QTest::newRow("a line with trailing text is not a process line")
            << header + u" 00000020 3 'steam.exe' (exiting)\n 00000028 1 'cmd.exe'\n"_s
            << QStringList{u"cmd.exe"_s};

        QTest::newRow("an error message of Wine") << u"wine: could not load kernel32.dll, status c0000135\n"_s
                                                  << QStringList();
        QTest::newRow("process lines without the header") << u" 00000020 3 'steam.exe'\n"_s << QStringList();
        QTest::newRow("header words in other case")
            << u" PID THREADS EXECUTABLE\n 00000020 3 'steam.exe'\n"_s << QStringList();
        QTest::newRow("header and no process") << header << QStringList();
        QTest::newRow("pid that is not hexadecimal") << header + u" 0000002g 3 'steam.exe'\n"_s << QStringList();
        QTest::newRow("name without quotes") << header + u" 00000020 3 steam.exe\n"_s << QStringList();
    }

    void parse()
    {
        QFETCH(QString, output);
        QFETCH(QStringList, expected);
        std::optional<WineProcessProbeError> thrown;
        QStringList found;
        try {
            found = namesOf(BottleProcessSnapshot(output));
        } catch (WineProcessProbeError error) {
            thrown = error;
        }
        if (expected.isEmpty())
            QVERIFY(thrown == WineProcessProbeError::unrecognizedOutput);
        else
            QCOMPARE(found, expected);
    }

    void launchMode_data()
    {
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<bool>("compatibilityChanged");
        QTest::addColumn<QString>("mode"); // empty: none, the launch must not go on

        QTest::newRow("nothing runs") << QStringList{u"services.exe"_s} << false << u"coldStart"_s;
        QTest::newRow("nothing runs, restart pending") << QStringList() << true << u"coldStart"_s;
        QTest::newRow("Steam runs") << QStringList{u"steam.exe"_s, u"services.exe"_s} << false << u"reuseSteam"_s;
        QTest::newRow("Steam runs, restart pending") << QStringList{u"steam.exe"_s} << true << u"profileChange"_s;
        QTest::newRow("ETS2 runs with Steam")
            << QStringList{u"steam.exe"_s, u"eurotrucks2.exe"_s} << false << QString();
        QTest::newRow("ATS runs without Steam") << QStringList{u"amtrucks.exe"_s} << true << QString();
    }

    void launchMode()
    {
        QFETCH(QStringList, running);
        QFETCH(bool, compatibilityChanged);
        QFETCH(QString, mode);
        BottleProcessSnapshot snapshot;
        snapshot.executables = QSet<QString>(running.cbegin(), running.cend());
        const std::optional<BottleLaunchMode> chosen = BottleLaunchMode::normal(snapshot, compatibilityChanged);
        QCOMPARE(chosen ? chosen->rawValue() : QString(), mode);
    }

    void probe_data()
    {
        QTest::addColumn<QJsonObject>("scenario");
        QTest::addColumn<QStringList>("running"); // Windows paths recorded in the bottle
        QTest::addColumn<double>("timeout");
        QTest::addColumn<QString>("error");       // empty: a snapshot
        QTest::addColumn<QStringList>("expected"); // executables beside Wine's own

        QTest::newRow("Steam and the game run")
            << QJsonObject()
            << QStringList{u"C:\\Program Files (x86)\\Steam\\steam.exe"_s, u"Z:\\games\\EuroTrucks2.exe"_s}
            << 10.0 << QString() << QStringList{u"eurotrucks2.exe"_s, u"steam.exe"_s};
        QTest::newRow("exit status 1 with a valid listing")
            << QJsonObject{{u"winedbg"_s, u"failure"_s}} << QStringList{u"C:\\steam.exe"_s} << 10.0 << u"failed"_s
            << QStringList();
        QTest::newRow("error message instead of a listing")
            << QJsonObject{{u"winedbg"_s, u"garbage"_s}} << QStringList() << 10.0 << u"unrecognizedOutput"_s
            << QStringList();
        QTest::newRow("listing that is not UTF-8") << QJsonObject{{u"winedbg"_s, u"notUtf8"_s}} << QStringList()
                                                   << 10.0 << u"system"_s << QStringList();
        QTest::newRow("debugger hangs and ignores SIGTERM")
            << QJsonObject{{u"winedbg"_s, u"hangIgnoringTerm"_s}} << QStringList() << 0.5 << u"timedOut"_s
            << QStringList();
    }

    void probe()
    {
        QFETCH(QJsonObject, scenario);
        QFETCH(QStringList, running);
        QFETCH(double, timeout);
        QFETCH(QString, error);
        QFETCH(QStringList, expected);
        m_sandbox->writeScenario(scenario);
        m_sandbox->setRunning(m_bottle, running);
        const qsizetype callsBefore = m_sandbox->calls(u"wine"_s).size();

        QMap<QString, QString> environment = m_sandbox->bottleEnvironment(m_bottle);
        environment.insert(u"WINEDLLOVERRIDES"_s, u"gameoverlayrenderer64.dll=d"_s);
        QElapsedTimer clock;
        clock.start();
        QString thrown;
        QStringList found;
        try {
            found = namesOf(WineProcessProbe::read(m_sandbox->winePath(), environment, timeout));
        } catch (WineProcessProbeError probeError) {
            thrown = errorName(probeError);
        } catch (const WineProcessProbe::SystemError &) {
            thrown = u"system"_s;
        }
        QCOMPARE(thrown, error);
        if (error.isEmpty())
            QCOMPARE(found, sorted(expected + wineServices));
        if (error == "timedOut"_L1)
            QVERIFY2(clock.elapsed() < 5000, "the time-out was not kept");

        const QList<QJsonObject> calls = m_sandbox->calls(u"wine"_s);
        QCOMPARE(calls.size(), callsBefore + 1);
        const QJsonObject call = calls.last();
        QCOMPARE(call.value(u"argv"_s).toVariant().toStringList(),
                 (QStringList{m_sandbox->winePath(), u"winedbg"_s, u"--command"_s, u"info process"_s}));
        const QJsonObject env = call.value(u"env"_s).toObject();
        QCOMPARE(env.value(u"WINEDLLOVERRIDES"_s).toString(), u"winex11.drv="_s);
        QCOMPARE(env.value(u"WINEPREFIX"_s).toString(), m_bottle);
        QVERIFY2(!env.contains(u"PATH"_s), "the probe added to the environment it was given");
        QCOMPARE(call.value(u"stdin"_s).toString(), u"null"_s);
        QCOMPARE(call.value(u"stdout"_s).toString(), u"file"_s);
        QCOMPARE(call.value(u"stderr"_s).toString(), u"null"_s);
        QVERIFY2(processGone(call.value(u"pid"_s).toInteger()), "the debugger outlived the probe");
        QCOMPARE(probeFolders(), QStringList());
    }

    void probeOutputIsPrivate()
    {
        // The listing names the user's programs: while the debugger writes it, only the user
        // may read the folder and the file.
        m_sandbox->writeScenario({{u"winedbg"_s, u"hang"_s}});
        m_sandbox->setRunning(m_bottle, {});
        QFuture<void> probe = QtConcurrent::run([this] {
            try {
                WineProcessProbe::read(m_sandbox->winePath(), m_sandbox->bottleEnvironment(m_bottle), 2);
            } catch (...) {
            }
        });
        QTRY_COMPARE(probeFolders().size(), 1);
        const QString folder = QDir::tempPath() + u'/' + probeFolders().constFirst();
        QCOMPARE(modeOf(folder), mode_t(0700));
        QTRY_VERIFY(QFileInfo::exists(folder + u"/processes.txt"_s));
        QCOMPARE(modeOf(folder + u"/processes.txt"_s), mode_t(0600));
        probe.waitForFinished();
        QCOMPARE(probeFolders(), QStringList());
    }

    void korvanectlProbe_data()
    {
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<QJsonObject>("scenario");
        QTest::addColumn<bool>("restartPending");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("mode");  // with exit code 0
        QTest::addColumn<QString>("error"); // on stderr otherwise

        const QString steam = u"C:\\Program Files (x86)\\Steam\\steam.exe"_s;
        const QStringList json{u"probe"_s, u"--json"_s};
        QTest::newRow("cold start")
            << QStringList() << QJsonObject() << true << json << 0 << u"coldStart"_s << QString();
        QTest::newRow("reuse Steam") << QStringList{steam} << QJsonObject() << false << json << 0 << u"reuseSteam"_s
                                     << QString();
        QTest::newRow("profile change") << QStringList{steam} << QJsonObject() << true << json << 0
                                        << u"profileChange"_s << QString();
        QTest::newRow("a game runs") << QStringList{steam, u"C:\\ATS\\bin\\win_x64\\amtrucks.exe"_s}
                                     << QJsonObject() << false << json << 0 << u"none"_s << QString();
        QTest::newRow("debugger fails") << QStringList() << QJsonObject{{u"winedbg"_s, u"failure"_s}} << false << json
                                        << 1 << QString() << u"ended with an error"_s;
        QTest::newRow("debugger hangs past the time-out")
            << QStringList() << QJsonObject{{u"winedbg"_s, u"hang"_s}} << false
            << QStringList{u"probe"_s, u"--json"_s, u"--timeout"_s, u"0.5"_s} << 1 << QString()
            << u"did not answer in time"_s;
        QTest::newRow("time-out that is no number")
            << QStringList() << QJsonObject() << false << QStringList{u"probe"_s, u"--timeout"_s, u"soon"_s} << 2
            << QString() << u"usage"_s;
    }

    void korvanectlProbe()
    {
        QFETCH(QStringList, running);
        QFETCH(QJsonObject, scenario);
        QFETCH(bool, restartPending);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, mode);
        QFETCH(QString, error);
        m_sandbox->writeScenario(scenario);
        m_sandbox->setRunning(m_bottle, running);
        const QByteArray bottlePath = QFileInfo(m_bottle).canonicalFilePath().toUtf8();
        const QByteArray digest = QCryptographicHash::hash(bottlePath, QCryptographicHash::Sha256).toHex();
        const QString digits = QString::fromLatin1(digest);
        const QString marker =
            m_home.root() + u"/data/Korvane Mac Launcher/Profiles/"_s + digits + u".restart-required"_s;
        QFile::remove(marker);
        // A file without the profile would need a restart too; only the marker decides here.
        const QString configuration = BottleConfiguration::configurationPath(m_bottle);
        BottleTree::touch(configuration, false, BottleConfiguration::check(m_bottle).update.text.toUtf8());
        if (restartPending)
            BottleTree::touch(marker, false, "pending\n");
        const qsizetype callsBefore = m_sandbox->calls(u"wine"_s).size();

        const CliResult result = runKorvanectl(m_home, arguments, {}, m_sandbox->environment());
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(probeFolders(), QStringList());
        if (exitCode == 2) {
            QVERIFY2(result.err.contains(error), qPrintable(result.err));
            QCOMPARE(m_sandbox->calls(u"wine"_s).size(), callsBefore);
            return;
        }
        const QJsonObject call = m_sandbox->calls(u"wine"_s).constLast();
        const QJsonObject environment = call.value(u"env"_s).toObject();
        QCOMPARE(environment.value(u"WINEPREFIX"_s).toString(), m_bottle);
        QCOMPARE(environment.value(u"HOME"_s).toString(), m_home.paths.home);
        QVERIFY(!environment.contains(u"WINEMSYNC"_s) && !environment.contains(u"CX_GRAPHICS_BACKEND"_s));
        QVERIFY(!environment.contains(u"KORVANE_RESOURCES_DIR"_s)); // built from scratch, not inherited
        if (exitCode != 0) {
            QVERIFY2(result.err.contains(error), qPrintable(result.err));
            QCOMPARE(result.out, QString());
            QVERIFY(processGone(call.value(u"pid"_s).toInteger()));
            return;
        }
        const QJsonObject answer = QJsonDocument::fromJson(result.out.toUtf8()).object();
        QCOMPARE(answer.value(u"mode"_s).toString(), mode);
        const QStringList executables = answer.value(u"executables"_s).toVariant().toStringList();
        QCOMPARE(executables, sorted(executables));
        QCOMPARE(executables.contains(u"steam.exe"_s),
                 running.contains(u"C:\\Program Files (x86)\\Steam\\steam.exe"_s));
        QVERIFY(executables.contains(u"winedbg.exe"_s));
    }

    void wineThatCannotStart()
    {
        QVERIFY_THROWS_EXCEPTION(WineProcessProbe::SystemError,
                                 WineProcessProbe::read(m_home.root() + u"/no-crossover/bin/wine"_s,
                                                        m_sandbox->bottleEnvironment(m_bottle), 2));
        QCOMPARE(probeFolders(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestProcessProbe)
#include "tst_processprobe.moc"
