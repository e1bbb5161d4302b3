#include "updates/appcastupdater.h"

#include "platform/userdefaults.h"
#include "updates/archiveinstall.h"

#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QTemporaryFile>
#include <QtConcurrent/QtConcurrentRun>

using namespace Qt::StringLiterals;

namespace {

QString describe(const HttpResult &result)
{
    if (result.error)
        return u"The update server could not be reached (%1)."_s.arg(UrlError::name(result.error->code()));
    return u"The update server answered with HTTP status %1."_s.arg(result.status);
}

} // namespace

AppcastUpdater::AppcastUpdater(UpdaterDelegate &delegate, Settings settings, UserDefaults *defaults, QObject *parent)
    : UpdaterEngine(parent)
    , m_delegate(delegate)
    , m_settings(std::move(settings))
    , m_defaults(defaults)
    , m_http(new HttpSession(m_settings.http, this))
{
    qRegisterMetaType<std::optional<QString>>();
    m_automatic = m_defaults && m_defaults->boolValue(automaticKey);
    m_schedule.setSingleShot(true);
    connect(&m_schedule, &QTimer::timeout, this, [this] {
        if (m_automatic)
            checkForUpdates();
        if (m_automatic)
            m_schedule.start(m_settings.automaticInterval);
    });
}

AppcastUpdater::~AppcastUpdater() = default;

void AppcastUpdater::start()
{
    if (m_started)
        return;
    m_started = true;
    Q_EMIT canCheckForUpdatesChanged(canCheckForUpdates());
    Q_EMIT sessionInProgressChanged(m_session);
    // The first automatic check waits a minute, so that it never competes with the start.
    if (m_automatic)
        m_schedule.start(std::chrono::minutes(1));
}

void AppcastUpdater::setAutomaticallyChecksForUpdates(bool on)
{
    m_automatic = on;
    if (m_defaults)
        m_defaults->setBool(automaticKey, on);
    if (!on)
        m_schedule.stop();
    else if (m_started && !m_schedule.isActive())
        m_schedule.start(std::chrono::minutes(1));
}

void AppcastUpdater::resetUpdateCycleAfterShortDelay()
{
    // Another channel may offer another release: what was found no longer stands.
    if (!m_session)
        m_found.reset();
}

void AppcastUpdater::setSession(bool on)
{
    if (m_session == on)
        return;
    m_session = on;
    Q_EMIT sessionInProgressChanged(on);
    Q_EMIT canCheckForUpdatesChanged(canCheckForUpdates());
}

void AppcastUpdater::fail(const QString &description, bool installing)
{
    m_delegate.didAbortWithError(description);
    m_delegate.didFinishUpdateCycle(description);
    setSession(false);
    if (installing)
        Q_EMIT installFinished(description, false);
    else
        Q_EMIT checkFinished(std::nullopt, description);
}

void AppcastUpdater::checkForUpdates()
{
    if (!canCheckForUpdates())
        return;
    setSession(true);
    if (const auto refusal = m_delegate.mayPerformCheck()) {
        setSession(false);
        Q_EMIT checkFinished(refusal, std::nullopt);
        return;
    }
    m_found.reset();
    HttpTask *task = m_http->start({m_settings.feedURL, "GET", {}, {}, Appcast::maximumFeedSize});
    connect(task, &HttpTask::finished, this, [this](const HttpResult &result) {
        if (!result.isHttpResponse() || result.status != 200) {
            fail(describe(result), false);
            return;
        }
        std::optional<AppcastItem> best;
        try {
            best = Appcast::best(Appcast::parse(result.body), m_delegate.allowedChannels(), m_settings.runningVersion);
        } catch (const AppcastError &error) {
            fail(u"The update feed is not usable: %1"_s.arg(QString::fromUtf8(error.what())), false);
            return;
        }
        if (!best) {
            m_delegate.didFinishUpdateCycle(std::nullopt);
            setSession(false);
            Q_EMIT checkFinished(std::nullopt, std::nullopt);
            return;
        }
        // The cycle pauses here, as Sparkle's does at its update dialog: the user decides.
        m_found = best;
        m_delegate.didFindValidUpdate(best->displayVersion());
        setSession(false);
        Q_EMIT checkFinished(std::nullopt, std::nullopt);
    });
}

void AppcastUpdater::installFoundUpdate()
{
    if (!m_found || m_session || !m_started)
        return;
    const AppcastItem item = *m_found;
    setSession(true);
    m_delegate.willDownloadUpdate();
    HttpRequest request{item.url, "GET", {}, {}, std::min(item.length, ArchiveInstall::maximumArchiveSize)};
    HttpTask *task = m_http->start(request);
    connect(task, &HttpTask::finished, this, [this, item](const HttpResult &result) {
        if (!result.isHttpResponse() || result.status != 200) {
            fail(describe(result), true);
            return;
        }
        m_delegate.didDownloadUpdate();
        // Beside the tree, where the installation unpacks too.
        auto archive = std::make_shared<QTemporaryFile>(QFileInfo(m_settings.installRoot).absolutePath()
                                                        + u"/.korvane-update-XXXXXX.archive"_s);
        if (!archive->open() || archive->write(result.body) != result.body.size() || !archive->flush()) {
            archive->remove();
            fail(u"The update could not be saved beside the launcher: %1"_s.arg(archive->errorString()), true);
            return;
        }
        archive->close();
        m_delegate.willExtractUpdate();
        const QString path = archive->fileName();
        const QString root = m_settings.installRoot;
        const QByteArray key = m_settings.publicKey;
        auto *watcher = new QFutureWatcher<std::optional<QString>>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, archive] {
            watcher->deleteLater();
            // Installed or refused, the download has served: nothing stays beside the tree.
            archive->remove();
            const std::optional<QString> error = watcher->result();
            if (error) {
                fail(*error, true);
                return;
            }
            // The tree was exchanged on the worker; the steps are reported in their order.
            m_delegate.willInstallUpdate();
            m_found.reset();
            m_delegate.didFinishUpdateCycle(std::nullopt);
            setSession(false);
            Q_EMIT installFinished(std::nullopt, m_delegate.shouldRelaunchApplication());
        });
        watcher->setFuture(QtConcurrent::run([path, root, key, item]() -> std::optional<QString> {
            try {
                ArchiveInstall::install(path, root, key, item.length, item.edSignature);
                return std::nullopt;
            } catch (const ArchiveInstallError &error) {
                return QString::fromUtf8(error.what()) + (error.detail().isEmpty() ? QString() : u": "_s + error.detail());
            }
        }));
    });
}
