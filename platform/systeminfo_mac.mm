#include "platform/systeminfo.h"

#import <Foundation/Foundation.h>

QString SystemInfo::operatingSystemVersion()
{
    @autoreleasepool {
        return QString::fromNSString(NSProcessInfo.processInfo.operatingSystemVersionString);
    }
}

std::optional<QString> SystemInfo::crossOverVersion()
{
    @autoreleasepool {
        NSBundle *bundle = [NSBundle bundleWithPath:@"/Applications/CrossOver.app"];
        id value = [bundle objectForInfoDictionaryKey:@"CFBundleShortVersionString"];
        if (![value isKindOfClass:NSString.class])
            return std::nullopt;
        return QString::fromNSString(static_cast<NSString *>(value));
    }
}
