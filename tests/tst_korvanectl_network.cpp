#include "servers/serverlistmodel.h"
#include "sessions/reportdelivery.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

const QByteArray serverList = R"({"error":"false","response":[
    {"id":7,"game":"ATS","name":"Arcade","online":true,"players":150,"queue":3,"maxplayers":100},
    {"id":5,"game":"ETS2","name":"Simulation 1","online":true,"players":40,"queue":0,"maxplayers":80,"displayorder":1},
    {"id":9,"game":"ATS","name":"Event","online":false,"players":0,"queue":0,"maxplayers":0,"displayorder":2}]})";

} // namespace

class TestKorvanectlNetwork : public QObject {
    Q_OBJECT

private:
    // korvanectl as a real child process, pointed at the local service and a test home. The
    // wait keeps the event loop turning: the server answering it lives in this process.
    Run korvanectl(const TestHome &home, const LocalHttpsServer &service, const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOME"_s, home.paths.home);
        environment.insert(u"XDG_CONFIG_HOME"_s, home.root() + u"/config"_s);
        environment.insert(u"XDG_DATA_HOME"_s, home.root() + u"/data"_s);
        environment.insert(u"KORVANE_API_URL"_s, service.url().toString());
        environment.insert(u"KORVANE_REPORT_URL"_s, service.url(u"/korvane/api/reports"_s).toString());
        environment.insert(u"KORVANE_CA_FILE"_s, LocalHttpsServer::certificatePath());
        process.setProcessEnvironment(environment);
        QSignalSpy finished(&process, &QProcess::finished);
        process.start(qEnvironmentVariable("KVN_KORVANECTL"), arguments);
        if (!finished.wait(60'000))
            return {};
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }

    static void storeInHome(const TestHome &home, const QString &key, const QVariant &value)
    {
        JsonUserDefaults(home.root() + u"/config/korvane-launcher/defaults.json"_s).setObject(key, value);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("KVN_KORVANECTL"), "run through CTest, which names korvanectl");
    }

    void serversAsJson_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("storedGame");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("the stored game by default")
            << QStringList{u"servers"_s, u"--json"_s} << u"American Truck Simulator"_s
            << QByteArray(R"([{"id":9,"game":"ATS","name":"Event","online":false,"players":0,"queue":0,
                "maxplayers":0,"displayorder":2,"occupancy":0,"favorite":false},
                {"id":7,"game":"ATS","name":"Arcade","online":true,"players":150,"queue":3,"maxplayers":100,
                "displayorder":null,"occupancy":1,"favorite":true}])");
        QTest::newRow("the game asked for")
            << QStringList{u"servers"_s, u"--game"_s, u"ets2"_s, u"--json"_s} << u"American Truck Simulator"_s
            << QByteArray(R"([{"id":5,"game":"ETS2","name":"Simulation 1","online":true,"players":40,"queue":0,
                "maxplayers":80,"displayorder":1,"occupancy":0.5,"favorite":false}])");
        QTest::newRow("ETS2 without a stored game")
            << QStringList{u"servers"_s, u"--json"_s} << QString()
            << QByteArray(R"([{"id":5,"game":"ETS2","name":"Simulation 1","online":true,"players":40,"queue":0,
                "maxplayers":80,"displayorder":1,"occupancy":0.5,"favorite":false}])");
    }

    void serversAsJson()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, storedGame);
        QFETCH(QByteArray, expected);
        TestHome home;
        LocalHttpsServer service;
        service.respond(u"/v2/servers"_s, ScriptedResponse::json(serverList));
        if (!storedGame.isEmpty())
            storeInHome(home, u"game"_s, storedGame);
        storeInHome(home, ServerListModel::favoritesKey, QVariantList{7});

        const Run run = korvanectl(home, service, arguments);
        QVERIFY2(run.exitCode == 0, run.err.constData());
        QCOMPARE(QJsonDocument::fromJson(run.out), QJsonDocument::fromJson(expected));
    }

    void serversFailure_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::newRow("status 500") << ScriptedResponse::json(serverList, 500);
        QTest::newRow("error flag set") << ScriptedResponse::json(R"({"error":true,"response":[]})");
    }

    void serversFailure()
    {
        QFETCH(ScriptedResponse, response);
        TestHome home;
        LocalHttpsServer service;
        service.respond(u"/v2/servers"_s, response);
        const Run run = korvanectl(home, service, {u"servers"_s});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QVERIFY2(run.err.count('\n') == 1, run.err.constData());
        QVERIFY(run.err.startsWith("korvanectl: "));
    }

    void favoriteTogglesAndPersists()
    {
        TestHome home;
        LocalHttpsServer service;
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"12"_s}).out, "12\n");
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"3"_s}).out, "3\n12\n");
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"12"_s}).out, "3\n");
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"twelve"_s}).exitCode, 2);
        QVERIFY(service.requests().isEmpty());
    }

    void compatAsJson()
    {
        TestHome home;
        LocalHttpsServer service;
        service.respond(u"/v2/version"_s, ScriptedResponse::json(
                                              R"({"supported_game_version":"1.53.3.14s","supported_ats_game_version":"1.53"})"));
        const QString executable = home.paths.home + u"/amtrucks.exe"_s;
        QVERIFY(writeFakeGameExecutable(executable, {1, 52, 0, 1}));

        const Run run = korvanectl(home, service, {u"compat"_s, u"--game"_s, u"ats"_s, u"--exe"_s, executable, u"--json"_s});
        QVERIFY2(run.exitCode == 0, run.err.constData());
        QCOMPARE(QJsonDocument::fromJson(run.out).object(),
                 (QJsonObject{{u"state"_s, u"mismatch"_s}, {u"installed"_s, u"1.52.0.1"_s}, {u"supported"_s, u"1.53"_s}}));
        // Without --exe: the selected game's executable, here in no bottle at all, so unknown.
        const Run selected = korvanectl(home, service, {u"compat"_s, u"--json"_s});
        QVERIFY2(selected.exitCode == 0, selected.err.constData());
        const QJsonObject unknown = QJsonDocument::fromJson(selected.out).object();
        QCOMPARE(unknown.value(u"state"_s).toString(), u"unknown"_s);
        QVERIFY(unknown.value(u"installed"_s).isNull());
        // Another game's executable is not derived from the selection: it must be named.
        const Run other = korvanectl(home, service, {u"compat"_s, u"--game"_s, u"ats"_s});
        QCOMPARE(other.exitCode, 2);
        QVERIFY(other.err.contains("--exe"));
    }

    void reportSendWithDeliveryOffSendsNothing()
    {
        if (ReportDelivery::enabled(BundleInfo::compiledIn()))
            QSKIP("this build is configured with report delivery on");
        TestHome home;
        LocalHttpsServer service;
        const QString report = home.root() + u"/report.txt"_s;
        QFile file(report);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("Korvane Mac Launcher — failure report\n");
        file.close();

        const Run run = korvanectl(home, service, {u"report-send"_s, u"--id"_s,
                                                   u"6f1c2a3b-4d5e-4f60-8172-93a4b5c6d7e8"_s, report});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains("not sent"));
        QVERIFY(service.requests().isEmpty());
        QCOMPARE(korvanectl(home, service, {u"report-send"_s, u"--id"_s, u"not-a-uuid"_s, report}).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlNetwork)
#include "tst_korvanectl_network.moc"
