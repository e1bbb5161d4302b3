#include "platform/recordcoding.h"
#include "sessions/reportdelivery.h"
#include "support/httpsserver.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QUuid reportId = QUuid::fromString(u"6f1c2a3b-4d5e-4f60-8172-93a4b5c6d7e8"_s);
const QString endpointPath = u"/korvane/api/reports"_s;
const QVariantMap deliveryOn{{BundleInfo::reportDeliveryEnabledKey, true}};

QByteArray receipt(const QString &status, const QString &id = RecordCoding::uuidText(reportId),
                   const QJsonObject &extra = {})
{
    QJsonObject object = extra;
    object.insert(u"status"_s, status);
    object.insert(u"id"_s, id);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString deliveryOutcome(QFuture<void> delivery)
{
    if (!QTest::qWaitFor([&] { return delivery.isFinished(); }, 20'000))
        return u"unfinished"_s;
    return outcomeOf([&] { delivery.waitForFinished(); });
}

} // namespace

class TestReportDelivery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void payloadBounds_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("outcome");
        const QString tooLong = u"dataLengthExceedsMaximum"_s;
        QTest::newRow("only blanks and line breaks") << u" \n\t\r\n \u2003"_s << tooLong;
        QTest::newRow("exactly 96,000 bytes") << QString(96'000, u'x') << u"ok"_s;
        QTest::newRow("96,001 bytes") << QString(96'001, u'x') << tooLong;
        QTest::newRow("32,001 three-byte characters are 96,003 bytes") << QString(32'001, u'€') << tooLong;
        // Each escapes to "\u0001"; with the 68 bytes around the report this is exactly the cap.
        QTest::newRow("an encoded body of exactly 131,072 bytes") << QString(21'834, QChar(1)) << u"ok"_s;
        QTest::newRow("an encoded body just over the cap") << QString(21'835, QChar(1)) << tooLong;
    }

    void payloadBounds()
    {
        QFETCH(QString, text);
        QFETCH(QString, outcome);
        QCOMPARE(outcomeOf([&] { ReportDelivery::payload(reportId, text); }), outcome);
    }

    void payloadIsTheSchemaInItsOrder()
    {
        const QString text = u"  Line \"one\"\n\tZweite Zeile — ő\n"_s;
        const QByteArray body = ReportDelivery::payload(reportId, text);
        QCOMPARE(body.left(body.indexOf(",\"report\"")),
                 "{\"schema\":1,\"id\":\"6F1C2A3B-4D5E-4F60-8172-93A4B5C6D7E8\"");
        const QJsonObject decoded = QJsonDocument::fromJson(body).object();
        QCOMPARE(decoded.size(), 3);
        QCOMPARE(decoded.value(u"schema"_s).toInt(), 1);
        QCOMPARE(decoded.value(u"report"_s).toString(), text); // not trimmed
    }

    void sendAgainstTheService_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QString>("outcome");
        const auto row = [](const char *name, const ScriptedResponse &response, const QString &outcome) {
            QTest::newRow(name) << response << outcome;
        };
        const QString id = RecordCoding::uuidText(reportId), refused = u"cannotParseResponse"_s;
        const QString badResponse = u"badServerResponse"_s;
        QByteArray atCap = receipt(u"accepted"_s);
        atCap += QByteArray(4'096 - atCap.size(), ' ');

        row("accepted", ScriptedResponse::json(receipt(u"accepted"_s)), u"ok"_s);
        row("accepted, with other members",
            ScriptedResponse::json(receipt(u"accepted"_s, id, {{u"ticket"_s, 17}, {u"note"_s, u"thanks"_s}})), u"ok"_s);
        row("accepted, id in lower case", ScriptedResponse::json(receipt(u"accepted"_s, id.toLower())), u"ok"_s);
        row("status Accepted", ScriptedResponse::json(receipt(u"Accepted"_s)), refused);
        const QString otherId = QUuid::createUuid().toString(QUuid::WithoutBraces);
        row("another report's id", ScriptedResponse::json(receipt(u"accepted"_s, otherId)), refused);
        row("id with braces", ScriptedResponse::json(receipt(u"accepted"_s, u'{' + id + u'}')), refused);
        row("status missing", ScriptedResponse::json("{\"id\":\"" + id.toUtf8() + "\"}"), u"decoding"_s);
        row("id as a number", ScriptedResponse::json(R"({"status":"accepted","id":1})"), u"decoding"_s);
        row("a receipt of exactly 4,096 bytes", ScriptedResponse::json(atCap), u"ok"_s);
        row("a receipt of 4,097 bytes", ScriptedResponse::json(atCap + ' '), u"dataLengthExceedsMaximum"_s);
        row("500 with a good receipt", ScriptedResponse::json(receipt(u"accepted"_s), 500), badResponse);
        row("201 with a good receipt", ScriptedResponse::json(receipt(u"accepted"_s), 201), badResponse);
        // A redirect that may change the method to GET, and one that must keep the POST.
        for (int status : {302, 307})
            QTest::addRow("redirect %d", status)
                << ScriptedResponse::redirect(status, QUrl(u"/korvane/api/elsewhere"_s)) << badResponse;
        row("a service that never answers", ScriptedResponse::stalled(), u"timedOut"_s);
    }

    void sendAgainstTheService()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QString, outcome);
        LocalHttpsServer service;
        service.respond(endpointPath, response);
        service.respond(u"/korvane/api/elsewhere"_s, ScriptedResponse::json(receipt(u"accepted"_s)));

        const QString text = u"Korvane Mac Launcher — failure report\nReason: exit_3"_s;
        QCOMPARE(deliveryOutcome(ReportDelivery::send(reportId, text, service.configuration(), deliveryOn)), outcome);

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
        QCOMPARE(deliveryOutcome(ReportDelivery::send(reportId, u"report"_s, service.configuration(), deliveryOn)),
                 u"cannotConnectToHost"_s);
    }

    void nothingIsSentWhenRefusedLocally_data()
    {
        QTest::addColumn<QVariantMap>("bundleInfo");
        QTest::addColumn<QString>("endpoint"); // {port} stands for the server's port
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("outcome");
        const QString endpoint = u"https://127.0.0.1:{port}/korvane/api/reports"_s, unsupported = u"unsupportedURL"_s;
        const auto delivery = [](const QVariant &value) {
            return QVariantMap{{BundleInfo::reportDeliveryEnabledKey, value}};
        };
        QTest::newRow("delivery key absent") << QVariantMap() << endpoint << u"report"_s << unsupported;
        QTest::newRow("delivery off") << delivery(false) << endpoint << u"report"_s << unsupported;
        QTest::newRow("delivery key as text") << delivery(u"true"_s) << endpoint << u"report"_s << unsupported;
        QTest::newRow("no endpoint configured") << deliveryOn << QString() << u"report"_s << unsupported;
        QTest::newRow("plain http endpoint") << deliveryOn << u"http://127.0.0.1:{port}/korvane/api/reports"_s
                                             << u"report"_s << unsupported;
        QTest::newRow("blank report") << deliveryOn << endpoint << u"\n \n"_s << u"dataLengthExceedsMaximum"_s;
    }

    void nothingIsSentWhenRefusedLocally()
    {
        QFETCH(QVariantMap, bundleInfo);
        QFETCH(QString, endpoint);
        QFETCH(QString, text);
        QFETCH(QString, outcome);
        LocalHttpsServer service;
        service.respond(endpointPath, ScriptedResponse::json(receipt(u"accepted"_s)));
        ServiceConfiguration configuration = service.configuration();
        configuration.reportURL = QUrl(endpoint.replace(u"{port}"_s, QString::number(service.port())));

        QFuture<void> delivery = ReportDelivery::send(reportId, text, configuration, bundleInfo);
        // Refused before any session exists, so no connection can follow.
        QVERIFY(delivery.isFinished());
        QCOMPARE(deliveryOutcome(delivery), outcome);
        QCOMPARE(service.requests().size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestReportDelivery)
#include "tst_reportdelivery.moc"
