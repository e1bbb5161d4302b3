#include "servers/serverlistmodel.h"
#include "sessions/reportdelivery.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/korvanectl.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray serverList = R"({"error":"false","response":[
    {"id":7,"game":"ATS","name":"Arcade","online":true,"players":150,"queue":3,"maxplayers":100},
    {"id":5,"game":"ETS2","name":"Simulation 1","online":true,"players":40,"queue":0,"maxplayers":80,"displayorder":1},
    {"id":9,"game":"ATS","name":"Event","online":false,"players":0,"queue":0,"maxplayers":0,"displayorder":2}]})";

// korvanectl pointed at the local service. runKorvanectl blocks this thread while the child
// runs, so the service answers from a thread of its own meanwhile and comes back afterwards.
CliResult korvanectl(const TestHome &home, LocalHttpsServer &service, const QStringList &arguments)
{
    QProcessEnvironment environment;
    environment.insert(u"KORVANE_API_URL"_s, service.url().toString());
    environment.insert(u"KORVANE_REPORT_URL"_s, service.url(u"/korvane/api/reports"_s).toString());
    environment.insert(u"KORVANE_CA_FILE"_s, LocalHttpsServer::certificatePath());
    QThread thread;
    service.moveToThread(&thread);
    thread.start();
    const CliResult result = runKorvanectl(home, arguments, {}, environment);
    QThread *const testThread = QThread::currentThread();
    QMetaObject::invokeMethod(&service, [&] { service.moveToThread(testThread); }, Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
    return result;
}

void storeInHome(const TestHome &home, const QString &key, const QVariant &value)
{
    JsonUserDefaults(korvanectlDefaultsPath(home)).setObject(key, value);
}

} // namespace

class TestKorvanectlNetwork : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void serversAsJson_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("storedGame");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray ets2 = R"([{"id":5,"game":"ETS2","name":"Simulation 1","online":true,"players":40,"queue":0,
            "maxplayers":80,"displayorder":1,"occupancy":0.5,"favorite":false}])";
        // Every member the service sent comes out decoded, with the occupancy derived from it:
        // none without capacity, a half, and capped at full.
        QTest::newRow("the stored game by default")
            << QStringList{u"servers"_s, u"--json"_s} << u"American Truck Simulator"_s
            << QByteArray(R"([{"id":9,"game":"ATS","name":"Event","online":false,"players":0,"queue":0,
                "maxplayers":0,"displayorder":2,"occupancy":0,"favorite":false},
                {"id":7,"game":"ATS","name":"Arcade","online":true,"players":150,"queue":3,"maxplayers":100,
                "displayorder":null,"occupancy":1,"favorite":true}])");
        QTest::newRow("the game asked for") << QStringList{u"servers"_s, u"--game"_s, u"ets2"_s, u"--json"_s}
                                            << u"American Truck Simulator"_s << ets2;
        QTest::newRow("ETS2 without a stored game") << QStringList{u"servers"_s, u"--json"_s} << QString() << ets2;
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

        const CliResult run = korvanectl(home, service, arguments);
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QCOMPARE(QJsonDocument::fromJson(run.out.toUtf8()), QJsonDocument::fromJson(expected));
    }

    void serversFailure()
    {
        TestHome home;
        LocalHttpsServer service;
        service.respond(u"/v2/servers"_s, ScriptedResponse::json(serverList, 500));
        const CliResult run = korvanectl(home, service, {u"servers"_s});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QVERIFY2(run.err.count(u'\n') == 1 && run.err.startsWith(u"korvanectl: "_s), qPrintable(run.err));
        QCOMPARE(service.requestCount(u"/v2/servers"_s), 1);
    }

    void favoriteTogglesAndPersists()
    {
        TestHome home;
        LocalHttpsServer service;
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"12"_s}).out, u"12\n"_s);
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"3"_s}).out, u"3\n12\n"_s);
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"12"_s}).out, u"3\n"_s);
        QCOMPARE(korvanectl(home, service, {u"favorite"_s, u"twelve"_s}).exitCode, 2);
        QVERIFY(service.requests().isEmpty());
    }

    void compatAsJson()
    {
        TestHome home;
        LocalHttpsServer service;
        service.respond(u"/v2/version"_s, ScriptedResponse::json(R"({"supported_game_version":"1.53.3.14s",
                                                                       "supported_ats_game_version":"1.53"})"));
        const QString executable = home.paths.home + u"/amtrucks.exe"_s;
        QVERIFY(writeFakeGameExecutable(executable, {1, 52, 0, 1}));

        const CliResult run =
            korvanectl(home, service, {u"compat"_s, u"--game"_s, u"ats"_s, u"--exe"_s, executable, u"--json"_s});
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QCOMPARE(QJsonDocument::fromJson(run.out.toUtf8()).object(),
                 (QJsonObject{{u"state"_s, u"mismatch"_s}, {u"installed"_s, u"1.52.0.1"_s},
                              {u"supported"_s, u"1.53"_s}}));
        // Without --exe: the selected game's executable, here in no bottle at all, so unknown.
        const CliResult selected = korvanectl(home, service, {u"compat"_s, u"--json"_s});
        QVERIFY2(selected.exitCode == 0, qPrintable(selected.err));
        const QJsonObject unknown = QJsonDocument::fromJson(selected.out.toUtf8()).object();
        QCOMPARE(unknown.value(u"state"_s).toString(), u"unknown"_s);
        QVERIFY(unknown.value(u"installed"_s).isNull());
        // Another game's executable is not derived from the selection: it must be named.
        const CliResult other = korvanectl(home, service, {u"compat"_s, u"--game"_s, u"ats"_s});
        QCOMPARE(other.exitCode, 2);
        QVERIFY(other.err.contains(u"--exe"_s));
        QCOMPARE(service.requestCount(u"/v2/version"_s), 2);
    }

    void reportSendWithDeliveryOffSendsNothing()
    {
        if (ReportDelivery::enabled(BundleInfo::compiledIn()))
            QSKIP("this build is configured with report delivery on");
        TestHome home;
        LocalHttpsServer service;
        const QString report = home.root() + u"/report.txt"_s;
        QFile file(report);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("Korvane Mac Launcher — failure report\n") > 0);
        file.close();

        const QString id = u"6f1c2a3b-4d5e-4f60-8172-93a4b5c6d7e8"_s;
        const CliResult run = korvanectl(home, service, {u"report-send"_s, u"--id"_s, id, report});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains(u"not sent"_s));
        QCOMPARE(korvanectl(home, service, {u"report-send"_s, u"--id"_s, u"not-a-uuid"_s, report}).exitCode, 2);
        QVERIFY(service.requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlNetwork)
#include "tst_korvanectl_network.moc"
