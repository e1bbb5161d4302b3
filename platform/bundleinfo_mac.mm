#include "platform/bundleinfo.h"

#import <Foundation/Foundation.h>

namespace {
QVariant fromPlist(id value)
{
    if ([value isKindOfClass:NSString.class])
        return QString::fromNSString(value);
    if ([value isKindOfClass:NSNumber.class]) {
        NSNumber *number = value;
        if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID())
            return bool(number.boolValue);
        return qint64(number.longLongValue);
    }
    return {};
}
} // namespace

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
