#include "updates/appupdates.h"

#include "core/launchermodel.h"
#include "crossover/processenvironment.h"
#include "crossover/wineprocessprobe.h"
#include "platform/bundleinfo.h"
#include "platform/clock.h"
#include "platform/desktop.h"
#include "platform/privatedirectory.h"
#include "platform/userdefaults.h"
#include "updates/platformupdater.h"
#include "updates/rollbackbackup.h"
#include "updates/updateconfiguration.h"

#include <QFutureWatcher>
#include <QtConcurrent>

using namespace Qt::StringLiterals;

AppUpdatesContext AppUpdatesContext::system(UserDefaults &defaults, const Clock &clock, const Paths &paths,
                                             Desktop *desktop)
{
    AppUpdatesContext context{defaults, clock, BundleInfo::main(), QProcessEnvironment::systemEnvironment(), paths};
    context.engines = [&defaults](UpdaterDelegate &delegate, const QVariantMap &info) {
        return PlatformUpdater::make(delegate, info, defaults);
    };
    context.application = ApplicationCopy::runningApplication();
    context.applicationCopy = PlatformUpdater::applicationCopy(
        UpdateConfiguration::withOverrides(context.info, context.environment));
    context.desktop = desktop;
    context.systemManaged = PlatformUpdater::managedBySystem(context.application);
    return context;
}

AppUpdates::AppUpdates(AppUpdatesContext context, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_info(UpdateConfiguration::withOverrides(m_context.info, m_context.environment))
    , m_configured(UpdateConfiguration::isReady(m_info) && !m_context.systemManaged)
    , m_releaseChannel(UpdateConfiguration::releaseChannel(m_info))
    , m_channel(UpdateChannel::saved(m_context.defaults))
{
}

// The engine goes first: its last reports must not reach a half-destroyed controller.
AppUpdates::~AppUpdates()
{
    m_engine.reset();
}

void AppUpdates::setAutomatic(bool on)
{
    if (m_engine)
        m_engine->setAutomaticallyChecksForUpdates(on);
    publishAutomatic(on);
}

void AppUpdates::publishAutomatic(bool on)
{
    if (m_automatic == on)
        return;
    m_automatic = on;
    Q_EMIT automaticChanged();
}

void AppUpdates::setChannel(UpdateChannel channel)
{
    if (m_busy || !m_launcher || m_launcher->isRunning() || m_launcher->setupActive())
        return;
    if (m_channel != channel) {
        m_channel = channel;
        Q_EMIT channelChanged();
    }
    m_context.defaults.setString(UpdateChannel::defaultsKey, channel.rawValue());
    // The updater keeps what it read of the feed; the next check must read it for this channel.
    if (m_engine)
        m_engine->resetUpdateCycleAfterShortDelay();
    updateCanInstall();
    setMessage(channel == UpdateChannel::beta ? "channel.beta.help" : "channel.stable.help");
}

void AppUpdates::attach(LauncherModel &model)
{
    if (m_attached)
        return;
    m_attached = true;
    m_launcher = &model;
    if (!m_configured || !m_context.engines)
        return;
    m_engine = m_context.engines(*this, m_info);
    if (!m_engine)
        return;
    // The engine reports on the main thread; the context object makes a report from anywhere
    // else arrive there too.
    connect(m_engine.get(), &UpdaterEngine::canCheckForUpdatesChanged, this, &AppUpdates::setCanCheck);
    connect(m_engine.get(), &UpdaterEngine::sessionInProgressChanged, this, [this](bool inProgress) {
        m_updaterSession = inProgress;
        updateBusy();
    });
    connect(m_engine.get(), &UpdaterEngine::installFinished, this,
            [this](const std::optional<QString> &error, bool relaunch) {
                updateCanInstall();
                Q_EMIT installFinished(error);
                if (!error && relaunch)
                    Q_EMIT relaunchRequested();
            });
    setCanCheck(m_engine->canCheckForUpdates());
    m_updaterSession = m_engine->sessionInProgress();
    updateBusy();
    publishAutomatic(m_engine->automaticallyChecksForUpdates());
    m_engine->start();
}

void AppUpdates::install()
{
    if (m_canInstall)
        m_engine->installFoundUpdate();
}

void AppUpdates::check()
{
    if (!m_canCheck || m_busy || !m_engine)
        return;
    setPhase("center.checking");
    m_engine->checkForUpdates();
}

QString AppUpdates::backupDirectory() const
{
    const QVariant identifier = m_info.value(BundleInfo::identifierKey);
    return RollbackBackup::directory(m_context.paths,
                                     identifier.typeId() == QMetaType::QString ? identifier.toString() : QString());
}

QString AppUpdates::makeBackup() const
{
    return RollbackBackup::save(m_context.application, backupDirectory(),
                                {m_info, m_context.clock.now(), m_context.applicationCopy});
}

void AppUpdates::saveBackup()
{
    if (m_busy || !m_launcher || m_launcher->isRunning())
        return;
    m_backingUp = true;
    updateBusy();

    const QString application = m_context.application;
    const QString root = backupDirectory();
    const RollbackBackup::Inputs inputs{m_info, m_context.clock.now(), m_context.applicationCopy};
    auto *watcher = new QFutureWatcher<std::optional<QString>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        const std::optional<QString> copy = watcher->result();
        watcher->deleteLater();
        if (copy && m_context.desktop)
            m_context.desktop->revealInFileBrowser(*copy);
        // The error itself says little to a player; the folder either has a verified copy or
        // nothing.
        setMessage(copy ? "update.backup.saved" : "update.backup.failed");
        m_backingUp = false;
        updateBusy();
        Q_EMIT backupFinished(copy);
    });
    watcher->setFuture(QtConcurrent::run([application, root, inputs]() -> std::optional<QString> {
        try {
            return RollbackBackup::save(application, root, inputs);
        } catch (const RollbackBackup::Error &) {
            return std::nullopt;
        }
    }));
}

void AppUpdates::openBackups()
{
    const QString root = backupDirectory();
    PrivateDirectory::create(root);
    if (m_context.desktop)
        m_context.desktop->openInFileBrowser(root);
}

QSet<QString> AppUpdates::allowedChannels() const
{
    return m_channel.allowed();
}

std::optional<QString> AppUpdates::mayPerformCheck()
{
    const QPointer<LauncherModel> model = m_launcher;
    if (!model || model->isRunning() || model->setupActive() || model->pendingCompatibility())
        return L("update.wait");

    setAvailableVersion(std::nullopt);
    setPhase("center.checking");

    if (!model->selectedBottlePath().isEmpty() && LauncherModel::isExecutableFile(model->winePath())) {
        // A game started outside the launcher still holds the bottle: replacing the launcher
        // under it, or restarting, would strand the player.
        try {
            const BottleProcessSnapshot snapshot = WineProcessProbe::read(
                model->winePath(), ProcessEnvironment::forProbe(model->processEnvironment()),
                m_context.probeTimeoutSeconds);
            if (snapshot.truckGameIsRunning())
                return L("update.wait");
        } catch (WineProcessProbeError error) {
            return WineProcessProbe::describe(error);
        } catch (const WineProcessProbe::SystemError &error) {
            return error.description();
        }
    }

    if (!m_backupForSession) {
        try {
            m_backupForSession = makeBackup();
        } catch (const RollbackBackup::Error &error) {
            return error.description();
        }
    }
    return std::nullopt;
}

void AppUpdates::didFindValidUpdate(const QString &displayVersion)
{
    setAvailableVersion(displayVersion);
    setPhase("center.found");
}

void AppUpdates::willDownloadUpdate()
{
    setPhase("center.downloading");
}

void AppUpdates::didDownloadUpdate()
{
    setPhase("center.downloaded");
}

void AppUpdates::willExtractUpdate()
{
    setPhase("center.extracting");
}

void AppUpdates::willInstallUpdate()
{
    setPhase("center.installing");
}

void AppUpdates::userDidCancelDownload()
{
    setPhase("stage.cancelled");
}

void AppUpdates::didAbortWithError(const QString &)
{
    setPhase("center.failed");
}

void AppUpdates::didFinishUpdateCycle(const std::optional<QString> &error)
{
    setPhase(error ? "center.failed" : "center.complete");
}

bool AppUpdates::shouldRelaunchApplication()
{
    return m_launcher && !m_launcher->isRunning() && !m_launcher->setupActive();
}

void AppUpdates::setCanCheck(bool can)
{
    if (m_canCheck == can)
        return;
    m_canCheck = can;
    Q_EMIT canCheckChanged();
}

void AppUpdates::updateBusy()
{
    const bool busy = m_updaterSession || m_backingUp;
    if (m_launcher)
        m_launcher->setUpdateSessionActive(busy);
    if (m_busy == busy)
        return;
    m_busy = busy;
    Q_EMIT busyChanged();
    updateCanInstall();
}

void AppUpdates::updateCanInstall()
{
    const bool can = m_engine && !m_busy && m_engine->hasFoundUpdate();
    if (m_canInstall == can)
        return;
    m_canInstall = can;
    Q_EMIT canInstallChanged();
}

void AppUpdates::setPhase(const char *key)
{
    const LocalizedMessage phase(key);
    if (m_phase == phase)
        return;
    m_phase = phase;
    Q_EMIT phaseChanged();
}

void AppUpdates::setMessage(const char *key)
{
    const LocalizedMessage message(key);
    if (m_message == message)
        return;
    m_message = message;
    Q_EMIT messageChanged();
}

void AppUpdates::setAvailableVersion(const std::optional<QString> &version)
{
    if (m_availableVersion == version)
        return;
    m_availableVersion = version;
    Q_EMIT availableVersionChanged();
    updateCanInstall();
}
