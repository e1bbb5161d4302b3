#include "platform/bundleinfo.h"

#include "platform/plistvalues_mac.h"

#import <Foundation/Foundation.h>


QVariantMap BundleInfo::main()
{
    QVariantMap result = compiledIn();
    @autoreleasepool {
        NSDictionary *info = NSBundle.mainBundle.infoDictionary;
        // Outside a bundle (korvanectl in the build tree) the compiled-in values hold.
        if (!info[@"CFBundleShortVersionString"])
            return result;
        for (const QString &key : result.keys()) {
            const QVariant value = fromPlist(info[key.toNSString()]);
            if (value.isValid())
                result.insert(key, value);
            else
                result.remove(key);
        }
    }
    return result;
}
