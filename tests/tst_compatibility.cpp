#include "games/compatibilityservice.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/testhome.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(SupportedVersions)

// Lets QCOMPARE print both sides of a failed comparison.
char *toString(const CompatibilityResult &result)
{
    return QTest::toString(CompatibilityResult::stateName(result.state) + u" installed="_s
                           + result.installed.value_or(u"-"_s) + u" supported="_s + result.supported.value_or(u"-"_s));
}

namespace {

using State = CompatibilityResult::State;
const std::optional<QString> none;

QByteArray versions(const QString &ets2, const QString &ats)
{
    return QJsonDocument(QJsonObject{{u"supported_game_version"_s, ets2}, {u"supported_ats_game_version"_s, ats}})
        .toJson(QJsonDocument::Compact);
}

QByteArray paddedTo(qsizetype size)
{
    const QByteArray body = versions(u"1.53.3.14s"_s, u"1.49.2.0s"_s);
    return body + QByteArray(size - body.size(), ' ');
}

// Checks with an executable of the given version (none when `installed` is empty); no verdict
// when none came in time.
std::optional<CompatibilityResult> check(const ServiceConfiguration &service, GameKind game,
                                         const QList<quint16> &installed)
{
    TestHome home;
    const QString executable = home.paths.home + u"/eurotrucks2.exe"_s;
    if (!installed.isEmpty() && !writeFakeGameExecutable(executable, installed))
        qFatal("the fake game executable could not be written");
    CompatibilityService compatibility(service);
    QFuture<CompatibilityResult> result = compatibility.check(game, executable);
    if (!QTest::qWaitFor([&] { return result.isFinished(); }, 20'000))
        return std::nullopt;
    return result.result();
}

} // namespace

class TestCompatibility : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parseSupportedVersions_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<SupportedVersions>("parsed");
        const auto row = [](const char *name, const QByteArray &body, const QString &outcome,
                            const SupportedVersions &parsed = {}) { QTest::newRow(name) << body << outcome << parsed; };
        const QString refused = u"cannotParseResponse"_s;

        row("both patterns", versions(u"1.53.3.14s"_s, u"1.53.1.0"_s), u"ok"_s, {u"1.53.3.14s"_s, u"1.53.1.0"_s});
        row("other members are ignored",
            R"({"supported_game_version":"1.53","supported_ats_game_version":"1.*","motd":1})", u"ok"_s,
            {u"1.53"_s, u"1.*"_s});
        row("99,999 bytes are decoded", paddedTo(99'999), u"ok"_s, {u"1.53.3.14s"_s, u"1.49.2.0s"_s});
        row("100,000 bytes are refused", paddedTo(100'000), u"dataLengthExceedsMaximum"_s);
        row("the ats key missing", R"({"supported_game_version":"1.53"})", u"decoding"_s);
        row("a pattern that is a number", R"({"supported_game_version":1.53,"supported_ats_game_version":"1.53"})",
            u"decoding"_s);
        row("a malformed ets2 pattern discards both", versions(u"latest"_s, u"1.53.1.0"_s), refused);
        row("a malformed ats pattern discards both", versions(u"1.53.3.14"_s, u"1"_s), refused);
    }

    void parseSupportedVersions()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, outcome);
        QFETCH(SupportedVersions, parsed);
        SupportedVersions actual;
        QCOMPARE(outcomeOf([&] { actual = SupportedVersions::parse(body); }), outcome);
        QCOMPARE(actual, parsed);
    }

    void aPatternThatCannotBeComparedIsUnknown()
    {
        QCOMPARE(CompatibilityResult::evaluate(GameVersion({1, 53, 2, 0}), u"soon"_s),
                 (CompatibilityResult{State::unknown, u"1.53.2.0"_s, u"soon"_s}));
    }

    void checkAgainstTheService_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<CompatibilityResult>("expected");
        QTest::addColumn<QString>("redirectTo"); // {port}: the service's, {plainport}: a plain http one's
        QTest::addColumn<int>("game");
        QTest::addColumn<QList<quint16>>("installed"); // empty: no executable
        const auto row = [](const char *name, const ScriptedResponse &response, const CompatibilityResult &expected,
                            const QString &redirectTo = {}, GameKind game = GameKind::ets2,
                            const QList<quint16> &installed = {1, 53, 3, 14}) {
            QTest::newRow(name) << response << expected << redirectTo << int(game) << installed;
        };
        const ScriptedResponse answer = ScriptedResponse::json(versions(u"1.53.3.14s"_s, u"1.49.2.0s"_s));
        const CompatibilityResult compatible{State::compatible, u"1.53.3.14"_s, u"1.53.3.14s"_s};
        const CompatibilityResult noAnswer{State::unknown, u"1.53.3.14"_s, none};

        row("supported version installed", answer, compatible);
        row("older version installed", answer, {State::mismatch, u"1.52.1.0"_s, u"1.53.3.14s"_s}, {}, GameKind::ets2,
            {1, 52, 1, 0});
        row("a two-part pattern", ScriptedResponse::json(versions(u"1.53"_s, u"1.49.2.0s"_s)),
            {State::compatible, u"1.53.2.0"_s, u"1.53"_s}, {}, GameKind::ets2, {1, 53, 2, 0});
        row("ATS is judged by its own key", answer, {State::compatible, u"1.49.2.0"_s, u"1.49.2.0s"_s}, {},
            GameKind::ats, {1, 49, 2, 0});
        row("ATS with a malformed ets2 pattern", ScriptedResponse::json(versions(u"x"_s, u"1.49.2.0s"_s)),
            {State::unknown, u"1.49.2.0"_s, none}, {}, GameKind::ats, {1, 49, 2, 0});
        row("no executable", answer, {State::unknown, none, u"1.53.3.14s"_s}, {}, GameKind::ets2, {});
        for (int status : {304, 404, 500})
            QTest::addRow("status %d with valid JSON", status)
                << ScriptedResponse::json(answer.body, status) << noAnswer << QString() << int(GameKind::ets2)
                << QList<quint16>{1, 53, 3, 14};
        row("200 with a body that is not JSON", ScriptedResponse::json("<html/>"), noAnswer);
        row("redirect on the API host is followed", {}, compatible, u"https://127.0.0.1:{port}/v2/moved"_s);
        row("redirect to another host is not", {}, noAnswer, u"https://localhost:{port}/v2/moved"_s);
        row("redirect to plain http is not", {}, noAnswer, u"http://127.0.0.1:{plainport}/v2/moved"_s);
        row("99,999 bytes", ScriptedResponse::json(paddedTo(99'999)), compatible);
        row("100,000 bytes", ScriptedResponse::json(paddedTo(100'000)), noAnswer);
        row("a service that never answers", ScriptedResponse::stalled(), noAnswer);
    }

    void checkAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(CompatibilityResult, expected);
        QFETCH(QString, redirectTo);
        QFETCH(int, game);
        QFETCH(QList<quint16>, installed);
        RedirectTargets targets(ScriptedResponse::json(versions(u"1.53.3.14s"_s, u"1.49.2.0s"_s)));
        targets.service.respond(u"/v2/version"_s, targets.redirectOr(response, redirectTo));

        const auto verdict = check(targets.service.configuration(), GameKind(GameKind::Value(game)), installed);
        QVERIFY(verdict);
        QCOMPARE(*verdict, expected);
        QCOMPARE(targets.service.requestCount(u"/v2/version"_s), 1);
        if (!expected.supported)
            QCOMPARE(targets.movedRequests(), 0);
    }

    void withoutAServiceTheVerdictIsUnknown_data()
    {
        QTest::addColumn<QString>("apiBase"); // {port}: a port that refuses connections
        QTest::newRow("connection refused") << u"https://127.0.0.1:{port}/"_s;
        QTest::newRow("a plain http address is never contacted") << u"http://127.0.0.1:{port}/"_s;
    }

    void withoutAServiceTheVerdictIsUnknown()
    {
        QFETCH(QString, apiBase);
        LocalHttpsServer closed;
        ServiceConfiguration configuration = closed.configuration();
        closed.close();
        configuration.apiBaseURL = QUrl(apiBase.replace(u"{port}"_s, QString::number(closed.port())));
        const auto verdict = check(configuration, GameKind::ets2, {1, 53, 3, 14});
        QVERIFY(verdict);
        QCOMPARE(*verdict, (CompatibilityResult{State::unknown, u"1.53.3.14"_s, none}));
    }

    void aServiceThatGoesAwayCancelsItsCheck()
    {
        LocalHttpsServer service;
        service.respond(u"/v2/version"_s, ScriptedResponse::stalled());
        auto compatibility = std::make_unique<CompatibilityService>(service.configuration());
        QFuture<CompatibilityResult> result = compatibility->check(GameKind::ets2, u"/nonexistent"_s);
        QSignalSpy received(&service, &LocalHttpsServer::requestReceived);
        QVERIFY(received.wait(20'000));
        compatibility.reset();
        QTRY_VERIFY_WITH_TIMEOUT(result.isFinished(), 20'000);
        QVERIFY(result.isCanceled());
    }
};

QTEST_GUILESS_MAIN(TestCompatibility)
#include "tst_compatibility.moc"
