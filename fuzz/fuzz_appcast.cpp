// The update feed: every item the reader keeps is installable (a version, an https archive of
// positive length, a 64-byte signature), the choice of the newest is one of them, and a feed
// one byte over the cap is refused before parsing.
#include "fuzzcheck.h"

#include "updates/appcast.h"
#include "updates/sparkleversion.h"

namespace {
std::optional<QList<AppcastItem>> parsed(const QByteArray &xml, const QString &system,
                                         AppcastError::Code *refusal = nullptr)
{
    try {
        return Appcast::parse(xml, system);
    } catch (const AppcastError &error) {
        if (refusal)
            *refusal = error.code();
        return std::nullopt;
    }
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    QByteArray feed = R"(<?xml version="1.0"?><rss version="2.0"><channel><title>t</title></channel></rss>)";
    feed.append(QByteArray(Appcast::maximumFeedSize - feed.size(), '\n'));
    FUZZ_CHECK(parsed(feed, QStringLiteral("linux")));
    feed.append('\n');
    AppcastError::Code refusal = AppcastError::notAFeed;
    FUZZ_CHECK(!parsed(feed, QStringLiteral("linux"), &refusal) && refusal == AppcastError::tooLarge);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray xml = FuzzSupport::bytes(data, size);
    for (const QString &system : {QStringLiteral("linux"), QStringLiteral("macos")}) {
        const std::optional<QList<AppcastItem>> items = parsed(xml, system);
        if (!items)
            continue;
        for (const AppcastItem &item : *items) {
            FUZZ_CHECK(!item.version.isEmpty());
            FUZZ_CHECK(item.url.isValid() && item.url.scheme() == QLatin1String("https") && !item.url.host().isEmpty());
            FUZZ_CHECK(item.length > 0);
            FUZZ_CHECK(item.edSignature.size() == 64);
            FUZZ_CHECK(!item.displayVersion().isEmpty());
        }
        QSet<QString> channels;
        for (const AppcastItem &item : *items)
            channels.insert(item.channel);
        for (const QString &running : {QStringLiteral("0"), QStringLiteral("1.0"), QStringLiteral("999999")}) {
            const std::optional<AppcastItem> newest = Appcast::best(*items, channels, running);
            if (!newest)
                continue;
            bool listed = false;
            for (const AppcastItem &item : *items)
                listed = listed || (item.version == newest->version && item.url == newest->url);
            FUZZ_CHECK(listed);
            // Newer than what runs, and no kept item is newer than it.
            FUZZ_CHECK(SparkleVersion::compare(newest->version, running) > 0);
            for (const AppcastItem &item : *items)
                FUZZ_CHECK(SparkleVersion::compare(item.version, newest->version) <= 0);
        }
    }
    return 0;
}
