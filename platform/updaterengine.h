#pragma once

#include <QObject>
#include <QSet>
#include <QString>

#include <optional>

Q_DECLARE_METATYPE(std::optional<QString>)

// What the updater asks of the launcher during a cycle. The launcher's update controller answers
// every question here, so Sparkle on macOS and the appcast reader on Linux decide alike.
// Called on the main thread.
class UpdaterDelegate {
public:
    virtual ~UpdaterDelegate() = default;
    // The feed's channels besides its default one that this run may install from.
    virtual QSet<QString> allowedChannels() const = 0;
    // Nothing when the check may go ahead, else why it is refused (shown to the user).
    virtual std::optional<QString> mayPerformCheck() = 0;
    virtual void didFindValidUpdate(const QString &displayVersion) = 0;
    virtual void willDownloadUpdate() = 0;
    virtual void didDownloadUpdate() = 0;
    virtual void willExtractUpdate() = 0;
    virtual void willInstallUpdate() = 0;
    virtual void userDidCancelDownload() = 0;
    virtual void didAbortWithError(const QString &description) = 0;
    virtual void didFinishUpdateCycle(const std::optional<QString> &error) = 0;
    // Whether an installed update may restart the launcher now; otherwise it waits for the next
    // start.
    virtual bool shouldRelaunchApplication() = 0;
};

// The updater itself: Sparkle on macOS, our own appcast reader on Linux, a fake in tests.
// Created unstarted; its two observable flags are reported through the signals, always on the
// main thread.
class UpdaterEngine : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    // Begins the updater's own schedule; the flags are reported from here on.
    virtual void start() = 0;
    // A user-requested check, with the updater's own dialogs where it has them.
    virtual void checkForUpdates() = 0;
    virtual bool canCheckForUpdates() const = 0;
    virtual bool sessionInProgress() const = 0;
    virtual bool automaticallyChecksForUpdates() const = 0;
    virtual void setAutomaticallyChecksForUpdates(bool on) = 0;
    // Forgets the feed read so far, so that the next check reads it again (a changed channel).
    virtual void resetUpdateCycleAfterShortDelay() = 0;
    // Where installing is a step the user asks for after a check (the Linux updater), the
    // release the last check found waits for it here. Sparkle asks in its own dialog and never
    // has one waiting.
    virtual bool hasFoundUpdate() const { return false; }
    virtual void installFoundUpdate() {}

Q_SIGNALS:
    void canCheckForUpdatesChanged(bool canCheck);
    void sessionInProgressChanged(bool inProgress);
    // An installation asked for with installFoundUpdate ended: `error` when it failed;
    // `relaunch` when the launcher may restart into the new version now.
    void installFinished(const std::optional<QString> &error, bool relaunch);
};
