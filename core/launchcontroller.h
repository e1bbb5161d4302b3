#pragma once

#include "core/launchattempt.h"
#include "core/launchtimings.h"
#include "core/taskhandle.h"
#include "crossover/bottleprocesssnapshot.h"
#include "crossover/freezewatch.h"
#include "games/compatibilityservice.h"
#include "games/gamekind.h"

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

class Clock;
class LauncherModel;
class Microphone;
class TerminalProcess;

// One press of the launch button, from the checklist to the client's end, and the two commands
// that act on the bottle directly (stop, Steam). The launch is a chain of steps; each step that
// waits (the version check, the microphone question, the process probe, the client itself)
// carries the launch token it began with and acts only while that token is still the active
// one, so a stop, a retry or a new launch silences everything the old one left pending.
//
// What a stop does at each point of the chain:
//   checking the version      the check's answer is dropped; nothing in the bottle is touched.
//   awaiting the microphone   the answer is ignored when it comes; the bottle is untouched.
//   probing the bottle        the probe's answer is dropped; Steam and the bottle stay as they
//                             are (the probe itself ends by its time-out at the latest).
//   client running            the client's process group is asked to end (killed after a
//                             grace) and the bottle's wineserver is asked to stop everything.
//   retry, give-up, finish    the attempt that was replaced or ended is already silent.
//   idle, or a version        no launch is abandoned; the stop still means "stop the bottle",
//   decision pending          so the wineserver is asked to stop it (a pending decision stays).
// A launch that is being prepared (everything before the client) never touches the bottle.
class LaunchController : public QObject {
    Q_OBJECT

public:
    using TerminalFactory = std::function<std::unique_ptr<TerminalProcess>()>;

    // A launch runs at most this many recovery attempts after the first one froze.
    static constexpr int maximumRecoveries = 3;

    LaunchController(LauncherModel &model, const Clock &clock, const Microphone &microphone,
                     const LaunchTimings &timings, TerminalFactory terminals, QObject *parent = nullptr);
    ~LaunchController() override;

    void launchKorvane();
    void confirmCompatibilityLaunch();
    void cancelCompatibilityLaunch(bool cancelSession);
    void stopBottle();
    void openSteam();

    std::optional<QUuid> activeLaunchToken() const { return m_token; }
    bool isCheckingSteam() const { return m_isCheckingSteam; }
    bool isPreparing() const { return m_preparationTask.isActive(); }
    // The attempt whose client runs or whose end is awaited; none between launches.
    LaunchAttempt *attempt() const { return m_attempt.data(); }
    const LaunchTimings &timings() const { return m_timings; }

    // The header the console starts with for a launch: the renderer setup and the desktop size.
    static QString launchHeader(const QString &desktopSize);

Q_SIGNALS:
    void attemptStarted(LaunchAttempt *attempt);
    // The wineserver stop after the last freeze ended (or could not be started).
    void bottleStopFinished();

private:
    struct ProbeOutcome {
        std::optional<BottleProcessSnapshot> snapshot;
        QString error;
    };

    bool busy() const;
    QUuid replaceToken();
    void setCheckingSteam(bool checking);
    // The launch is no longer being prepared and holds no token: the model is idle again.
    void endPreparation();
    void versionChecked(QUuid token, GameKind game, const QString &executable, const CompatibilityResult &result);
    void beginVerifiedLaunch();
    void askForMicrophone();
    void showMicrophonePermissionHelp();
    void bottleChecked(const QStringList &arguments, QUuid token, const ProbeOutcome &outcome);
    void preparationFailed(QUuid token);

    void startCLIProcess(const QStringList &arguments, QUuid token, int attempt, BottleLaunchMode mode);
    void launchFailed(const QString &error);
    void startFreezeWatchdog();
    void processEnded(QUuid token);
    void statusRead(QUuid token, int exitCode);
    void gameLoaded(QUuid token, FreezeWatch::Verdict verdict);
    void gameFroze(QUuid token);
    void stopBottleAfterWatchdogFailure();
    // Lets the current attempt go: its client is asked to end and its reports stop.
    void retireAttempt();

    LauncherModel &m_model;
    const Clock &m_clock;
    const Microphone &m_microphone;
    LaunchTimings m_timings;
    TerminalFactory m_terminals;

    std::optional<QUuid> m_token;
    bool m_isCheckingSteam = false;
    TaskHandle m_preparationTask;
    QPointer<LaunchAttempt> m_attempt;
    // Clients asked to end stay here until their process group is gone; killed with it when the
    // launcher quits first.
    QObject m_endingProcesses;
};
