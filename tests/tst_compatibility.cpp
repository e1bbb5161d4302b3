#include "games/compatibilityservice.h"
#include "platform/urlerror.h"
#include "support/fakeexecutable.h"
#include "support/httpsserver.h"
#include "support/testhome.h"

#include <QFutureWatcher>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ScriptedResponse)
Q_DECLARE_METATYPE(std::optional<GameVersion>)
Q_DECLARE_METATYPE(std::optional<QString>)

// Lets QCOMPARE print both sides of a failed comparison.
char *toString(const CompatibilityResult &result)
{
    return QTest::toString(CompatibilityResult::stateName(result.state) + u" installed="_s
                           + result.installed.value_or(u"-"_s) + u" supported="_s + result.supported.value_or(u"-"_s));
}

namespace {

QByteArray versions(const QString &ets2, const QString &ats)
{
    return QJsonDocument(QJsonObject{{u"supported_game_version"_s, ets2}, {u"supported_ats_game_version"_s, ats}})
        .toJson(QJsonDocument::Compact);
}

QByteArray paddedTo(qsizetype size)
{
    const QByteArray body = versions(u"1.53.3.14s"_s, u"1.53.2.0s"_s);
    return body + QByteArray(size - body.size(), ' ');
}

std::optional<GameVersion> version(QList<quint16> parts)
{
    return GameVersion(std::move(parts));
}

const std::optional<QString> none;

} // namespace

class TestCompatibility : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parseSupportedVersions_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QString>("ets2");
        QTest::addColumn<QString>("ats");

        QTest::newRow("both patterns") << versions(u"1.53.3.14s"_s, u"1.53.1.0"_s) << u"ok"_s << u"1.53.3.14s"_s
                                       << u"1.53.1.0"_s;
        QTest::newRow("other members are ignored")
            << QByteArray(R"({"supported_game_version":"1.53","supported_ats_game_version":"1.*","motd":1})")
            << u"ok"_s << u"1.53"_s << u"1.*"_s;
        QTest::newRow("99,999 bytes are decoded") << paddedTo(99'999) << u"ok"_s << u"1.53.3.14s"_s
                                                  << u"1.53.2.0s"_s;
        QTest::newRow("100,000 bytes are refused") << paddedTo(100'000) << u"dataLengthExceedsMaximum"_s
                                                   << QString() << QString();
        QTest::newRow("the ats key missing") << QByteArray(R"({"supported_game_version":"1.53"})") << u"decoding"_s
                                             << QString() << QString();
        QTest::newRow("a pattern that is a number")
            << QByteArray(R"({"supported_game_version":1.53,"supported_ats_game_version":"1.53"})")
            << u"decoding"_s << QString() << QString();
        QTest::newRow("a malformed ets2 pattern discards both") << versions(u"latest"_s, u"1.53.1.0"_s)
                                                                << u"cannotParseResponse"_s << QString() << QString();
        QTest::newRow("a malformed ats pattern discards both") << versions(u"1.53.3.14"_s, u"1"_s)
                                                               << u"cannotParseResponse"_s << QString() << QString();
        QTest::newRow("not JSON") << QByteArray("Service Unavailable") << u"decoding"_s << QString() << QString();
        QTest::newRow("an array") << QByteArray("[\"1.53\"]") << u"decoding"_s << QString() << QString();
    }

    void parseSupportedVersions()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, outcome);
        QFETCH(QString, ets2);
        QFETCH(QString, ats);
        QString actual = u"ok"_s;
        SupportedVersions parsed;
        try {
            parsed = SupportedVersions::parse(body);
        } catch (const UrlError &error) {
            actual = UrlError::name(error.code());
        } catch (const DecodingError &) {
            actual = u"decoding"_s;
        }
        QCOMPARE(actual, outcome);
        QCOMPARE(parsed.version(GameKind::ets2), ets2);
        QCOMPARE(parsed.version(GameKind::ats), ats);
    }

    void evaluate_data()
    {
        QTest::addColumn<std::optional<GameVersion>>("installed");
        QTest::addColumn<std::optional<QString>>("supported");
        QTest::addColumn<CompatibilityResult>("expected");

        using State = CompatibilityResult::State;
        QTest::newRow("nothing installed, nothing supported")
            << std::optional<GameVersion>() << none << CompatibilityResult{State::unknown, none, none};
        QTest::newRow("nothing installed keeps the supported pattern")
            << std::optional<GameVersion>() << std::optional(u"1.53s"_s)
            << CompatibilityResult{State::unknown, none, u"1.53s"_s};
        QTest::newRow("no answer keeps the installed version")
            << version({1, 53, 3, 14}) << none << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        QTest::newRow("exact match, trailing s kept")
            << version({1, 53, 3, 14}) << std::optional(u"1.53.3.14s"_s)
            << CompatibilityResult{State::compatible, u"1.53.3.14"_s, u"1.53.3.14s"_s};
        QTest::newRow("older game") << version({1, 52, 1, 0}) << std::optional(u"1.53.3.14s"_s)
                                    << CompatibilityResult{State::mismatch, u"1.52.1.0"_s, u"1.53.3.14s"_s};
        QTest::newRow("a two-part pattern") << version({1, 53, 2, 0}) << std::optional(u"1.53"_s)
                                            << CompatibilityResult{State::compatible, u"1.53.2.0"_s, u"1.53"_s};
        QTest::newRow("a pattern that cannot be compared")
            << version({1, 53, 2, 0}) << std::optional(u"soon"_s)
            << CompatibilityResult{State::unknown, u"1.53.2.0"_s, u"soon"_s};
    }

    void evaluate()
    {
        QFETCH(std::optional<GameVersion>, installed);
        QFETCH(std::optional<QString>, supported);
        QFETCH(CompatibilityResult, expected);
        QCOMPARE(CompatibilityResult::evaluate(installed, supported), expected);
    }

    void checkAgainstTheService_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QString>("redirectTo"); // {port}: the server's, {plainport}: a plain http one's
        QTest::addColumn<int>("game");
        QTest::addColumn<QList<quint16>>("installed"); // empty: no executable
        QTest::addColumn<CompatibilityResult>("expected");

        using State = CompatibilityResult::State;
        const QByteArray answer = versions(u"1.53.3.14s"_s, u"1.49.2.0s"_s);
        const QList<quint16> current{1, 53, 3, 14};
        QTest::newRow("supported version installed")
            << ScriptedResponse::json(answer) << QString() << int(GameKind::ets2) << current
            << CompatibilityResult{State::compatible, u"1.53.3.14"_s, u"1.53.3.14s"_s};
        QTest::newRow("older version installed")
            << ScriptedResponse::json(answer) << QString() << int(GameKind::ets2) << QList<quint16>{1, 52, 1, 0}
            << CompatibilityResult{State::mismatch, u"1.52.1.0"_s, u"1.53.3.14s"_s};
        QTest::newRow("ATS is judged by its own key")
            << ScriptedResponse::json(answer) << QString() << int(GameKind::ats) << QList<quint16>{1, 49, 2, 0}
            << CompatibilityResult{State::compatible, u"1.49.2.0"_s, u"1.49.2.0s"_s};
        QTest::newRow("ATS with a malformed ets2 pattern")
            << ScriptedResponse::json(versions(u"x"_s, u"1.49.2.0s"_s)) << QString() << int(GameKind::ats)
            << QList<quint16>{1, 49, 2, 0} << CompatibilityResult{State::unknown, u"1.49.2.0"_s, none};
        QTest::newRow("no executable") << ScriptedResponse::json(answer) << QString() << int(GameKind::ets2)
                                       << QList<quint16>{}
                                       << CompatibilityResult{State::unknown, none, u"1.53.3.14s"_s};
        for (int status : {304, 404, 500})
            QTest::addRow("status %d with valid JSON", status)
                << ScriptedResponse::json(answer, status) << QString() << int(GameKind::ets2) << current
                << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        QTest::newRow("200 with a body that is not JSON")
            << ScriptedResponse::json("<html/>") << QString() << int(GameKind::ets2) << current
            << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        QTest::newRow("redirect on the API host is followed")
            << ScriptedResponse() << u"https://127.0.0.1:{port}/v2/moved"_s << int(GameKind::ets2) << current
            << CompatibilityResult{State::compatible, u"1.53.3.14"_s, u"1.53.3.14s"_s};
        QTest::newRow("redirect to another host is not")
            << ScriptedResponse() << u"https://localhost:{port}/v2/moved"_s << int(GameKind::ets2) << current
            << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        QTest::newRow("redirect to plain http is not")
            << ScriptedResponse() << u"http://127.0.0.1:{plainport}/v2/moved"_s << int(GameKind::ets2) << current
            << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        QTest::newRow("99,999 bytes") << ScriptedResponse::json(paddedTo(99'999)) << QString() << int(GameKind::ets2)
                                      << current
                                      << CompatibilityResult{State::compatible, u"1.53.3.14"_s, u"1.53.3.14s"_s};
        QTest::newRow("100,000 bytes") << ScriptedResponse::json(paddedTo(100'000)) << QString()
                                       << int(GameKind::ets2) << current
                                       << CompatibilityResult{State::unknown, u"1.53.3.14"_s, none};
        ScriptedResponse stall;
        stall.stall = true;
        QTest::newRow("a service that never answers")
            << stall << QString() << int(GameKind::ets2) << QList<quint16>{}
            << CompatibilityResult{State::unknown, none, none};
    }

    void checkAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QString, redirectTo);
        QFETCH(int, game);
        QFETCH(QList<quint16>, installed);
        QFETCH(CompatibilityResult, expected);

        TestHome home;
        RedirectTargets targets(ScriptedResponse::json(versions(u"1.53.3.14s"_s, u"1.49.2.0s"_s)));
        LocalHttpsServer &service = targets.service;
        QVERIFY(service.isListening() && targets.plain.isListening());
        service.respond(u"/v2/version"_s, targets.redirectOr(response, redirectTo));
        const QString executable = home.paths.home + u"/eurotrucks2.exe"_s;
        if (!installed.isEmpty())
            QVERIFY(writeFakeGameExecutable(executable, installed));

        CompatibilityService compatibility(service.configuration());
        QFuture<CompatibilityResult> result = compatibility.check(GameKind(GameKind::Value(game)), executable);
        QTRY_VERIFY_WITH_TIMEOUT(result.isFinished(), 20'000);
        QCOMPARE(result.result(), expected);
        QCOMPARE(service.requestCount(u"/v2/version"_s), 1);
        if (!redirectTo.isEmpty() && !expected.supported)
            QCOMPARE(targets.movedRequests(), 0);
    }

    void aServiceThatGoesAwayCancelsItsCheck()
    {
        LocalHttpsServer service;
        ScriptedResponse stall;
        stall.stall = true;
        service.respond(u"/v2/version"_s, stall);
        auto compatibility = std::make_unique<CompatibilityService>(service.configuration());
        QFuture<CompatibilityResult> result = compatibility->check(GameKind::ets2, u"/nonexistent"_s);
        QSignalSpy received(&service, &LocalHttpsServer::requestReceived);
        QVERIFY(received.wait(20'000));
        compatibility.reset();
        QTRY_VERIFY_WITH_TIMEOUT(result.isFinished(), 20'000);
        QVERIFY(result.isCanceled());
    }

    void anUnreachableServiceIsUnknown()
    {
        TestHome home;
        const QString executable = home.paths.home + u"/eurotrucks2.exe"_s;
        QVERIFY(writeFakeGameExecutable(executable, {1, 53, 3, 14}));
        LocalHttpsServer service;
        service.close();
        CompatibilityService compatibility(service.configuration());
        QFuture<CompatibilityResult> result = compatibility.check(GameKind::ets2, executable);
        QTRY_VERIFY_WITH_TIMEOUT(result.isFinished(), 20'000);
        QCOMPARE(result.result(),
                 (CompatibilityResult{CompatibilityResult::State::unknown, u"1.53.3.14"_s, none}));
    }

    void anUnusableApiAddressNeverConnects()
    {
        ServiceConfiguration configuration;
        configuration.apiBaseURL = QUrl(u"http://127.0.0.1:9/"_s);
        CompatibilityService compatibility(configuration);
        QFuture<CompatibilityResult> result = compatibility.check(GameKind::ets2, u"/nonexistent"_s);
        QTRY_VERIFY_WITH_TIMEOUT(result.isFinished(), 20'000);
        QCOMPARE(result.result(), (CompatibilityResult{CompatibilityResult::State::unknown, none, none}));
    }
};

QTEST_GUILESS_MAIN(TestCompatibility)
#include "tst_compatibility.moc"
