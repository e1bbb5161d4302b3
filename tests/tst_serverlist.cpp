#include "platform/clock_fake.h"
#include "platform/serverredirectpolicy.h"
#include "servers/serverlistmodel.h"
#include "support/httpsserver.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

using Members = QList<QPair<QString, QJsonValue>>;

// A valid server; `changes` replace its members, and an undefined value removes one.
QJsonObject server(qint64 id, const QString &game = u"ETS2"_s, const Members &changes = {})
{
    QJsonObject object{{u"id"_s, id},       {u"game"_s, game},  {u"name"_s, u"Server %1"_s.arg(id)},
                       {u"online"_s, true}, {u"players"_s, 10}, {u"queue"_s, 0},
                       {u"maxplayers"_s, 100}};
    for (const auto &[key, value] : changes)
        object.insert(key, value);
    return object;
}

QByteArray answer(const QJsonArray &servers, const QJsonValue &error = false)
{
    QJsonObject envelope{{u"response"_s, servers}};
    if (!error.isUndefined())
        envelope.insert(u"error"_s, error);
    return QJsonDocument(envelope).toJson(QJsonDocument::Compact);
}

QByteArray withServer(const Members &changes)
{
    return answer({server(1, u"ETS2"_s, changes)});
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
    std::ranges::transform(servers, std::back_inserter(ids), &TruckServer::id);
    return ids;
}

// Runs one accepted refresh to its end.
void refreshAndWait(ServerListModel &model)
{
    model.refresh();
    QVERIFY(model.loading());
    QTRY_VERIFY_WITH_TIMEOUT(!model.loading(), 20'000);
}

// A model over a fresh home and a local service, whose "/v2/moved" holds a good answer for
// redirects that should not be followed.
struct Rig {
    TestHome home;
    FakeClock clock;
    RedirectTargets targets{ScriptedResponse::json(answer({server(3), server(1)}))};
    LocalHttpsServer &service = targets.service;
    ServerListModel model{*home.defaults, clock, service.configuration()};
};

} // namespace

class TestServerList : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QList<qint64>>("ids");
        const auto row = [](const char *name, const QByteArray &body, const QString &outcome, QList<qint64> ids = {}) {
            QTest::newRow(name) << body << outcome << ids;
        };
        const auto order = [](const QJsonValue &position) { return Members{{u"displayorder"_s, position}}; };
        const QString ok = u"ok"_s, refused = u"cannotParseResponse"_s, decoding = u"decoding"_s;

        row("display order, then id, ascending",
            answer({server(10, u"ETS2"_s, order(3)), server(11, u"ATS"_s, order(1)), server(2)}), ok, {11, 2, 10});
        row("equal display orders keep the order of the answer",
            answer({server(9, u"ETS2"_s, order(5)), server(3, u"ETS2"_s, order(5)), server(4, u"ATS"_s, order(5))}),
            ok, {9, 3, 4});
        row("display order null counts as absent", answer({server(5), server(3, u"ETS2"_s, order(QJsonValue::Null))}),
            ok, {3, 5});
        row("unknown game codes are dropped, only those",
            answer({server(1, u"XYZ"_s), server(2, u"ets2"_s), server(3, u"ATS"_s), server(4)}), ok, {3, 4});
        row("extra members are ignored", withServer({{u"ip"_s, u"10.0.0.1"_s}, {u"event"_s, false}}), ok, {1});
        row("ids beyond a double's precision stay exact",
            answer({server(9'007'199'254'740'993), server(9'007'199'254'740'992)}), ok,
            {9'007'199'254'740'992, 9'007'199'254'740'993});
        row("an id beyond 64 bits", withServer({{u"id"_s, 1e19}}), decoding);

        row("error member absent", answer({server(1)}, QJsonValue::Undefined), ok, {1});
        row("error member null", answer({server(1)}, QJsonValue::Null), ok, {1});
        row("error member \"False\"", answer({server(1)}, u"False"_s), ok, {1});
        row("error member true", answer({server(1)}, true), refused);
        row("error member \"TRUE\"", answer({server(1)}, u"TRUE"_s), refused);
        row("error member \"yes\"", answer({server(1)}, u"yes"_s), refused);
        row("error member 0", answer({server(1)}, 0), decoding);

        row("duplicate ids", answer({server(7), server(8), server(7, u"ATS"_s)}), refused);
        row("negative players", withServer({{u"players"_s, -1}}), refused);
        row("negative queue", withServer({{u"queue"_s, -3}}), refused);
        row("negative maxplayers", withServer({{u"maxplayers"_s, -100}}), refused);
        row("a bad server of an unknown game still rejects the answer",
            answer({server(1), server(2, u"XYZ"_s, {{u"players"_s, -5}})}), refused);
        row("200-character name", withServer({{u"name"_s, QString(200, u'n')}}), refused);
        // Names are bounded in user-perceived characters, not in UTF-16 units.
        row("199 accented characters made of 398 code units", withServer({{u"name"_s, u"e\u0301"_s.repeated(199)}}),
            ok, {1});
        row("200 accented characters made of 400 code units", withServer({{u"name"_s, u"e\u0301"_s.repeated(200)}}),
            refused);

        row("missing name", withServer({{u"name"_s, QJsonValue::Undefined}}), decoding);
        row("online as a number", withServer({{u"online"_s, 1}}), decoding);
        row("id as text", withServer({{u"id"_s, u"1"_s}}), decoding);
        row("fractional players", withServer({{u"players"_s, 1.5}}), decoding);
        row("display order as text", withServer(order(u"1"_s)), decoding);
        row("a server that is not an object", R"({"response":[1]})", decoding);
        row("response missing", R"({"error":false})", decoding);
        row("top level array", "[]", decoding);
        row("truncated JSON", answer({server(1)}).chopped(2), decoding);

        row("exactly at the cap", paddedTo(2'000'000), ok, {1, 2});
        row("one byte over the cap", paddedTo(2'000'001), u"dataLengthExceedsMaximum"_s);
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

    void redirectPolicy_data()
    {
        QTest::addColumn<QUrl>("target");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("https on the API host, other port") << QUrl(u"https://api.korvane.test:8443/x"_s) << true;
        QTest::newRow("https on a look-alike host") << QUrl(u"https://api.korvane.test.evil.test/"_s) << false;
        QTest::newRow("no host") << QUrl(u"https:///v2/servers"_s) << false;
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
        QTest::addColumn<QString>("redirectTo"); // {port}: the service's, {plainport}: a plain http one's
        QTest::addColumn<bool>("failed");
        const auto row = [](const char *name, const ScriptedResponse &response, bool failed, const QString &to = {}) {
            QTest::newRow(name) << response << to << failed;
        };
        const QByteArray good = answer({server(1), server(2, u"ATS"_s)});
        row("200 with a good list", ScriptedResponse::json(good), false);
        row("200 with malformed JSON", ScriptedResponse::json("{\"response\":["), true);
        row("200 with the error flag \"true\"", ScriptedResponse::json(answer({server(1)}, u"true"_s)), true);
        row("200 with duplicate ids", ScriptedResponse::json(answer({server(1), server(1)})), true);
        for (int status : {304, 404, 500})
            QTest::addRow("%d with valid JSON", status) << ScriptedResponse::json(good, status) << QString() << true;
        row("redirect to https on the same host", {}, false, u"https://127.0.0.1:{port}/v2/moved"_s);
        row("redirect to another host", {}, true, u"https://localhost:{port}/v2/moved"_s);
        row("redirect to plain http", {}, true, u"http://127.0.0.1:{plainport}/v2/moved"_s);
        row("exactly at the cap", ScriptedResponse::json(paddedTo(2'000'000)), false);
        row("one byte over the cap", ScriptedResponse::json(paddedTo(2'000'001)), true);
        row("a server that never answers", ScriptedResponse::stalled(), true);
        ScriptedResponse trickle = ScriptedResponse::json(good + QByteArray(1'000, ' '));
        trickle.trickleIntervalMs = 100;
        trickle.trickleChunk = 8;
        row("an answer that trickles past the whole-transfer limit", trickle, true);
    }

    void refreshAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QString, redirectTo);
        QFETCH(bool, failed);
        Rig rig;
        rig.service.respond(u"/v2/servers"_s, rig.targets.redirectOr(response, redirectTo));
        QSignalSpy failedSpy(&rig.model, &ServerListModel::failedChanged);
        refreshAndWait(rig.model);

        QCOMPARE(rig.model.failed(), failed);
        QCOMPARE(rig.model.updated().isValid(), !failed);
        QCOMPARE(rig.model.servers().isEmpty(), failed);
        QCOMPARE(rig.model.isStale(), failed);
        QCOMPARE(failedSpy.size(), failed ? 1 : 0);
        // A redirect the policy declines is never contacted.
        if (failed)
            QCOMPARE(rig.targets.movedRequests(), 0);
        QCOMPARE(rig.service.requestCount(u"/v2/servers"_s), 1);
    }

    void successiveRefreshes()
    {
        Rig rig;
        ServerListModel &model = rig.model;
        ScriptedResponse withCookie = ScriptedResponse::json("oops", 500);
        withCookie.headers.append({QByteArray("Set-Cookie"), QByteArray("session=abc; Path=/")});
        rig.service.respond(u"/v2/servers"_s, withCookie);
        QVERIFY(model.isStale());

        refreshAndWait(model); // the first refresh is always accepted
        QVERIFY(model.failed());
        QVERIFY(model.isStale());

        rig.clock.advance(30'000);
        model.refresh(); // dropped, although the list is stale
        QVERIFY(!model.loading());
        rig.clock.advance(29'999);
        model.refresh();
        QVERIFY(!model.loading());
        QCOMPARE(rig.service.requestCount(u"/v2/servers"_s), 1);

        rig.service.respond(u"/v2/servers"_s, ScriptedResponse::json(answer({server(4), server(5)})));
        rig.clock.advance(1);
        refreshAndWait(model);
        QVERIFY(!model.failed());
        QCOMPARE(model.updated(), rig.clock.now());
        QVERIFY(!model.isStale());
        rig.clock.advance(120'000);
        QVERIFY(!model.isStale());
        rig.clock.advance(1);
        QVERIFY(model.isStale());

        // A service gone later fails the refresh but keeps the list that was fetched before.
        rig.service.close();
        const QDateTime lastSuccess = model.updated();
        refreshAndWait(model);
        QVERIFY(model.failed());
        QCOMPARE(idsOf(model.servers()), (QList<qint64>{4, 5}));
        QCOMPARE(model.updated(), lastSuccess);

        QCOMPARE(rig.service.requests().size(), 2);
        for (const RecordedRequest &request : rig.service.requests()) {
            QCOMPARE(request.method, "GET");
            QVERIFY(request.body.isEmpty());
            // The session is ephemeral: a cookie the service set is never sent back.
            QVERIFY(request.header("Cookie").isEmpty());
        }
    }

    void refreshWhileLoadingAndCancellation()
    {
        Rig rig;
        rig.service.respond(u"/v2/servers"_s, ScriptedResponse::stalled());
        QSignalSpy received(&rig.service, &LocalHttpsServer::requestReceived);

        rig.model.refresh();
        QVERIFY(rig.model.loading());
        QVERIFY(received.wait(20'000));
        rig.clock.advance(61'000);
        rig.model.refresh(); // still loading: ignored
        QSignalSpy loading(&rig.model, &ServerListModel::loadingChanged);
        rig.model.cancelRefresh();
        QVERIFY(!rig.model.loading());
        QCOMPARE(loading.size(), 1);
        QVERIFY(!rig.model.failed());
        QVERIFY(!rig.model.updated().isValid());
        QCOMPARE(rig.service.requestCount(u"/v2/servers"_s), 1);
    }

    void loadFavorites_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QList<qint64>>("favorites");
        QTest::newRow("absent") << QVariant() << QList<qint64>{};
        QTest::newRow("non-positive values are dropped") << QVariant(QVariantList{5, -1, 0, 7}) << QList<qint64>{5, 7};
        QTest::newRow("an array holding text loads as empty") << QVariant(QVariantList{5, u"7"_s}) << QList<qint64>{};
        QTest::newRow("not an array") << QVariant(u"5,7"_s) << QList<qint64>{};
        QVariantList descending;
        for (qint64 id = 150; id >= 1; --id)
            descending.append(id);
        QList<qint64> firstHundred(100);
        std::iota(firstHundred.begin(), firstHundred.end(), 51);
        QTest::newRow("only the first hundred") << QVariant(descending) << firstHundred;
        QTest::newRow("repeats count towards the hundred")
            << QVariant(QVariantList(100, 3) << 4) << QList<qint64>{3};
    }

    void loadFavorites()
    {
        QFETCH(QVariant, stored);
        QFETCH(QList<qint64>, favorites);
        Rig rig;
        if (stored.isValid())
            rig.home.defaults->setObject(ServerListModel::favoritesKey, stored);
        ServerListModel model(*rig.home.defaults, rig.clock, ServiceConfiguration());
        QCOMPARE(model.favoriteList(), favorites);
    }

    void toggleFavorite_data()
    {
        QTest::addColumn<QList<qint64>>("initial");
        QTest::addColumn<qint64>("id");
        QTest::addColumn<QList<qint64>>("expected");
        QTest::addColumn<bool>("written");
        QList<qint64> full(100);
        std::iota(full.begin(), full.end(), 1);
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
        Rig rig;
        rig.model.replaceFavorites(initial);
        rig.home.defaults->remove(ServerListModel::favoritesKey);

        rig.model.toggleFavorite(id);
        QCOMPARE(rig.model.favoriteList(), expected);
        QCOMPARE(rig.home.defaults->contains(ServerListModel::favoritesKey), written);
        if (written)
            QCOMPARE(ServerListModel(*rig.home.reopenDefaults(), rig.clock, {}).favoriteList(), expected);
    }

    void replaceFavoritesStoresAnAscendingArray()
    {
        Rig rig;
        QSignalSpy changed(&rig.model, &ServerListModel::favoritesChanged);
        rig.model.replaceFavorites({30, -2, 10, 30, 0, 20});
        QCOMPARE(changed.size(), 1);
        QCOMPARE(rig.home.reopenDefaults()->object(ServerListModel::favoritesKey),
                 QVariant(QVariantList{10LL, 20LL, 30LL}));
    }
};

QTEST_GUILESS_MAIN(TestServerList)
#include "tst_serverlist.moc"
