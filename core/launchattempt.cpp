#include "core/launchattempt.h"

#include "crossover/statusfile.h"
#include "platform/clock.h"
#include "platform/terminalprocess.h"

#include <QFile>
#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>

LaunchAttempt::LaunchAttempt(Plan plan, std::unique_ptr<TerminalProcess> terminal, const LaunchTimings &timings,
                             const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_plan(std::move(plan))
    , m_terminal(std::move(terminal))
    , m_timings(timings)
    , m_clock(clock)
{
    m_statusTimer.setInterval(m_timings.statusPoll);
    connect(&m_statusTimer, &QTimer::timeout, this, &LaunchAttempt::pollStatus);
    m_watchTimer.setSingleShot(true);
    connect(&m_watchTimer, &QTimer::timeout, this, &LaunchAttempt::pollLogs);
}

LaunchAttempt::~LaunchAttempt() = default;

bool LaunchAttempt::start(const QString &scriptPath, const QMap<QString, QString> &environment,
                          const QString &workingDirectory, QString *error)
{
    const QUuid token = m_plan.token;
    connect(m_terminal.get(), &TerminalProcess::output, this, [this, token](const QByteArray &bytes) {
        // Each read is decoded on its own; CR becomes LF so that a progress line that redraws
        // itself shows as a line of its own.
        QString text = QString::fromUtf8(bytes);
        text.replace(u'\r', u'\n');
        Q_EMIT output(token, text);
    });
    connect(m_terminal.get(), &TerminalProcess::finished, this, [this, token] { Q_EMIT processEnded(token); });
    if (m_terminal->start(scriptPath, environment, workingDirectory))
        return true;
    if (error)
        *error = m_terminal->errorString();
    m_terminal->disconnect(this);
    return false;
}

bool LaunchAttempt::processRunning() const
{
    return m_terminal && m_terminal->isRunning();
}

void LaunchAttempt::terminate(QObject *reaper)
{
    if (!m_terminal)
        return;
    m_terminal->disconnect(this);
    if (!m_terminal->isRunning())
        return;
    TerminalProcess *ending = m_terminal.release();
    ending->setParent(reaper);
    connect(ending, &TerminalProcess::finished, ending, &QObject::deleteLater);
    ending->stop(m_timings.terminateGrace);
}

void LaunchAttempt::startStatusMonitor(const QString &statusPath)
{
    m_statusPath = statusPath;
    m_statusTimer.start();
}

void LaunchAttempt::stopStatusMonitor()
{
    m_statusTimer.stop();
}

void LaunchAttempt::pollStatus()
{
    QFile file(m_statusPath);
    if (!file.open(QIODevice::ReadOnly))
        return;
    // The file holds a number and a line break; anything much longer is not a status yet.
    const auto code = StatusFile::exitCode(file.read(64));
    if (!code)
        return;
    m_statusTimer.stop();
    Q_EMIT statusRead(m_plan.token, *code);
}

void LaunchAttempt::startFreezeWatchdog(const FreezeWatch::Watch &watch)
{
    stopFreezeWatchdog();
    m_watch = watch;
    m_watchActive = true;
    m_watchTimer.start(m_timings.watchdogPoll);
}

void LaunchAttempt::stopFreezeWatchdog()
{
    m_watchActive = false;
    m_watchTimer.stop();
    ++m_watchRound;
}

void LaunchAttempt::pollLogs()
{
    if (!m_watchActive)
        return;
    // The logs can be large: they are read on a worker thread, and the answer is weighed here.
    const quint64 round = ++m_watchRound;
    auto *reading = new QFutureWatcher<FreezeWatch::Observation>(this);
    connect(reading, &QFutureWatcherBase::finished, this, [this, reading, round] {
        reading->deleteLater();
        if (round != m_watchRound || !m_watchActive)
            return;
        const QDateTime now = m_clock.now();
        const FreezeWatch::Verdict verdict
            = FreezeWatch::assess(reading->result(), m_watch.start, now, m_timings.freezeAge);
        switch (verdict) {
        case FreezeWatch::Verdict::clientLoaded:
        case FreezeWatch::Verdict::gameLoaded:
            stopFreezeWatchdog();
            Q_EMIT loaded(m_plan.token, verdict);
            return;
        case FreezeWatch::Verdict::frozen:
            stopFreezeWatchdog();
            Q_EMIT froze(m_plan.token);
            return;
        case FreezeWatch::Verdict::watching:
            break;
        }
        // The window is measured from the start; the poll that ends it still counts.
        if (m_watch.start.msecsTo(now) >= m_timings.watchWindow.count()) {
            stopFreezeWatchdog();
            return;
        }
        m_watchTimer.start(m_timings.watchdogPoll);
    });
    reading->setFuture(QtConcurrent::run(FreezeWatch::observe, m_watch));
}
