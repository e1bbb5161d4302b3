#pragma once

#include "platform/bundleinfo.h"
#include "platform/httpsession.h"
#include "platform/serviceconfiguration.h"

#include <QByteArray>
#include <QFuture>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <QVariantMap>

// Refuses every redirect, so that a report is only ever posted to the endpoint itself and a
// 3xx answer ends the delivery as a failure.
class NoReportRedirects final : public RedirectPolicy {
public:
    bool allowsRedirect(const QUrl &) const override { return false; }
};

// Sending a failure report to the maintainers' report service, only when the build enables it
// and the user has agreed.
namespace ReportDelivery {

inline constexpr qint64 maximumReportBytes = 96'000;
inline constexpr qint64 maximumRequestBytes = 131'072;
inline constexpr qint64 maximumReceiptBytes = 4'096;
inline constexpr HttpTimeouts standardTimeouts{std::chrono::seconds(40), std::chrono::seconds(45)};

// The request body: {"schema":1,"id":"…","report":"…"}, members in that order.
struct Payload {
    int schema = 1;
    QUuid id;
    QString report;

    QByteArray encoded() const;
};

// The service's acknowledgement; other members are ignored.
struct Receipt {
    QString status;
    QString id;

    // Throws DecodingError unless the body is an object with both members as text.
    static Receipt decode(const QByteArray &body);
};

QString recipient(const ServiceConfiguration &service);
QUrl endpoint(const ServiceConfiguration &service);
// "KVNReportDeliveryEnabled" of the information dictionary; false unless it is a boolean true.
bool enabled(const QVariantMap &bundleInfo);

// The request body, or UrlError(dataLengthExceedsMaximum) for a blank or oversized report.
QByteArray payload(const QUuid &id, const QString &text);

// Posts the report and checks the receipt. The future finishes on the calling thread (which
// needs an event loop); it carries a UrlError or DecodingError on failure. Nothing is sent when
// delivery is disabled, the endpoint is not https or the payload is refused.
QFuture<void> send(const QUuid &id, const QString &text, const ServiceConfiguration &service,
                   const QVariantMap &bundleInfo = BundleInfo::main());

} // namespace ReportDelivery
