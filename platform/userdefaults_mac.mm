#include "platform/userdefaults.h"

#include "platform/plistvalues_mac.h"

#import <Foundation/Foundation.h>

namespace {
// The real user defaults: the system keeps them in the launcher's preferences domain and
// writes them out itself.
class NativeUserDefaults final : public UserDefaults {
public:
    QVariant object(const QString &key) const override
    {
        @autoreleasepool {
            return fromPlist([NSUserDefaults.standardUserDefaults objectForKey:key.toNSString()]);
        }
    }
    void setObject(const QString &key, const QVariant &value) override
    {
        const QVariant stored = normalized(value);
        if (!stored.isValid())
            return;
        @autoreleasepool {
            [NSUserDefaults.standardUserDefaults setObject:toPlist(stored) forKey:key.toNSString()];
        }
    }
    void remove(const QString &key) override
    {
        @autoreleasepool {
            [NSUserDefaults.standardUserDefaults removeObjectForKey:key.toNSString()];
        }
    }
    QStringList keys() const override
    {
        QStringList result;
        @autoreleasepool {
            NSString *domain = NSBundle.mainBundle.bundleIdentifier;
            NSDictionary *values = domain ? [NSUserDefaults.standardUserDefaults persistentDomainForName:domain]
                                          : NSUserDefaults.standardUserDefaults.dictionaryRepresentation;
            for (NSString *key in values)
                result.append(QString::fromNSString(key));
        }
        return result;
    }
};
} // namespace

std::unique_ptr<UserDefaults> UserDefaults::openStandard()
{
    return std::make_unique<NativeUserDefaults>();
}
