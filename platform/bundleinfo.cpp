#include "platform/bundleinfo.h"

#include "kvn_buildconfig.h"

QVariantMap BundleInfo::compiledIn()
{
    return {
        {shortVersionKey, QStringLiteral(KVN_SHORT_VERSION)},
        {buildVersionKey, QStringLiteral(KVN_BUILD_VERSION)},
        {feedURLKey, QStringLiteral(KVN_FEED_URL)},
        {publicEDKeyKey, QStringLiteral(KVN_PUBLIC_ED_KEY)},
        {reportDeliveryEnabledKey, bool(KVN_REPORT_DELIVERY_ENABLED)},
        {releaseChannelKey, QStringLiteral(KVN_RELEASE_CHANNEL)},
    };
}
