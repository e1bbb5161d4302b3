#include "platform/bundleinfo.h"

#include "platform/plistvalues_mac.h"

#import <Foundation/Foundation.h>


QVariantMap BundleInfo::main()
{
    QVariantMap result = compiledIn();
    @autoreleasepool {
        NSDictionary *info = NSBundle.mainBundle.infoDictionary;
        // korvanectl is not inside a bundle: it keeps the compiled-in values.
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
