#pragma once

#include "core/launchtimings.h"
#include "crossover/bottlelaunchmode.h"
#include "crossover/freezewatch.h"

#include <QDateTime>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUuid>

#include <memory>

class Clock;
class TerminalProcess;

// One run of the client: its terminal process, the poll for its status file and the freeze
// watchdog. Everything it reports carries its token, and the launch acts on a report only while
// that token is the active one. Deleting the attempt abandons it: its timers stop, and a client
// still running is killed with its whole process group.
class LaunchAttempt : public QObject {
    Q_OBJECT

public:
    struct Plan {
        QStringList arguments;
        QUuid token;
        // 0 for the first attempt, 1 to 3 for the recovery attempts after a freeze.
        int number = 0;
        BottleLaunchMode mode;
    };

    LaunchAttempt(Plan plan, std::unique_ptr<TerminalProcess> terminal, const LaunchTimings &timings,
                  const Clock &clock, QObject *parent = nullptr);
    ~LaunchAttempt() override;

    const Plan &plan() const { return m_plan; }
    QUuid token() const { return m_plan.token; }

    // Runs the script under the terminal. False, with the system's reason in `error`, when it
    // could not be started; nothing is reported then.
    bool start(const QString &scriptPath, const QMap<QString, QString> &environment,
               const QString &workingDirectory, QString *error);
    // Whether the client's process still runs as far as this attempt knows.
    bool processRunning() const;
    // Asks the client to end (SIGTERM to its group, SIGKILL after the grace) and stops
    // reporting its end. The process is handed to `reaper`, which outlives the attempt, so the
    // grace is kept after the attempt is deleted; it goes once the group has ended.
    void terminate(QObject *reaper);

    // Looks for the status file every `statusPoll`, the first time one interval after the start.
    void startStatusMonitor(const QString &statusPath);
    void stopStatusMonitor();
    bool statusMonitorActive() const { return m_statusTimer.isActive(); }

    // Reads the logs every `watchdogPoll` until the watch window has passed.
    void startFreezeWatchdog(const FreezeWatch::Watch &watch);
    void stopFreezeWatchdog();
    bool watchdogActive() const { return m_watchActive; }

Q_SIGNALS:
    // A read of the terminal, decoded on its own.
    void output(QUuid token, const QString &text);
    // The script's process ended.
    void processEnded(QUuid token);
    void statusRead(QUuid token, int exitCode);
    void loaded(QUuid token, FreezeWatch::Verdict verdict);
    void froze(QUuid token);

private:
    void pollStatus();
    void pollLogs();

    Plan m_plan;
    std::unique_ptr<TerminalProcess> m_terminal;
    LaunchTimings m_timings;
    const Clock &m_clock;

    QString m_statusPath;
    QTimer m_statusTimer;

    FreezeWatch::Watch m_watch;
    QTimer m_watchTimer;
    bool m_watchActive = false;
    // The off-thread read of the logs in flight; its answer is dropped when the watch ended.
    quint64 m_watchRound = 0;
};
