#include "sessions/reportdelivery.h"

#include "platform/jsondecoding.h"
#include "platform/recordcoding.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QPromise>

using namespace Qt::StringLiterals;

namespace {

void failPromise(QPromise<void> &promise, std::exception_ptr error)
{
    promise.setException(error);
    promise.finish();
}

void checkAnswer(const HttpResult &answer, const QUrl &endpoint, const QUuid &id)
{
    if (answer.error)
        throw *answer.error;
    if (answer.status != 200 || answer.finalUrl != endpoint)
        throw UrlError(UrlError::badServerResponse);
    const ReportDelivery::Receipt receipt = ReportDelivery::Receipt::decode(answer.body);
    // UUID text is case-insensitive; a service that echoes it in capitals still means this id.
    if (receipt.id.size() != 36 || QUuid::fromString(receipt.id) != id || receipt.status != "accepted"_L1)
        throw UrlError(UrlError::cannotParseResponse, u"the receipt does not acknowledge this report"_s);
}

} // namespace

QByteArray ReportDelivery::Payload::encoded() const
{
    // QJsonObject orders its members by name; the service's schema fixes this order instead.
    return RecordCoding::orderedObject(
        {{u"schema"_s, schema}, {u"id"_s, RecordCoding::uuidText(id)}, {u"report"_s, report}});
}

ReportDelivery::Receipt ReportDelivery::Receipt::decode(const QByteArray &body)
{
    // The delivery stops reading at the cap; a receipt that comes another way is held to it too.
    if (body.size() > maximumReceiptBytes)
        throw DecodingError(u"the receipt is longer than %1 bytes"_s.arg(maximumReceiptBytes));
    const QJsonObject object = JsonDecoding::object(body);
    const QJsonValue status = object.value("status"_L1);
    const QJsonValue id = object.value("id"_L1);
    if (!status.isString() || !id.isString())
        throw DecodingError(u"the receipt lacks its status or id"_s);
    return {status.toString(), id.toString()};
}

QString ReportDelivery::recipient(const ServiceConfiguration &service)
{
    return service.reportRecipient;
}

QUrl ReportDelivery::endpoint(const ServiceConfiguration &service)
{
    return service.reportURL;
}

bool ReportDelivery::enabled(const QVariantMap &bundleInfo)
{
    const QVariant value = bundleInfo.value(BundleInfo::reportDeliveryEnabledKey);
    return value.typeId() == QMetaType::Bool && value.toBool();
}

QByteArray ReportDelivery::payload(const QUuid &id, const QString &text)
{
    if (text.trimmed().isEmpty())
        throw UrlError(UrlError::dataLengthExceedsMaximum, u"the report is empty"_s);
    if (text.toUtf8().size() > maximumReportBytes)
        throw UrlError(UrlError::dataLengthExceedsMaximum, u"the report is too long"_s);
    QByteArray body = Payload{1, id, text}.encoded();
    if (body.size() > maximumRequestBytes)
        throw UrlError(UrlError::dataLengthExceedsMaximum, u"the encoded report is too long"_s);
    return body;
}

QFuture<void> ReportDelivery::send(const QUuid &id, const QString &text, const ServiceConfiguration &service,
                                   const QVariantMap &bundleInfo)
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    QFuture<void> future = promise->future();

    const QUrl target = endpoint(service);
    if (!enabled(bundleInfo) || !target.isValid() || target.scheme() != "https"_L1 || target.host().isEmpty()) {
        failPromise(*promise, std::make_exception_ptr(UrlError(UrlError::unsupportedURL)));
        return future;
    }
    HttpRequest request;
    request.url = target;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/json"}};
    request.maximumBodySize = maximumReceiptBytes;
    try {
        request.body = payload(id, text);
    } catch (...) {
        failPromise(*promise, std::current_exception());
        return future;
    }

    // A session of its own per delivery, gone with it: nothing of one report's exchange is
    // kept for the next. Parented to the application so that a quit mid-transfer frees it.
    auto *session = new HttpSession({service.timeouts(standardTimeouts), std::make_shared<NoReportRedirects>(),
                                     service.tls},
                                    QCoreApplication::instance());
    HttpTask *task = session->start(request);
    QObject::connect(task, &HttpTask::finished, session, [session, promise, target, id](const HttpResult &answer) {
        try {
            checkAnswer(answer, target, id);
            promise->finish();
        } catch (...) {
            failPromise(*promise, std::current_exception());
        }
        session->invalidateAndCancel();
        session->deleteLater();
    });
    return future;
}
