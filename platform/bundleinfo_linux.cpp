#include "platform/bundleinfo.h"

QVariantMap BundleInfo::main()
{
    return compiledIn();
}
