#include "platform/paths.h"

#include <QDir>

#import <Foundation/Foundation.h>

Paths Paths::platformDefaults()
{
    Paths paths;
    @autoreleasepool {
        paths.home = QString::fromNSString(NSHomeDirectory());
        paths.loginName = QString::fromNSString(NSUserName());
        NSArray<NSURL *> *support = [NSFileManager.defaultManager URLsForDirectory:NSApplicationSupportDirectory
                                                                         inDomains:NSUserDomainMask];
        paths.applicationSupport = support.count > 0
            ? QString::fromNSString(support.firstObject.path)
            : paths.home + QStringLiteral("/Library/Application Support");
        NSString *resources = NSBundle.mainBundle.resourcePath;
        if (resources)
            paths.resources = QString::fromNSString(resources);
    }
    return paths;
}
