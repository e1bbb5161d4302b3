#include "platform/bundleinfo.h"

#include "kvn_buildconfig.h"

QVariantMap BundleInfo::compiledIn()
{
    return {
        {identifierKey, QStringLiteral(KVN_BUNDLE_IDENTIFIER)},
        {shortVersionKey, QStringLiteral(KVN_SHORT_VERSION)},
        {buildVersionKey, QStringLiteral(KVN_BUILD_VERSION)},
        {feedURLKey, QStringLiteral(KVN_FEED_URL)},
        {publicEDKeyKey, QStringLiteral(KVN_PUBLIC_ED_KEY)},
        {reportDeliveryEnabledKey, bool(KVN_REPORT_DELIVERY_ENABLED)},
        {releaseChannelKey, QStringLiteral(KVN_RELEASE_CHANNEL)},
    };
}

QString BundleInfo::versionText(const QVariantMap &info)
{
    const QVariant shortVersion = info.value(shortVersionKey);
    if (shortVersion.typeId() != QMetaType::QString || shortVersion.toString().isEmpty())
        return QStringLiteral("development");
    const QVariant build = info.value(buildVersionKey);
    if (build.typeId() != QMetaType::QString || build.toString().isEmpty())
        return shortVersion.toString();
    return shortVersion.toString() + QStringLiteral(" (") + build.toString() + u')';
}
