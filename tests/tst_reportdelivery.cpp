#include "platform/urlerror.h"
#include "sessions/reportdelivery.h"
#include "support/httpsserver.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

const QUuid reportId = QUuid::fromString(u"6f1c2a3b-4d5e-4f60-8172-93a4b5c6d7e8"_s);
const QString endpointPath = u"/korvane/api/reports"_s;
const QVariantMap deliveryOn{{BundleInfo::reportDeliveryEnabledKey, true}};

QByteArray receipt(const QString &status, const QString &id, const QJsonObject &extra = {})
{
    QJsonObject object = extra;
    object.insert(u"status"_s, status);
    object.insert(u"id"_s, id);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString outcomeOf(QFuture<void> future)
{
    QDeadlineTimer deadline(20'000);
    while (!future.isFinished() && !deadline.hasExpired())
        QTest::qWait(10);
    if (!future.isFinished())
        return u"unfinished"_s;
    try {
        future.waitForFinished();
        return u"ok"_s;
    } catch (const UrlError &error) {
        return UrlError::name(error.code());
    } catch (const DecodingError &) {
        return u"decoding"_s;
    }
}

QString payloadOutcome(const QString &text)
{
    try {
        ReportDelivery::payload(reportId, text);
        return u"ok"_s;
    } catch (const UrlError &error) {
        return UrlError::name(error.code());
    }
}

} // namespace

class TestReportDelivery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void payloadBounds_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("empty") << QString() << u"dataLengthExceedsMaximum"_s;
        QTest::newRow("only blanks and line breaks") << u" \n\t\r\n \u2003"_s << u"dataLengthExceedsMaximum"_s;
        QTest::newRow("exactly 96,000 bytes") << QString(96'000, u'x') << u"ok"_s;
        QTest::newRow("96,001 bytes") << QString(96'001, u'x') << u"dataLengthExceedsMaximum"_s;
        QTest::newRow("96,000 bytes of two-byte characters") << QString(48'000, u'é') << u"ok"_s;
        QTest::newRow("32,001 three-byte characters are 96,003 bytes") << QString(32'001, u'€')
                                                                      << u"dataLengthExceedsMaximum"_s;
        // Control characters grow sixfold when escaped, past the cap on the encoded body.
        QTest::newRow("small text, oversized encoding") << QString(30'000, QChar(1)) << u"dataLengthExceedsMaximum"_s;
        // Each escapes to "\u0001"; with the 68 bytes around the report this is exactly the cap.
        QTest::newRow("an encoded body of exactly 131,072 bytes") << QString(21'834, QChar(1)) << u"ok"_s;
        QTest::newRow("an encoded body just over the cap") << QString(21'835, QChar(1))
                                                           << u"dataLengthExceedsMaximum"_s;
    }

    void payloadBounds()
    {
        QFETCH(QString, text);
        QFETCH(QString, outcome);
        QCOMPARE(payloadOutcome(text), outcome);
    }

    void payloadIsTheSchemaInItsOrder()
    {
        const QString text = u"  Line \"one\"\n\tZweite Zeile — ő\n"_s;
        const QByteArray body = ReportDelivery::payload(reportId, text);
        QCOMPARE(body.left(body.indexOf(",\"report\"")),
                 "{\"schema\":1,\"id\":\"6f1c2a3b-4d5e-4f60-8172-93a4b5c6d7e8\"");
        const QJsonObject decoded = QJsonDocument::fromJson(body).object();
        QCOMPARE(decoded.size(), 3);
        QCOMPARE(decoded.value(u"schema"_s).toInt(), 1);
        QCOMPARE(decoded.value(u"report"_s).toString(), text); // not trimmed
    }

    void sendAgainstTheService_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QString>("outcome");
        const QString id = ReportDelivery::idText(reportId);

        QTest::newRow("accepted") << ScriptedResponse::json(receipt(u"accepted"_s, id)) << u"ok"_s;
        QTest::newRow("accepted, with other members")
            << ScriptedResponse::json(receipt(u"accepted"_s, id, {{u"ticket"_s, 17}, {u"note"_s, u"thanks"_s}}))
            << u"ok"_s;
        QTest::newRow("accepted, id in capitals") << ScriptedResponse::json(receipt(u"accepted"_s, id.toUpper()))
                                                  << u"ok"_s;
        QTest::newRow("status Accepted") << ScriptedResponse::json(receipt(u"Accepted"_s, id))
                                         << u"cannotParseResponse"_s;
        QTest::newRow("status queued") << ScriptedResponse::json(receipt(u"queued"_s, id))
                                       << u"cannotParseResponse"_s;
        QTest::newRow("another report's id")
            << ScriptedResponse::json(receipt(u"accepted"_s, QUuid::createUuid().toString(QUuid::WithoutBraces)))
            << u"cannotParseResponse"_s;
        QTest::newRow("id with braces") << ScriptedResponse::json(receipt(u"accepted"_s, u'{' + id + u'}'))
                                        << u"cannotParseResponse"_s;
        QTest::newRow("status missing") << ScriptedResponse::json(QByteArray("{\"id\":\"") + id.toUtf8() + "\"}")
                                        << u"decoding"_s;
        QTest::newRow("id as a number") << ScriptedResponse::json(R"({"status":"accepted","id":1})") << u"decoding"_s;
        QTest::newRow("not JSON") << ScriptedResponse::json("accepted") << u"decoding"_s;
        QByteArray atCap = receipt(u"accepted"_s, id);
        atCap += QByteArray(4'096 - atCap.size(), ' ');
        QTest::newRow("a receipt of exactly 4,096 bytes") << ScriptedResponse::json(atCap) << u"ok"_s;
        QTest::newRow("a receipt of 4,097 bytes") << ScriptedResponse::json(atCap + ' ')
                                                  << u"dataLengthExceedsMaximum"_s;
        QTest::newRow("500 with a good receipt") << ScriptedResponse::json(receipt(u"accepted"_s, id), 500)
                                                 << u"badServerResponse"_s;
        QTest::newRow("201 with a good receipt") << ScriptedResponse::json(receipt(u"accepted"_s, id), 201)
                                                 << u"badServerResponse"_s;
        for (int status : {301, 302, 307}) {
            ScriptedResponse redirect = ScriptedResponse::redirect(status, QUrl(u"/korvane/api/elsewhere"_s));
            QTest::addRow("redirect %d", status) << redirect << u"badServerResponse"_s;
        }
        ScriptedResponse stall;
        stall.stall = true;
        QTest::newRow("a service that never answers") << stall << u"timedOut"_s;
    }

    void sendAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QString, outcome);
        LocalHttpsServer service;
        QVERIFY(service.isListening());
        service.respond(endpointPath, response);
        service.respond(u"/korvane/api/elsewhere"_s,
                        ScriptedResponse::json(receipt(u"accepted"_s, ReportDelivery::idText(reportId))));

        const QString text = u"Korvane Mac Launcher — failure report\nReason: exit_3"_s;
        QCOMPARE(outcomeOf(ReportDelivery::send(reportId, text, service.configuration(), deliveryOn)), outcome);

        QCOMPARE(service.requests().size(), 1);
        const RecordedRequest request = service.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, endpointPath.toUtf8());
        QCOMPARE(request.header("Content-Type"), "application/json");
        QVERIFY(request.header("Cookie").isEmpty());
        QCOMPARE(request.body, ReportDelivery::payload(reportId, text));
    }

    void anUnreachableEndpointFails()
    {
        LocalHttpsServer service;
        service.close();
        QCOMPARE(outcomeOf(ReportDelivery::send(reportId, u"report"_s, service.configuration(), deliveryOn)),
                 u"cannotConnectToHost"_s);
    }

    void nothingIsSentWhenRefusedLocally_data()
    {
        QTest::addColumn<QVariantMap>("bundleInfo");
        QTest::addColumn<QString>("endpoint"); // {port} stands for the server's port
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("outcome");
        const QString endpoint = u"https://127.0.0.1:{port}/korvane/api/reports"_s;
        QTest::newRow("delivery key absent") << QVariantMap() << endpoint << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("delivery off") << QVariantMap{{BundleInfo::reportDeliveryEnabledKey, false}} << endpoint
                                      << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("delivery key as text") << QVariantMap{{BundleInfo::reportDeliveryEnabledKey, u"true"_s}}
                                              << endpoint << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("delivery key as a number") << QVariantMap{{BundleInfo::reportDeliveryEnabledKey, 1}}
                                                  << endpoint << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("no endpoint configured") << deliveryOn << QString() << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("plain http endpoint") << deliveryOn << u"http://127.0.0.1:{port}/korvane/api/reports"_s
                                             << u"report"_s << u"unsupportedURL"_s;
        QTest::newRow("blank report") << deliveryOn << endpoint << u"\n \n"_s << u"dataLengthExceedsMaximum"_s;
        QTest::newRow("oversized report") << deliveryOn << endpoint << QString(96'001, u'x')
                                          << u"dataLengthExceedsMaximum"_s;
    }

    void nothingIsSentWhenRefusedLocally()
    {
        QFETCH(QVariantMap, bundleInfo);
        QFETCH(QString, endpoint);
        QFETCH(QString, text);
        QFETCH(QString, outcome);
        LocalHttpsServer service;
        service.respond(endpointPath, ScriptedResponse::json(receipt(u"accepted"_s, ReportDelivery::idText(reportId))));
        ServiceConfiguration configuration = service.configuration();
        configuration.reportURL = QUrl(endpoint.replace(u"{port}"_s, QString::number(service.port())));

        QFuture<void> delivery = ReportDelivery::send(reportId, text, configuration, bundleInfo);
        // Refused before any session exists, so no connection can follow.
        QVERIFY(delivery.isFinished());
        QCOMPARE(outcomeOf(delivery), outcome);
        QCOMPARE(service.requests().size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestReportDelivery)
#include "tst_reportdelivery.moc"
