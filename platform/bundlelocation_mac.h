#pragma once

#import <Foundation/Foundation.h>

// Whether the running program is an executable in an application bundle's Contents/MacOS: the
// launcher itself, or korvanectl shipped beside it. Decided from the path, because whether the
// system takes the enclosing bundle as the main bundle of a second executable is not something
// the launcher should rest on.
inline bool runsInsideApplicationBundle()
{
    @autoreleasepool {
        NSString *folder = NSBundle.mainBundle.executablePath.stringByDeletingLastPathComponent;
        return [folder hasSuffix:@".app/Contents/MacOS"];
    }
}

// Contents/Resources of that bundle.
inline NSString *applicationBundleResources()
{
    NSString *contents = NSBundle.mainBundle.executablePath.stringByDeletingLastPathComponent
                             .stringByDeletingLastPathComponent;
    return [contents stringByAppendingPathComponent:@"Resources"];
}
