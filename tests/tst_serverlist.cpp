#include "platform/clock_fake.h"
#include "platform/urlerror.h"
#include "servers/serverlistmodel.h"
#include "servers/serverredirectpolicy.h"
#include "support/httpsserver.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

QJsonObject server(qint64 id, const QString &game = u"ETS2"_s, std::optional<qint64> displayorder = std::nullopt)
{
    QJsonObject object{{u"id"_s, id},           {u"game"_s, game},   {u"name"_s, u"Server %1"_s.arg(id)},
                       {u"online"_s, true},     {u"players"_s, 10},  {u"queue"_s, 0},
                       {u"maxplayers"_s, 100}};
    if (displayorder)
        object.insert(u"displayorder"_s, *displayorder);
    return object;
}

QByteArray answer(const QJsonArray &servers, const QJsonValue &error = false)
{
    QJsonObject envelope{{u"response"_s, servers}};
    if (!error.isUndefined())
        envelope.insert(u"error"_s, error);
    return QJsonDocument(envelope).toJson(QJsonDocument::Compact);
}

QByteArray withServer(const QJsonObject &changes)
{
    QJsonObject object = server(1);
    for (auto it = changes.begin(); it != changes.end(); ++it)
        object.insert(it.key(), it.value());
    return answer({object});
}

QByteArray withoutMember(const QString &key)
{
    QJsonObject object = server(1);
    object.remove(key);
    return answer({object});
}

// A valid answer grown to exactly `size` bytes with trailing white space, which JSON allows.
QByteArray paddedTo(qsizetype size)
{
    QByteArray body = answer({server(1), server(2)});
    return body + QByteArray(size - body.size(), ' ');
}

QList<qint64> idsOf(const QList<TruckServer> &servers)
{
    QList<qint64> ids;
    for (const TruckServer &server : servers)
        ids.append(server.id);
    return ids;
}

QString outcomeOf(const std::function<void()> &action)
{
    try {
        action();
        return u"ok"_s;
    } catch (const UrlError &error) {
        return UrlError::name(error.code());
    } catch (const DecodingError &) {
        return u"decoding"_s;
    }
}

} // namespace

class TestServerList : public QObject {
    Q_OBJECT

private:
    // Runs one accepted refresh to its end.
    void refreshAndWait(ServerListModel &model)
    {
        QSignalSpy loading(&model, &ServerListModel::loadingChanged);
        model.refresh();
        QVERIFY(model.loading());
        QTRY_VERIFY_WITH_TIMEOUT(!model.loading(), 20'000);
    }

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QList<qint64>>("ids");

        QTest::newRow("display order, then id, ascending")
            << answer({server(10, u"ETS2"_s, 3), server(11, u"ATS"_s, 1), server(2)}) << u"ok"_s
            << QList<qint64>{11, 2, 10};
        QTest::newRow("equal display orders keep the order of the answer")
            << answer({server(9, u"ETS2"_s, 5), server(3, u"ETS2"_s, 5), server(4, u"ATS"_s, 5)}) << u"ok"_s
            << QList<qint64>{9, 3, 4};
        QTest::newRow("display order null counts as absent")
            << answer({server(5), server(3, u"ETS2"_s, std::nullopt)}).replace("}]", ",\"displayorder\":null}]")
            << u"ok"_s << QList<qint64>{3, 5};
        QTest::newRow("unknown game codes are dropped, only those")
            << answer({server(1, u"XYZ"_s), server(2, u"ets2"_s), server(3, u"ATS"_s), server(4, u"ETS2"_s)})
            << u"ok"_s << QList<qint64>{3, 4};
        QTest::newRow("extra members are ignored")
            << withServer({{u"ip"_s, u"10.0.0.1"_s}, {u"event"_s, false}}) << u"ok"_s << QList<qint64>{1};
        QTest::newRow("empty list") << answer({}) << u"ok"_s << QList<qint64>{};
        QTest::newRow("ids beyond a double's precision stay exact")
            << answer({server(9'007'199'254'740'993), server(9'007'199'254'740'992)}) << u"ok"_s
            << QList<qint64>{9'007'199'254'740'992, 9'007'199'254'740'993};
        QTest::newRow("an id beyond 64 bits") << QByteArray(R"({"response":[{"id":1e19,"game":"ETS2","name":"n",
            "online":true,"players":0,"queue":0,"maxplayers":0}]})") << u"decoding"_s << QList<qint64>{};

        QTest::newRow("error member false") << answer({server(1)}, false) << u"ok"_s << QList<qint64>{1};
        QTest::newRow("error member absent") << answer({server(1)}, QJsonValue::Undefined) << u"ok"_s
                                             << QList<qint64>{1};
        QTest::newRow("error member null") << answer({server(1)}, QJsonValue::Null) << u"ok"_s << QList<qint64>{1};
        QTest::newRow("error member \"False\"") << answer({server(1)}, u"False"_s) << u"ok"_s << QList<qint64>{1};
        QTest::newRow("error member true") << answer({server(1)}, true) << u"cannotParseResponse"_s
                                           << QList<qint64>{};
        QTest::newRow("error member \"TRUE\"") << answer({server(1)}, u"TRUE"_s) << u"cannotParseResponse"_s
                                               << QList<qint64>{};
        QTest::newRow("error member \"yes\"") << answer({server(1)}, u"yes"_s) << u"cannotParseResponse"_s
                                              << QList<qint64>{};
        QTest::newRow("error member 0") << answer({server(1)}, 0) << u"decoding"_s << QList<qint64>{};

        QTest::newRow("duplicate ids") << answer({server(7), server(8), server(7, u"ATS"_s)})
                                       << u"cannotParseResponse"_s << QList<qint64>{};
        QTest::newRow("negative players") << withServer({{u"players"_s, -1}}) << u"cannotParseResponse"_s
                                          << QList<qint64>{};
        QTest::newRow("negative queue") << withServer({{u"queue"_s, -3}}) << u"cannotParseResponse"_s
                                        << QList<qint64>{};
        QTest::newRow("negative maxplayers") << withServer({{u"maxplayers"_s, -100}}) << u"cannotParseResponse"_s
                                             << QList<qint64>{};
        QJsonObject badUnknownGame = server(2, u"XYZ"_s);
        badUnknownGame.insert(u"players"_s, -5);
        QTest::newRow("a bad server of an unknown game still rejects the answer")
            << answer({server(1), badUnknownGame}) << u"cannotParseResponse"_s << QList<qint64>{};
        QTest::newRow("200-character name") << withServer({{u"name"_s, QString(200, u'n')}})
                                            << u"cannotParseResponse"_s << QList<qint64>{};
        QTest::newRow("199-character name") << withServer({{u"name"_s, QString(199, u'n')}}) << u"ok"_s
                                            << QList<qint64>{1};
        QTest::newRow("199 accented characters made of 398 code units")
            << withServer({{u"name"_s, u"e\u0301"_s.repeated(199)}}) << u"ok"_s << QList<qint64>{1};
        QTest::newRow("200 accented characters made of 400 code units")
            << withServer({{u"name"_s, u"e\u0301"_s.repeated(200)}}) << u"cannotParseResponse"_s << QList<qint64>{};

        QTest::newRow("missing name") << withoutMember(u"name"_s) << u"decoding"_s << QList<qint64>{};
        QTest::newRow("missing maxplayers") << withoutMember(u"maxplayers"_s) << u"decoding"_s << QList<qint64>{};
        QTest::newRow("online as a number") << withServer({{u"online"_s, 1}}) << u"decoding"_s << QList<qint64>{};
        QTest::newRow("id as text") << withServer({{u"id"_s, u"1"_s}}) << u"decoding"_s << QList<qint64>{};
        QTest::newRow("fractional players") << withServer({{u"players"_s, 1.5}}) << u"decoding"_s
                                            << QList<qint64>{};
        QTest::newRow("display order as text") << withServer({{u"displayorder"_s, u"1"_s}}) << u"decoding"_s
                                               << QList<qint64>{};
        QTest::newRow("a server that is not an object") << QByteArray(R"({"response":[1]})") << u"decoding"_s
                                                        << QList<qint64>{};
        QTest::newRow("response missing") << QByteArray(R"({"error":false})") << u"decoding"_s << QList<qint64>{};
        QTest::newRow("response not an array") << QByteArray(R"({"response":{}})") << u"decoding"_s
                                               << QList<qint64>{};
        QTest::newRow("top level array") << QByteArray("[]") << u"decoding"_s << QList<qint64>{};
        QTest::newRow("not JSON") << QByteArray("<html>busy</html>") << u"decoding"_s << QList<qint64>{};
        QTest::newRow("truncated JSON") << answer({server(1)}).chopped(2) << u"decoding"_s << QList<qint64>{};
        QTest::newRow("empty body") << QByteArray() << u"decoding"_s << QList<qint64>{};

        QTest::newRow("exactly at the cap") << paddedTo(2'000'000) << u"ok"_s << QList<qint64>{1, 2};
        QTest::newRow("one byte over the cap") << paddedTo(2'000'001) << u"dataLengthExceedsMaximum"_s
                                               << QList<qint64>{};
    }

    void parse()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, outcome);
        QFETCH(QList<qint64>, ids);
        QList<TruckServer> servers;
        QCOMPARE(outcomeOf([&] { servers = ServerResponse::parse(body); }), outcome);
        QCOMPARE(idsOf(servers), ids);
    }

    void parseKeepsEveryField()
    {
        const QByteArray body = R"({"response":[{"id":42,"game":"ATS","name":"Simulation 1","online":false,
            "players":150,"queue":7,"maxplayers":100,"displayorder":3}]})";
        const QList<TruckServer> servers = ServerResponse::parse(body);
        QCOMPARE(servers.size(), 1);
        QCOMPARE(servers.first(), (TruckServer{42, u"ATS"_s, u"Simulation 1"_s, false, 150, 7, 100, 3}));
    }

    void occupancy_data()
    {
        QTest::addColumn<qint64>("players");
        QTest::addColumn<qint64>("maxplayers");
        QTest::addColumn<double>("occupancy");
        QTest::newRow("no capacity") << qint64(5) << qint64(0) << 0.0;
        QTest::newRow("half full") << qint64(50) << qint64(100) << 0.5;
        QTest::newRow("over capacity is capped") << qint64(150) << qint64(100) << 1.0;
        QTest::newRow("empty") << qint64(0) << qint64(10) << 0.0;
    }

    void occupancy()
    {
        QFETCH(qint64, players);
        QFETCH(qint64, maxplayers);
        QFETCH(double, occupancy);
        TruckServer server;
        server.players = players;
        server.maxplayers = maxplayers;
        QCOMPARE(server.occupancy(), occupancy);
    }

    void redirectPolicy_data()
    {
        QTest::addColumn<QUrl>("target");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("https on the API host") << QUrl(u"https://api.korvane.test/v2/servers"_s) << true;
        QTest::newRow("https on the API host, other port") << QUrl(u"https://api.korvane.test:8443/x"_s) << true;
        QTest::newRow("plain http on the API host") << QUrl(u"http://api.korvane.test/v2/servers"_s) << false;
        QTest::newRow("https on another host") << QUrl(u"https://cdn.korvane.test/v2/servers"_s) << false;
        QTest::newRow("https on a look-alike host") << QUrl(u"https://api.korvane.test.evil.test/"_s) << false;
        QTest::newRow("no host") << QUrl(u"https:///v2/servers"_s) << false;
        QTest::newRow("no URL") << QUrl() << false;
    }

    void redirectPolicy()
    {
        QFETCH(QUrl, target);
        QFETCH(bool, allowed);
        QCOMPARE(ServerRedirectPolicy(u"api.korvane.test"_s).allowsRedirect(target), allowed);
    }

    void refreshAgainstTheService_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QString>("redirectTo"); // {port}: the server's, {plainport}: a plain http one's
        QTest::addColumn<bool>("failed");

        const QByteArray good = answer({server(1), server(2, u"ATS"_s)});
        QTest::newRow("200 with a good list") << ScriptedResponse::json(good) << QString() << false;
        QTest::newRow("200 with malformed JSON") << ScriptedResponse::json("{\"response\":[") << QString() << true;
        QTest::newRow("200 without the response member") << ScriptedResponse::json("{\"error\":false}") << QString() << true;
        QTest::newRow("200 with the error flag \"true\"") << ScriptedResponse::json(answer({server(1)}, u"true"_s))
                                                          << QString() << true;
        QTest::newRow("200 with duplicate ids") << ScriptedResponse::json(answer({server(1), server(1)})) << QString() << true;
        QTest::newRow("304 with valid JSON") << ScriptedResponse::json(good, 304) << QString() << true;
        QTest::newRow("404 with valid JSON") << ScriptedResponse::json(good, 404) << QString() << true;
        QTest::newRow("500 with valid JSON") << ScriptedResponse::json(good, 500) << QString() << true;
        QTest::newRow("redirect to https on the same host")
            << ScriptedResponse() << u"https://127.0.0.1:{port}/v2/moved"_s << false;
        QTest::newRow("redirect to another host")
            << ScriptedResponse() << u"https://localhost:{port}/v2/moved"_s << true;
        QTest::newRow("redirect to plain http")
            << ScriptedResponse() << u"http://127.0.0.1:{plainport}/v2/moved"_s << true;
        QTest::newRow("exactly at the cap") << ScriptedResponse::json(paddedTo(2'000'000)) << QString() << false;
        QTest::newRow("one byte over the cap") << ScriptedResponse::json(paddedTo(2'000'001)) << QString() << true;
        ScriptedResponse stall;
        stall.stall = true;
        QTest::newRow("a server that never answers") << stall << QString() << true;
        ScriptedResponse trickle = ScriptedResponse::json(good + QByteArray(1'000, ' '));
        trickle.trickleIntervalMs = 100;
        trickle.trickleChunk = 8;
        QTest::newRow("an answer that trickles past the whole-transfer limit") << trickle << QString() << true;
    }

    void refreshAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QString, redirectTo);
        QFETCH(bool, failed);
        TestHome home;
        FakeClock clock;
        RedirectTargets targets(ScriptedResponse::json(answer({server(3), server(1)})));
        LocalHttpsServer &service = targets.service;
        QVERIFY(service.isListening() && targets.plain.isListening());
        service.respond(u"/v2/servers"_s, targets.redirectOr(response, redirectTo));

        ServerListModel model(*home.defaults, clock, service.configuration());
        QSignalSpy failedSpy(&model, &ServerListModel::failedChanged);
        refreshAndWait(model);

        QCOMPARE(model.failed(), failed);
        QCOMPARE(model.updated().isValid(), !failed);
        QCOMPARE(model.servers().isEmpty(), failed);
        QCOMPARE(model.isStale(), failed);
        QCOMPARE(failedSpy.size(), failed ? 1 : 0);
        // A redirect the policy declines is never contacted.
        if (failed)
            QCOMPARE(targets.movedRequests(), 0);
        QCOMPARE(service.requestCount(u"/v2/servers"_s), 1);
    }

    void anUnreachableServiceFails()
    {
        TestHome home;
        FakeClock clock;
        LocalHttpsServer service;
        service.close();
        ServerListModel model(*home.defaults, clock, service.configuration());
        refreshAndWait(model);
        QVERIFY(model.failed());
    }

    void refreshSendsAPlainGet()
    {
        TestHome home;
        FakeClock clock;
        LocalHttpsServer service;
        ScriptedResponse withCookie = ScriptedResponse::json(answer({server(1)}));
        withCookie.headers.append({QByteArray("Set-Cookie"), QByteArray("session=abc; Path=/")});
        service.respond(u"/v2/servers"_s, withCookie);
        ServerListModel model(*home.defaults, clock, service.configuration());
        refreshAndWait(model);
        clock.advance(60'000);
        refreshAndWait(model);

        QCOMPARE(service.requests().size(), 2);
        for (const RecordedRequest &request : service.requests()) {
            QCOMPARE(request.method, "GET");
            QCOMPARE(request.path, "/v2/servers");
            QVERIFY(request.body.isEmpty());
            // The session is ephemeral: a cookie the service set is never sent back.
            QVERIFY(request.header("Cookie").isEmpty());
        }
    }

    void throttleAndStaleness()
    {
        TestHome home;
        FakeClock clock;
        LocalHttpsServer service;
        service.respond(u"/v2/servers"_s, ScriptedResponse::json("oops", 500));
        ServerListModel model(*home.defaults, clock, service.configuration());
        QVERIFY(model.isStale());

        refreshAndWait(model); // the first refresh is always accepted
        QVERIFY(model.failed());
        QVERIFY(model.isStale());

        clock.advance(30'000);
        model.refresh(); // dropped, although the list is stale
        QVERIFY(!model.loading());
        clock.advance(29'999);
        model.refresh();
        QVERIFY(!model.loading());
        QCOMPARE(service.requestCount(u"/v2/servers"_s), 1);

        service.respond(u"/v2/servers"_s, ScriptedResponse::json(answer({server(4), server(5)})));
        clock.advance(1);
        refreshAndWait(model);
        QVERIFY(!model.failed());
        QCOMPARE(model.updated(), clock.now());
        QVERIFY(!model.isStale());
        clock.advance(120'000);
        QVERIFY(!model.isStale());
        clock.advance(1);
        QVERIFY(model.isStale());

        // A later failure keeps the list that was fetched before.
        service.respond(u"/v2/servers"_s, ScriptedResponse::json("{}", 404));
        const QDateTime lastSuccess = model.updated();
        refreshAndWait(model);
        QVERIFY(model.failed());
        QCOMPARE(idsOf(model.servers()), (QList<qint64>{4, 5}));
        QCOMPARE(model.updated(), lastSuccess);
    }

    void refreshWhileLoadingAndCancellation()
    {
        TestHome home;
        FakeClock clock;
        LocalHttpsServer service;
        ScriptedResponse stall;
        stall.stall = true;
        service.respond(u"/v2/servers"_s, stall);
        ServerListModel model(*home.defaults, clock, service.configuration());
        QSignalSpy received(&service, &LocalHttpsServer::requestReceived);

        model.refresh();
        QVERIFY(model.loading());
        QVERIFY(received.wait(20'000));
        clock.advance(61'000);
        model.refresh(); // still loading: ignored
        QSignalSpy loading(&model, &ServerListModel::loadingChanged);
        model.cancelRefresh();
        QVERIFY(!model.loading());
        QCOMPARE(loading.size(), 1);
        QVERIFY(!model.failed());
        QVERIFY(!model.updated().isValid());
        QCOMPARE(service.requestCount(u"/v2/servers"_s), 1);
    }

    void loadFavorites_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QList<qint64>>("favorites");
        QTest::newRow("absent") << QVariant() << QList<qint64>{};
        QTest::newRow("non-positive values are dropped")
            << QVariant(QVariantList{5, -1, 0, 7}) << QList<qint64>{5, 7};
        QTest::newRow("an array holding text loads as empty")
            << QVariant(QVariantList{5, u"7"_s}) << QList<qint64>{};
        QTest::newRow("not an array") << QVariant(u"5,7"_s) << QList<qint64>{};
        QVariantList many;
        QList<qint64> firstHundred;
        for (qint64 id = 150; id >= 1; --id) {
            many.append(id);
            if (firstHundred.size() < 100)
                firstHundred.prepend(id);
        }
        QTest::newRow("only the first hundred") << QVariant(many) << firstHundred;
        QVariantList repeated(100, QVariant(3));
        repeated.append(4);
        QTest::newRow("repeats count towards the hundred") << QVariant(repeated) << QList<qint64>{3};
    }

    void loadFavorites()
    {
        QFETCH(QVariant, stored);
        QFETCH(QList<qint64>, favorites);
        TestHome home;
        FakeClock clock;
        if (stored.isValid())
            home.defaults->setObject(ServerListModel::favoritesKey, stored);
        ServerListModel model(*home.defaults, clock, ServiceConfiguration());
        QCOMPARE(model.favoriteList(), favorites);
    }

    void toggleFavorite_data()
    {
        QTest::addColumn<QList<qint64>>("initial");
        QTest::addColumn<qint64>("id");
        QTest::addColumn<QList<qint64>>("expected");
        QTest::addColumn<bool>("written");
        QList<qint64> full;
        for (qint64 id = 1; id <= 100; ++id)
            full.append(id);
        QTest::newRow("adds a new id") << QList<qint64>{9, 3} << qint64(5) << QList<qint64>{3, 5, 9} << true;
        QTest::newRow("removes a known id") << QList<qint64>{9, 3} << qint64(9) << QList<qint64>{3} << true;
        QTest::newRow("zero writes nothing") << QList<qint64>{3} << qint64(0) << QList<qint64>{3} << false;
        QTest::newRow("negative writes nothing") << QList<qint64>{3} << qint64(-4) << QList<qint64>{3} << false;
        QTest::newRow("a full set refuses a new id") << full << qint64(101) << full << true;
        QTest::newRow("a full set still removes") << full << qint64(100) << full.first(99) << true;
    }

    void toggleFavorite()
    {
        QFETCH(QList<qint64>, initial);
        QFETCH(qint64, id);
        QFETCH(QList<qint64>, expected);
        QFETCH(bool, written);
        TestHome home;
        FakeClock clock;
        ServerListModel model(*home.defaults, clock, ServiceConfiguration());
        model.replaceFavorites(initial);
        home.defaults->remove(ServerListModel::favoritesKey);

        model.toggleFavorite(id);
        QCOMPARE(model.favoriteList(), expected);
        QCOMPARE(home.defaults->contains(ServerListModel::favoritesKey), written);
        if (written) {
            ServerListModel reopened(*home.reopenDefaults(), clock, ServiceConfiguration());
            QCOMPARE(reopened.favoriteList(), expected);
        }
    }

    void replaceFavoritesStoresAnAscendingArray()
    {
        TestHome home;
        FakeClock clock;
        ServerListModel model(*home.defaults, clock, ServiceConfiguration());
        QSignalSpy changed(&model, &ServerListModel::favoritesChanged);
        model.replaceFavorites({30, -2, 10, 30, 0, 20});
        QCOMPARE(changed.size(), 1);
        QCOMPARE(home.reopenDefaults()->object(ServerListModel::favoritesKey),
                 QVariant(QVariantList{10LL, 20LL, 30LL}));
    }
};

QTEST_GUILESS_MAIN(TestServerList)
#include "tst_serverlist.moc"
