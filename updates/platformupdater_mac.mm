#include "updates/platformupdater.h"

#include "platform/bundleinfo.h"

#import <Foundation/Foundation.h>
#import <Sparkle/Sparkle.h>

#include <QMetaObject>

class SparkleUpdaterEngine;

// Sparkle's updater delegate: every question is answered by the launcher's update controller.
// Sparkle calls these on the main thread.
@interface KVNUpdaterDelegate : NSObject <SPUUpdaterDelegate>
- (instancetype)initWithDelegate:(UpdaterDelegate *)delegate feedURL:(NSString *)feedURL;
@end

@implementation KVNUpdaterDelegate {
    UpdaterDelegate *_delegate;
    NSString *_feedURL;
}

- (instancetype)initWithDelegate:(UpdaterDelegate *)delegate feedURL:(NSString *)feedURL
{
    if ((self = [super init])) {
        _delegate = delegate;
        _feedURL = feedURL;
    }
    return self;
}

// The feed the controller judged usable, KORVANE_FEED_URL included; the public key can only
// come from the bundle's Info.plist, so a feed override needs releases signed with that key.
- (NSString *)feedURLStringForUpdater:(SPUUpdater *)updater
{
    return _feedURL;
}

- (NSSet<NSString *> *)allowedChannelsForUpdater:(SPUUpdater *)updater
{
    NSMutableSet<NSString *> *channels = [NSMutableSet set];
    for (const QString &channel : _delegate->allowedChannels())
        [channels addObject:channel.toNSString()];
    return channels;
}

- (BOOL)updater:(SPUUpdater *)updater mayPerformUpdateCheck:(SPUUpdateCheck)updateCheck error:(NSError **)error
{
    const std::optional<QString> refusal = _delegate->mayPerformCheck();
    if (!refusal)
        return YES;
    if (error)
        *error = [NSError errorWithDomain:@"Korvane.Updates"
                                     code:1
                                 userInfo:@{NSLocalizedDescriptionKey: refusal->toNSString()}];
    return NO;
}

- (void)updater:(SPUUpdater *)updater didFindValidUpdate:(SUAppcastItem *)item
{
    _delegate->didFindValidUpdate(QString::fromNSString(item.displayVersionString));
}

- (void)updater:(SPUUpdater *)updater willDownloadUpdate:(SUAppcastItem *)item withRequest:(NSMutableURLRequest *)request
{
    _delegate->willDownloadUpdate();
}

- (void)updater:(SPUUpdater *)updater didDownloadUpdate:(SUAppcastItem *)item
{
    _delegate->didDownloadUpdate();
}

- (void)updater:(SPUUpdater *)updater willExtractUpdate:(SUAppcastItem *)item
{
    _delegate->willExtractUpdate();
}

- (void)updater:(SPUUpdater *)updater willInstallUpdate:(SUAppcastItem *)item
{
    _delegate->willInstallUpdate();
}

- (void)userDidCancelDownload:(SPUUpdater *)updater
{
    _delegate->userDidCancelDownload();
}

- (void)updater:(SPUUpdater *)updater didAbortWithError:(NSError *)error
{
    _delegate->didAbortWithError(QString::fromNSString(error.localizedDescription));
}

- (void)updater:(SPUUpdater *)updater
    didFinishUpdateCycleForUpdateCheck:(SPUUpdateCheck)updateCheck
                                 error:(NSError *)error
{
    if (error)
        _delegate->didFinishUpdateCycle(QString::fromNSString(error.localizedDescription));
    else
        _delegate->didFinishUpdateCycle(std::nullopt);
}

- (BOOL)updaterShouldRelaunchApplication:(SPUUpdater *)updater
{
    return _delegate->shouldRelaunchApplication();
}

@end

// Watches the updater's two observable flags and hands every value to the engine on the main
// thread, whichever thread Sparkle changed it on.
@interface KVNUpdaterObserver : NSObject
- (instancetype)initWithEngine:(SparkleUpdaterEngine *)engine;
- (void)detach;
@end

class SparkleUpdaterEngine final : public UpdaterEngine {
public:
    SparkleUpdaterEngine(UpdaterDelegate &delegate, const QString &feedURL)
    {
        m_delegate = [[KVNUpdaterDelegate alloc] initWithDelegate:&delegate feedURL:feedURL.toNSString()];
        // Not started: the controller waits until the launcher model exists and the flags are
        // observed, so no scheduled check runs before anyone can refuse it.
        m_controller = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:NO
                                                                     updaterDelegate:m_delegate
                                                                  userDriverDelegate:nil];
        m_observer = [[KVNUpdaterObserver alloc] initWithEngine:this];
        for (NSString *key in observedKeys())
            [m_controller.updater addObserver:m_observer forKeyPath:key options:NSKeyValueObservingOptionNew context:nil];
    }

    ~SparkleUpdaterEngine() override
    {
        for (NSString *key in observedKeys())
            [m_controller.updater removeObserver:m_observer forKeyPath:key];
        [m_observer detach];
    }

    void start() override { [m_controller startUpdater]; }
    void checkForUpdates() override { [m_controller checkForUpdates:nil]; }
    bool canCheckForUpdates() const override { return m_controller.updater.canCheckForUpdates; }
    bool sessionInProgress() const override { return m_controller.updater.sessionInProgress; }
    bool automaticallyChecksForUpdates() const override { return m_controller.updater.automaticallyChecksForUpdates; }
    void setAutomaticallyChecksForUpdates(bool on) override { m_controller.updater.automaticallyChecksForUpdates = on; }
    void resetUpdateCycleAfterShortDelay() override { [m_controller.updater resetUpdateCycleAfterShortDelay]; }

    // From the observer, on any thread.
    void report(NSString *key)
    {
        const bool canCheck = m_controller.updater.canCheckForUpdates;
        const bool inProgress = m_controller.updater.sessionInProgress;
        const bool isCanCheck = [key isEqualToString:@"canCheckForUpdates"];
        // Queued with the engine as context: dropped when the engine is gone meanwhile.
        QMetaObject::invokeMethod(
            this,
            [this, isCanCheck, canCheck, inProgress] {
                if (isCanCheck)
                    Q_EMIT canCheckForUpdatesChanged(canCheck);
                else
                    Q_EMIT sessionInProgressChanged(inProgress);
            },
            Qt::QueuedConnection);
    }

private:
    static NSArray<NSString *> *observedKeys() { return @[@"canCheckForUpdates", @"sessionInProgress"]; }

    // Sparkle holds its delegate weakly; the engine keeps it alive.
    KVNUpdaterDelegate *m_delegate;
    SPUStandardUpdaterController *m_controller;
    KVNUpdaterObserver *m_observer;
};

@implementation KVNUpdaterObserver {
    SparkleUpdaterEngine *_engine;
}

- (instancetype)initWithEngine:(SparkleUpdaterEngine *)engine
{
    if ((self = [super init]))
        _engine = engine;
    return self;
}

- (void)detach
{
    _engine = nullptr;
}

- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id> *)change
                       context:(void *)context
{
    if (_engine)
        _engine->report(keyPath);
}

@end

std::unique_ptr<UpdaterEngine> PlatformUpdater::make(UpdaterDelegate &delegate, const QVariantMap &info, UserDefaults &)
{
    return std::make_unique<SparkleUpdaterEngine>(delegate, info.value(BundleInfo::feedURLKey).toString());
}

ApplicationCopy PlatformUpdater::applicationCopy(const QVariantMap &)
{
    return ApplicationCopy::system();
}

bool PlatformUpdater::managedBySystem(const QString &)
{
    // A bundle dragged to Applications is the user's own; Sparkle replaces it.
    return false;
}
