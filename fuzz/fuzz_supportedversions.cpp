// The supported-versions answer: an accepted answer carries two valid patterns, and the same
// two texts sent again are accepted again unchanged; one byte over the cap is refused whole.
#include "fuzzcheck.h"
#include "serviceanswer.h"

#include "games/compatibilityservice.h"
#include "platform/jsondecoding.h"
#include "platform/urlerror.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {
std::optional<SupportedVersions> parsed(const QByteArray &body, UrlError::Code *refusal = nullptr)
{
    return decodedAnswer([](const QByteArray &answer) { return SupportedVersions::parse(answer); }, body, refusal);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    QByteArray body = R"({"supported_game_version":"1.53.3.14s","supported_ats_game_version":"1.53.*"})";
    body.append(QByteArray(SupportedVersions::maximumBodySize - body.size(), '\n'));
    FUZZ_CHECK(parsed(body));
    body.append('\n');
    UrlError::Code refusal = UrlError::unknown;
    FUZZ_CHECK(!parsed(body, &refusal) && refusal == UrlError::dataLengthExceedsMaximum);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<SupportedVersions> versions = parsed(FuzzSupport::bytes(data, size));
    if (!versions)
        return 0;
    for (const QString &pattern : {versions->ets2, versions->ats}) {
        const std::optional<QStringList> pieces = GameVersion::supportedParts(pattern);
        FUZZ_CHECK(pieces && pieces->size() >= 2 && pieces->size() <= 4);
        // Whatever the pattern, a four-part version either matches it or not: never "unknown".
        FUZZ_CHECK(GameVersion({1, 2, 3, 4}).matches(pattern).has_value());
    }
    const QJsonObject again{{QStringLiteral("supported_game_version"), versions->ets2},
                            {QStringLiteral("supported_ats_game_version"), versions->ats}};
    FUZZ_CHECK(parsed(QJsonDocument(again).toJson()) == versions);
    return 0;
}
