#include "platform/filepanels_fake.h"
#include "preferences/l10n.h"
#include "sessions/failurereport.h"
#include "sessions/playsession.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
const QUuid sampleId = QUuid::fromString(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s);

QDateTime utc(int hour, int minute, int second, int ms = 0)
{
    return QDateTime(QDate(2026, 1, 1), QTime(hour, minute, second, ms), Qt::UTC);
}
} // namespace

class TestSessionRecords : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sessionStoredForm_data()
    {
        QTest::addColumn<PlaySession>("session");
        QTest::addColumn<QByteArray>("json");

        // 2026-01-01T12:00:00Z is 788,961,600 seconds after 2001-01-01T00:00:00Z.
        PlaySession open{sampleId, u"Euro Truck Simulator 2"_s, utc(12, 0, 0), {}, {}, LaunchStage::checking, 0, 0};
        QTest::newRow("open session leaves loaded and ended out")
            << open
            << QByteArray(R"json({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","game":"Euro Truck Simulator 2","started":788961600,)json"
                          R"json("stage":"checking","retries":0,"errors":0})json");
        PlaySession closed{sampleId, u"American Truck Simulator"_s, utc(12, 0, 0, 500), utc(12, 1, 30), utc(13, 0, 0),
                           LaunchStage::finished, 2, 3};
        QTest::newRow("finished session with fractions")
            << closed
            << QByteArray(R"json({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","game":"American Truck Simulator","started":788961600.5,)json"
                          R"json("loaded":788961690,"ended":788965200,"stage":"finished","retries":2,"errors":3})json");
    }

    void sessionStoredForm()
    {
        QFETCH(PlaySession, session);
        QFETCH(QByteArray, json);
        QCOMPARE(session.toJson().value_or(QByteArray()), json);
        QCOMPARE(PlaySession::fromJson(json), std::optional<PlaySession>(session));
    }

    void sessionDecoding_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("readable");
        const QByteArray base = R"json("game":"Euro Truck Simulator 2","started":1.25,"stage":"steam","retries":0,"errors":1)json";
        const QByteArray id = R"json("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)json";
        QTest::newRow("lower-case identifier") << R"json({"id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f",)json" + base + "}" << true;
        QTest::newRow("null loaded counts as absent") << "{" + id + base + R"json(,"loaded":null})json" << true;
        QTest::newRow("unknown stage") << "{" + id + QByteArray(base).replace("steam", "Steam") + "}" << false;
        QTest::newRow("missing retries") << "{" + id + QByteArray(base).replace(R"json("retries":0,)json", "") + "}" << false;
        QTest::newRow("fractional errors") << "{" + id + QByteArray(base).replace(R"json("errors":1)json", R"json("errors":1.5)json") + "}" << false;
        QTest::newRow("date as text") << "{" + id + QByteArray(base).replace("1.25", "\"1.25\"") + "}" << false;
        QTest::newRow("loaded as text") << "{" + id + base + R"json(,"loaded":"soon"})json" << false;
        QTest::newRow("identifier with braces") << R"json({"id":"{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",)json" + base + "}" << false;
        QTest::newRow("missing identifier") << "{" + base + "}" << false;
        QTest::newRow("date beyond any calendar") << "{" + id + QByteArray(base).replace("1.25", "1e300") + "}" << false;
    }

    void sessionDecoding()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, readable);
        QCOMPARE(PlaySession::fromJson(json).has_value(), readable);
    }

    void historyIsAllOrNothing()
    {
        PlaySession session{sampleId, u"Euro Truck Simulator 2"_s, utc(12, 0, 0), {}, utc(12, 5, 0), LaunchStage::cancelled, 0, 0};
        const QByteArray list = PlaySession::listToJson({session, session}).value_or(QByteArray());
        QCOMPARE(PlaySession::listFromJson(list).value_or(QList<PlaySession>()).size(), 2);
        QCOMPARE(PlaySession::listToJson({}).value_or(QByteArray()), QByteArray("[]"));
        const QByteArray damaged = QByteArray(list).replace("cancelled", "aborted");
        QVERIFY(!PlaySession::listFromJson(damaged).has_value());
    }

    void durations_data()
    {
        QTest::addColumn<std::optional<QDateTime>>("loaded");
        QTest::addColumn<std::optional<QDateTime>>("ended");
        QTest::addColumn<LaunchStage>("stage");
        QTest::addColumn<std::optional<qint64>>("startup");
        QTest::addColumn<std::optional<qint64>>("play");

        using Date = std::optional<QDateTime>;
        using Seconds = std::optional<qint64>;
        QTest::newRow("never loaded") << Date() << Date(utc(12, 9, 0)) << LaunchStage(LaunchStage::failed) << Seconds() << Seconds();
        QTest::newRow("loaded and finished, truncated") << Date(utc(12, 1, 30, 999)) << Date(utc(12, 11, 30, 500))
                                                        << LaunchStage(LaunchStage::finished) << Seconds(90) << Seconds(599);
        QTest::newRow("still playing counts to now") << Date(utc(12, 2, 0)) << Date() << LaunchStage(LaunchStage::playing)
                                                     << Seconds(120) << Seconds(3480);
        QTest::newRow("interrupted has no play time") << Date(utc(12, 2, 0)) << Date(utc(14, 0, 0))
                                                      << LaunchStage(LaunchStage::interrupted) << Seconds(120) << Seconds();
        QTest::newRow("clock went backwards") << Date(utc(11, 59, 0)) << Date(utc(11, 58, 0)) << LaunchStage(LaunchStage::finished)
                                              << Seconds(0) << Seconds(0);
    }

    void durations()
    {
        QFETCH(std::optional<QDateTime>, loaded);
        QFETCH(std::optional<QDateTime>, ended);
        QFETCH(LaunchStage, stage);
        QFETCH(std::optional<qint64>, startup);
        QFETCH(std::optional<qint64>, play);
        const PlaySession session{sampleId, u"Euro Truck Simulator 2"_s, utc(12, 0, 0), loaded, ended, stage, 0, 0};
        QCOMPARE(session.startupSeconds(), startup);
        QCOMPARE(session.playSeconds(utc(13, 0, 0)), play);
    }

    void reportText_data()
    {
        QTest::addColumn<QVariantMap>("bundle");
        QTest::addColumn<QString>("log");
        QTest::addColumn<QString>("expected");
        const QString header = u"Korvane Mac Launcher \u2014 failure report\nVersion: %1\nGame: American Truck Simulator\n"
                               u"Stage: starting\nReason: exit_3\nRetries: 2\nmacOS: Version 14.4 (Build 23E214)\n"
                               u"Graphics: D3DMetal + MSync / DX11\n\n--- Current attempt log (bounded, redacted) ---\n"_s;
        const QVariantMap bundle{{u"CFBundleShortVersionString"_s, u"1.4.0"_s}};
        QTest::newRow("empty log ends with the heading") << bundle << QString() << header.arg(u"1.4.0"_s);
        QTest::newRow("log kept without a final line break")
            << bundle << u"Starting game\nexit 3"_s << header.arg(u"1.4.0"_s) + u"Starting game\nexit 3"_s;
        QTest::newRow("no version: development") << QVariantMap() << QString() << header.arg(u"development"_s);
        QTest::newRow("version that is no text: development") << QVariantMap{{u"CFBundleShortVersionString"_s, 14}}
                                                              << QString() << header.arg(u"development"_s);
        QTest::newRow("log redacted, header not cut by it")
            << bundle << u"Loading /Users/anna/x\nplayer name=Anna"_s
            << header.arg(u"1.4.0"_s) + u"Loading [PATH]\n[REDACTED: potentially identifying line]"_s;
    }

    void reportText()
    {
        QFETCH(QVariantMap, bundle);
        QFETCH(QString, log);
        QFETCH(QString, expected);
        const PlaySession session{sampleId, u"American Truck Simulator"_s, utc(12, 0, 0), {}, {}, LaunchStage::starting, 2, 3};
        const FailureReport::Environment environment{u"/Users/anna"_s, bundle, u"Version 14.4 (Build 23E214)"_s};
        const FailureReport report = FailureReport::make(session, u"exit_3"_s, log, environment, utc(12, 30, 0));
        QCOMPARE(report.text, expected);
        QCOMPARE(report.date, utc(12, 30, 0));
        QVERIFY(!report.id.isNull());
    }

    void reportStoredForm()
    {
        const FailureReport report{sampleId, utc(12, 0, 0, 250), u"Euro Truck Simulator 2"_s, LaunchStage::steam,
                                   u"unexpected"_s, u"line \"one\"\nline two"_s};
        const QByteArray json = report.toJson().value_or(QByteArray());
        QCOMPARE(json, QByteArray(R"json({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","date":788961600.25,"game":"Euro Truck Simulator 2",)json"
                                  "\"stage\":\"steam\",\"reason\":\"unexpected\",\"text\":\"line \\\"one\\\"\\nline two\"}"));
        QCOMPARE(FailureReport::fromJson(json), std::optional<FailureReport>(report));
        for (const char *key : {"\"id\"", "\"date\"", "\"game\"", "\"stage\"", "\"reason\"", "\"text\""}) {
            const QByteArray renamed = QByteArray(json).replace(key, "\"other\"");
            QVERIFY2(!FailureReport::fromJson(renamed).has_value(), key);
        }
    }

    void reportExport_data()
    {
        QTest::addColumn<std::optional<QString>>("destination");
        QTest::addColumn<std::optional<QString>>("resultKey");
        using Text = std::optional<QString>;
        QTest::newRow("saved") << Text(u"Korvane-Failure.zip"_s) << Text(u"diagnostics.saved"_s);
        QTest::newRow("folder missing") << Text(u"gone/Korvane-Failure.zip"_s) << Text(u"diagnostics.failed"_s);
        QTest::newRow("cancelled") << Text() << Text();
    }

    void reportExport()
    {
        QFETCH(std::optional<QString>, destination);
        QFETCH(std::optional<QString>, resultKey);
        QTemporaryDir dir;
        FakeFilePanels panels;
        const QString chosen = destination ? dir.filePath(*destination) : QString();
        if (destination)
            panels.answers = {chosen};
        const QString edited = u"Korvane Mac Launcher \u2014 failure report\nedited by the user"_s;

        const auto result = FailureReport::exportText(edited, panels, dir.path());

        QCOMPARE(panels.saveRequests(), QStringList{u"Korvane-Failure.zip|zip"_s});
        QCOMPARE(result.has_value(), resultKey.has_value());
        if (resultKey)
            QCOMPARE(result->key, *resultKey);
        QProcess unzip;
        unzip.start(u"unzip"_s, {u"-p"_s, chosen, u"Diagnostics/report.txt"_s});
        QVERIFY(unzip.waitForFinished(60000));
        QCOMPARE(unzip.exitCode() == 0, resultKey == u"diagnostics.saved"_s);
        if (unzip.exitCode() == 0)
            QCOMPARE(QString::fromUtf8(unzip.readAllStandardOutput()), edited);
    }
};

QTEST_GUILESS_MAIN(TestSessionRecords)
#include "tst_sessionrecords.moc"
