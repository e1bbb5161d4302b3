// The report receipt: an accepted receipt's two texts, sent back as a receipt, read the same.
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
    const std::optional<ReportDelivery::Receipt> receipt = decoded(FuzzSupport::bytes(data, size));
    if (!receipt)
        return 0;
    const QJsonObject again{{QStringLiteral("status"), receipt->status}, {QStringLiteral("id"), receipt->id}};
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const std::optional<ReportDelivery::Receipt> read = decoded(QJsonDocument(again).toJson(format));
        FUZZ_CHECK(read && read->status == receipt->status && read->id == receipt->id);
    }
    return 0;
}
