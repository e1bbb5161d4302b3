// The report receipt: nothing over the cap is read; an accepted receipt's two texts, sent back
// as a receipt (within the cap), read the same.
#include "fuzzcheck.h"

#include "platform/jsondecoding.h"
#include "sessions/reportdelivery.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {
std::optional<ReportDelivery::Receipt> decoded(const QByteArray &body)
{
    try {
        return ReportDelivery::Receipt::decode(body);
    } catch (const DecodingError &) {
        return std::nullopt;
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = FuzzSupport::bytes(data, size);
    const std::optional<ReportDelivery::Receipt> receipt = decoded(body);
    if (!receipt)
        return 0;
    FUZZ_CHECK(body.size() <= ReportDelivery::maximumReceiptBytes);
    const QJsonObject again{{QStringLiteral("status"), receipt->status}, {QStringLiteral("id"), receipt->id}};
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const QByteArray sentBack = QJsonDocument(again).toJson(format);
        const std::optional<ReportDelivery::Receipt> read = decoded(sentBack);
        if (sentBack.size() > ReportDelivery::maximumReceiptBytes)
            FUZZ_CHECK(!read);
        else
            FUZZ_CHECK(read && read->status == receipt->status && read->id == receipt->id);
    }
    return 0;
}
