#include "platform/paths.h"

#include "platform/bundlelocation_mac.h"

#include <QDir>

#import <Foundation/Foundation.h>

Paths Paths::platformDefaults()
{
    Paths paths;
    @autoreleasepool {
        paths.loginName = QString::fromNSString(NSUserName());
        // A program outside any bundle (korvanectl in the build tree, the tests) follows $HOME
        // and finds its resources as on Linux, so that a test home works.
        if (!runsInsideApplicationBundle()) {
            paths.home = QDir::cleanPath(QDir::homePath());
            paths.applicationSupport = paths.home + QStringLiteral("/Library/Application Support");
            paths.resources = resourcesBesideProgram();
            return paths;
        }
        paths.home = QString::fromNSString(NSHomeDirectory());
        NSArray<NSURL *> *support = [NSFileManager.defaultManager URLsForDirectory:NSApplicationSupportDirectory
                                                                         inDomains:NSUserDomainMask];
        paths.applicationSupport = support.count > 0
            ? QString::fromNSString(support.firstObject.path)
            : paths.home + QStringLiteral("/Library/Application Support");
        paths.resources = QString::fromNSString(applicationBundleResources());
    }
    return paths;
}
