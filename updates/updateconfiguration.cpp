#include "updates/updateconfiguration.h"

#include "platform/bundleinfo.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

bool isString(const QVariant &value)
{
    return value.typeId() == QMetaType::QString;
}

bool isFeedURL(const QVariant &value)
{
    if (!isString(value))
        return false;
    const QUrl url(value.toString(), QUrl::StrictMode);
    return url.isValid() && url.scheme() == u"https" && !url.host().isEmpty() && url.userName().isEmpty()
        && url.password().isEmpty();
}

bool isPublicKey(const QVariant &value)
{
    // Padding is required: a 32-byte key is 44 characters ending in one "=".
    if (!isString(value) || value.toString().size() % 4 != 0)
        return false;
    // AbortOnBase64DecodingErrors refuses every character outside the alphabet (line breaks and
    // blanks included) and bad padding; the URL-safe alphabet is not standard base64.
    const auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                        QByteArray::Base64Encoding
                                                            | QByteArray::AbortOnBase64DecodingErrors);
    // toLatin1 would turn a character beyond Latin-1 into '?', which the decoder refuses anyway.
    return decoded && decoded.decoded.size() == 32;
}

} // namespace

bool UpdateConfiguration::isReady(const QVariantMap &info)
{
    return !info.isEmpty() && isFeedURL(info.value(BundleInfo::feedURLKey))
        && isPublicKey(info.value(BundleInfo::publicEDKeyKey));
}

QVariantMap UpdateConfiguration::withOverrides(QVariantMap info, const QProcessEnvironment &environment)
{
    if (environment.contains(u"KORVANE_FEED_URL"_s))
        info.insert(BundleInfo::feedURLKey, environment.value(u"KORVANE_FEED_URL"_s));
    if (environment.contains(u"KORVANE_PUBLIC_ED_KEY"_s))
        info.insert(BundleInfo::publicEDKeyKey, environment.value(u"KORVANE_PUBLIC_ED_KEY"_s));
    return info;
}

QString UpdateConfiguration::releaseChannel(const QVariantMap &info)
{
    const QVariant label = info.value(BundleInfo::releaseChannelKey);
    if (!isString(label) || label.toString().isEmpty())
        return u"development"_s;
    return label.toString();
}
