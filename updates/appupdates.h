#pragma once

#include "platform/applicationcopy.h"
#include "platform/paths.h"
#include "platform/updaterengine.h"
#include "preferences/l10n.h"
#include "updates/updatechannel.h"

#include <QPointer>
#include <QProcessEnvironment>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

class Clock;
class Desktop;
class LauncherModel;
class UserDefaults;

// Everything the update controller reaches outside itself.
struct AppUpdatesContext {
    UserDefaults &defaults;
    const Clock &clock;
    // The application's information dictionary as built; KORVANE_FEED_URL and
    // KORVANE_PUBLIC_ED_KEY in `environment` replace its feed and key.
    QVariantMap info{};
    QProcessEnvironment environment{};
    Paths paths{};
    // Makes the updater of a configured build (null: none on this platform yet). Called once,
    // by the first attach, with the dictionary after the overrides.
    std::function<std::unique_ptr<UpdaterEngine>(UpdaterDelegate &, const QVariantMap &info)> engines{};
    // The running application and how a rollback copy of it is made and verified.
    QString application{};
    ApplicationCopy applicationCopy{};
    // Shows a finished backup and the backups folder; absent in korvanectl.
    Desktop *desktop = nullptr;
    // The application was installed by the system's package manager, which also updates it: the
    // launcher then never replaces itself (configured is false).
    bool systemManaged = false;
    // How long the check for a game in the bottle may take before the check is refused.
    double probeTimeoutSeconds = 3;

    // The running application's: its dictionary and environment, the platform's updater, the
    // running bundle or installed tree and the platform's way of copying and verifying it.
    static AppUpdatesContext system(UserDefaults &defaults, const Clock &clock, const Paths &paths,
                                    Desktop *desktop = nullptr);
};

// The launcher's self-update: it starts the platform's updater once the launcher model exists,
// answers every question the updater asks (which channels, whether a check may run now, whether
// the launcher may restart) and publishes where an update cycle stands. No check and no restart
// while a game session, the setup assistant or a version prompt is active or the game runs in
// the bottle, and before the first permitted check of a run a verified rollback copy of the
// application is kept.
//
// Lives on the main thread; the updater calls its delegate operations there.
class AppUpdates : public QObject, public UpdaterDelegate {
    Q_OBJECT
    Q_PROPERTY(bool canCheck READ canCheck NOTIFY canCheckChanged)
    Q_PROPERTY(bool automatic READ automatic WRITE setAutomatic NOTIFY automaticChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(std::optional<LocalizedMessage> message READ message NOTIFY messageChanged)
    Q_PROPERTY(LocalizedMessage phase READ phase NOTIFY phaseChanged)
    Q_PROPERTY(std::optional<QString> availableVersion READ availableVersion NOTIFY availableVersionChanged)
    Q_PROPERTY(UpdateChannel channel READ channel WRITE setChannel NOTIFY channelChanged)
    Q_PROPERTY(bool canInstall READ canInstall NOTIFY canInstallChanged)
    Q_PROPERTY(bool configured READ configured CONSTANT)
    Q_PROPERTY(QString releaseChannel READ releaseChannel CONSTANT)

public:
    explicit AppUpdates(AppUpdatesContext context, QObject *parent = nullptr);
    ~AppUpdates() override;

    // --- Published state
    // The updater can start a check now.
    bool canCheck() const { return m_canCheck; }
    bool automatic() const { return m_automatic; }
    // Also the updater's own setting.
    void setAutomatic(bool on);
    // An update cycle or a manual backup is under way.
    bool busy() const { return m_busy; }
    std::optional<LocalizedMessage> message() const { return m_message; }
    LocalizedMessage phase() const { return m_phase; }
    std::optional<QString> availableVersion() const { return m_availableVersion; }
    UpdateChannel channel() const { return m_channel; }
    // Refused, silently, while busy, before attach, while a game runs or the setup is active.
    void setChannel(UpdateChannel channel);
    // Whether this build has a usable feed and key and updates itself; otherwise no updater exists.
    bool configured() const { return m_configured; }
    // Updates come through the system's package manager, as the update screens say.
    bool systemManaged() const { return m_context.systemManaged; }
    // The build's own release line ("KVNReleaseChannel"), "development" when it names none.
    QString releaseChannel() const { return m_releaseChannel; }

    // A found update waits for the user to install it (the Linux updater; Sparkle asks in its
    // own dialog).
    bool canInstall() const { return m_canInstall; }

    // --- Operations
    // Connects to the launcher model and starts the updater; only the first call does anything.
    void attach(LauncherModel &model);
    // A user-requested check, when the updater can check and no cycle is under way.
    void check();
    // Installs the update a check found, when canInstall; ends with installFinished and, when
    // the launcher may restart into it now, relaunchRequested.
    void install();
    // Makes a rollback copy now, off the main thread; reveals it and says how it went.
    void saveBackup();
    // Shows the backups folder, creating it when needed.
    void openBackups();

    // --- What the updater and the front ends read
    QString backupDirectory() const;
    // The automatic rollback copy of this run.
    std::optional<QString> backupForSession() const { return m_backupForSession; }
    UpdaterEngine *engine() const { return m_engine.get(); }
    // The dictionary in use, after the environment's overrides.
    const QVariantMap &info() const { return m_info; }

    // --- UpdaterDelegate
    QSet<QString> allowedChannels() const override;
    std::optional<QString> mayPerformCheck() override;
    void didFindValidUpdate(const QString &displayVersion) override;
    void willDownloadUpdate() override;
    void didDownloadUpdate() override;
    void willExtractUpdate() override;
    void willInstallUpdate() override;
    void userDidCancelDownload() override;
    void didAbortWithError(const QString &description) override;
    void didFinishUpdateCycle(const std::optional<QString> &error) override;
    bool shouldRelaunchApplication() override;

Q_SIGNALS:
    void canCheckChanged();
    void automaticChanged();
    void busyChanged();
    void messageChanged();
    void phaseChanged();
    void availableVersionChanged();
    void channelChanged();
    void canInstallChanged();
    void installFinished(const std::optional<QString> &error);
    // The new version is installed and nothing holds the launcher: the application restarts.
    void relaunchRequested();
    // A manual backup ended: the copy's path, or nothing when it failed.
    void backupFinished(const std::optional<QString> &copy);

private:
    void setCanCheck(bool can);
    // busy is the updater's session or a manual backup; the model's updateSessionActive follows.
    void updateBusy();
    void setPhase(const char *key);
    void setMessage(const char *key);
    void setAvailableVersion(const std::optional<QString> &version);
    void updateCanInstall();
    // Sets the published value only, for the updater's own reports.
    void publishAutomatic(bool on);
    QString makeBackup() const;

    AppUpdatesContext m_context;
    QVariantMap m_info;
    bool m_configured;
    QString m_releaseChannel;
    bool m_attached = false;
    QPointer<LauncherModel> m_launcher;
    std::unique_ptr<UpdaterEngine> m_engine;
    bool m_canCheck = false;
    bool m_automatic = false;
    bool m_busy = false;
    bool m_canInstall = false;
    bool m_updaterSession = false;
    bool m_backingUp = false;
    std::optional<LocalizedMessage> m_message;
    LocalizedMessage m_phase{"center.idle"};
    std::optional<QString> m_availableVersion;
    UpdateChannel m_channel;
    std::optional<QString> m_backupForSession;
};
