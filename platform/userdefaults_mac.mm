#include "platform/userdefaults.h"

#include "platform/bundlelocation_mac.h"
#include "platform/plistvalues_mac.h"

#include "kvn_buildconfig.h"

#import <Foundation/Foundation.h>

namespace {
// The real user defaults of the application's domain; the system keeps them and writes them out
// itself.
class NativeUserDefaults final : public UserDefaults {
public:
    NativeUserDefaults(NSUserDefaults *store, NSString *domain)
        : m_store(store)
        , m_domain(domain)
    {
    }

    QVariant object(const QString &key) const override
    {
        @autoreleasepool {
            return fromPlist([m_store objectForKey:key.toNSString()]);
        }
    }
    void setObject(const QString &key, const QVariant &value) override
    {
        const QVariant stored = normalized(value);
        if (!stored.isValid())
            return;
        @autoreleasepool {
            [m_store setObject:toPlist(stored) forKey:key.toNSString()];
        }
    }
    void remove(const QString &key) override
    {
        @autoreleasepool {
            [m_store removeObjectForKey:key.toNSString()];
        }
    }
    QStringList keys() const override
    {
        QStringList result;
        @autoreleasepool {
            // Only the domain's own keys, not those of the global domain it also reads.
            NSDictionary *values = [m_store persistentDomainForName:m_domain];
            for (NSString *key in values)
                result.append(QString::fromNSString(key));
        }
        return result;
    }

private:
    NSUserDefaults *m_store;
    NSString *m_domain;
};
} // namespace

std::unique_ptr<UserDefaults> UserDefaults::openStandard()
{
    // Outside the bundle (korvanectl in the build tree, the tests) the store is the JSON
    // document under $HOME, so that a test never writes the developer's real preferences.
    if (!runsInsideApplicationBundle())
        return std::make_unique<JsonUserDefaults>(JsonUserDefaults::standardLocation());
    @autoreleasepool {
        NSString *application = @KVN_BUNDLE_IDENTIFIER;
        // A program's standard store is its main bundle's domain: the application's for the
        // launcher. korvanectl may not count as part of the bundle, so it names the application's
        // suite (the system refuses a suite named after the running bundle itself).
        if ([NSBundle.mainBundle.bundleIdentifier isEqualToString:application])
            return std::make_unique<NativeUserDefaults>(NSUserDefaults.standardUserDefaults, application);
        return std::make_unique<NativeUserDefaults>([[NSUserDefaults alloc] initWithSuiteName:application],
                                                    application);
    }
}
