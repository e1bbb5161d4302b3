#include "updates/appcast.h"

#include "updates/ed25519.h"
#include "updates/sparkleversion.h"

#include <QXmlStreamReader>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

struct Enclosure {
    QString operatingSystem;
    QString url;
    QString length;
    QString signature;
    QString version;
    QString shortVersion;
};

struct RawItem {
    QString title;
    QString version;
    QString shortVersion;
    QString channel;
    QList<Enclosure> enclosures;
};

bool isPlain(const QXmlStreamReader &xml, QStringView name)
{
    return xml.name() == name && xml.namespaceUri().isEmpty();
}

bool isSparkle(const QXmlStreamReader &xml, QStringView name)
{
    return xml.name() == name && xml.namespaceUri() == Appcast::sparkleNamespace;
}

QString text(QXmlStreamReader &xml)
{
    return xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
}

Enclosure readEnclosure(QXmlStreamReader &xml)
{
    const QXmlStreamAttributes attributes = xml.attributes();
    const auto sparkle = [&](QLatin1StringView name) {
        return attributes.value(Appcast::sparkleNamespace, name).toString().trimmed();
    };
    Enclosure enclosure;
    enclosure.operatingSystem = sparkle("os"_L1);
    if (enclosure.operatingSystem.isEmpty())
        enclosure.operatingSystem = u"macos"_s;
    enclosure.url = attributes.value("url"_L1).toString().trimmed();
    enclosure.length = attributes.value("length"_L1).toString().trimmed();
    enclosure.signature = sparkle("edSignature"_L1);
    enclosure.version = sparkle("version"_L1);
    enclosure.shortVersion = sparkle("shortVersionString"_L1);
    xml.skipCurrentElement();
    return enclosure;
}

RawItem readItem(QXmlStreamReader &xml)
{
    RawItem item;
    while (xml.readNextStartElement()) {
        if (isPlain(xml, u"title"))
            item.title = text(xml);
        else if (isSparkle(xml, u"version"))
            item.version = text(xml);
        else if (isSparkle(xml, u"shortVersionString"))
            item.shortVersion = text(xml);
        else if (isSparkle(xml, u"channel"))
            item.channel = text(xml);
        else if (isPlain(xml, u"enclosure"))
            item.enclosures.append(readEnclosure(xml));
        else
            xml.skipCurrentElement();
    }
    return item;
}

bool isDownloadUrl(const QUrl &url)
{
    return url.isValid() && url.scheme() == u"https" && !url.host().isEmpty() && url.userInfo().isEmpty();
}

// The release this item offers for `operatingSystem`, when it names everything a download needs.
std::optional<AppcastItem> release(const RawItem &raw, const QString &operatingSystem)
{
    const auto enclosure = std::find_if(raw.enclosures.cbegin(), raw.enclosures.cend(),
        [&](const Enclosure &candidate) { return candidate.operatingSystem == operatingSystem; });
    if (enclosure == raw.enclosures.cend())
        return std::nullopt;

    AppcastItem item;
    item.title = raw.title;
    // The enclosure's own attributes describe the very archive; the item's elements are the
    // other spelling Sparkle accepts.
    item.version = enclosure->version.isEmpty() ? raw.version : enclosure->version;
    item.shortVersion = enclosure->shortVersion.isEmpty() ? raw.shortVersion : enclosure->shortVersion;
    item.channel = raw.channel;
    item.url = QUrl(enclosure->url, QUrl::StrictMode);
    bool lengthOk = false;
    item.length = enclosure->length.toLongLong(&lengthOk);
    const auto signature = QByteArray::fromBase64Encoding(enclosure->signature.toLatin1(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
    if (item.version.isEmpty() || !isDownloadUrl(item.url) || !lengthOk || item.length <= 0 || !signature
        || signature.decoded.size() != Ed25519::signatureSize)
        return std::nullopt;
    item.edSignature = signature.decoded;
    return item;
}

void readChannel(QXmlStreamReader &xml, const QString &operatingSystem, QList<AppcastItem> &items)
{
    while (xml.readNextStartElement()) {
        if (!isPlain(xml, u"item")) {
            xml.skipCurrentElement();
            continue;
        }
        if (auto item = release(readItem(xml), operatingSystem))
            items.append(std::move(*item));
    }
}

[[noreturn]] void throwMalformed(const QXmlStreamReader &xml)
{
    throw AppcastError(AppcastError::malformed,
                       u"line %1: %2"_s.arg(xml.lineNumber()).arg(xml.errorString()));
}

} // namespace

const char *AppcastError::what() const noexcept
{
    switch (m_code) {
    case tooLarge:
        return "the update feed is too large";
    case malformed:
        return "the update feed is not well-formed XML";
    case notAFeed:
        return "the update feed is not an RSS channel";
    }
    return "the update feed was refused";
}

QString Appcast::currentOperatingSystem()
{
#ifdef Q_OS_MACOS
    return u"macos"_s;
#else
    return u"linux"_s;
#endif
}

QList<AppcastItem> Appcast::parse(const QByteArray &data, const QString &operatingSystem)
{
    if (data.size() > maximumFeedSize)
        throw AppcastError(AppcastError::tooLarge, u"%1 bytes"_s.arg(data.size()));

    QXmlStreamReader xml(data);
    // A document type could declare entities that expand without end; a feed never needs one.
    while (!xml.atEnd() && xml.tokenType() != QXmlStreamReader::StartElement) {
        if (xml.readNext() == QXmlStreamReader::DTD)
            throw AppcastError(AppcastError::malformed, u"a document type declaration"_s);
    }
    if (xml.hasError())
        throwMalformed(xml);
    if (xml.tokenType() != QXmlStreamReader::StartElement || !isPlain(xml, u"rss"))
        throw AppcastError(AppcastError::notAFeed, u"the root element is not rss"_s);

    QList<AppcastItem> items;
    bool sawChannel = false;
    while (xml.readNextStartElement()) {
        if (isPlain(xml, u"channel")) {
            sawChannel = true;
            readChannel(xml, operatingSystem, items);
        } else {
            xml.skipCurrentElement();
        }
    }
    // Whatever follows the root must be well-formed too: the document is taken whole or not at all.
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        throwMalformed(xml);
    if (!sawChannel)
        throw AppcastError(AppcastError::notAFeed, u"no channel element"_s);
    return items;
}

std::optional<AppcastItem> Appcast::best(const QList<AppcastItem> &items, const QSet<QString> &allowedChannels,
                                         const QString &runningVersion)
{
    std::optional<AppcastItem> newest;
    for (const AppcastItem &item : items) {
        if (!item.channel.isEmpty() && !allowedChannels.contains(item.channel))
            continue;
        if (SparkleVersion::compare(item.version, runningVersion) <= 0)
            continue;
        if (!newest || SparkleVersion::compare(item.version, newest->version) > 0)
            newest = item;
    }
    return newest;
}
