#include "core/launchcontroller.h"

#include "core/launchermodel.h"
#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"
#include "crossover/launchscript.h"
#include "crossover/processenvironment.h"
#include "crossover/wineprocessprobe.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"
#include "platform/microphone.h"
#include "platform/privatedirectory.h"
#include "platform/recordcoding.h"
#include "platform/terminalprocess.h"

#include <QFileInfo>
#include <QFutureWatcher>
#include <QProcess>
#include <QProcessEnvironment>
#include <QtConcurrent/QtConcurrentRun>

using namespace Qt::StringLiterals;

namespace {

QProcessEnvironment asProcessEnvironment(const QMap<QString, QString> &map)
{
    QProcessEnvironment environment;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        environment.insert(entry.key(), entry.value());
    return environment;
}

// A Wine command of the bottle that the launcher does not wait for: no standard streams, the
// bottle's environment, and no tie to the launcher (it may quit while the command runs).
bool startDetached(const QString &program, const QStringList &arguments, const QMap<QString, QString> &environment,
                   QString *error)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessEnvironment(asProcessEnvironment(environment));
    process.setWorkingDirectory(environment.value(u"PWD"_s));
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (process.startDetached())
        return true;
    *error = process.errorString();
    return false;
}

template <typename T, typename Done>
void whenFinished(QObject *carrier, QFuture<T> future, Done done)
{
    auto *watcher = new QFutureWatcher<T>(carrier);
    QObject::connect(watcher, &QFutureWatcherBase::finished, carrier, [watcher, done = std::move(done)] {
        watcher->deleteLater();
        if (!watcher->future().isCanceled())
            done(watcher->result());
    });
    watcher->setFuture(std::move(future));
}

} // namespace

LaunchController::LaunchController(LauncherModel &model, const Clock &clock, const Microphone &microphone,
                                   const LaunchTimings &timings, TerminalFactory terminals, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_clock(clock)
    , m_microphone(microphone)
    , m_timings(timings)
    , m_terminals(terminals ? std::move(terminals) : TerminalFactory([] { return TerminalProcess::create(); }))
{
}

LaunchController::~LaunchController()
{
    m_preparationTask.cancel();
    // The running client goes with the launcher: its process group is killed here, together
    // with those still being asked to end.
    delete m_attempt.data();
}

QString LaunchController::launchHeader(const QString &desktopSize)
{
    QString size = desktopSize;
    size.replace(u'x', u'×');
    return L("Korvane indítása beépített konzollal…\nMikrofonengedély: rendben.\nDX11 + D3DMetal + MSync + Steam "
             "Overlay nélkül + Wine virtuális asztal (1920×1080)\n")
        .replace(u"1920×1080"_s, size);
}

bool LaunchController::busy() const
{
    return m_model.isRunning() || m_model.updateSessionActive() || m_model.setupActive();
}

QUuid LaunchController::replaceToken()
{
    const QUuid token = QUuid::createUuid();
    m_token = token;
    return token;
}

void LaunchController::setCheckingSteam(bool checking)
{
    m_isCheckingSteam = checking;
}

void LaunchController::endPreparation()
{
    m_preparationTask.cancel();
    setCheckingSteam(false);
    m_model.setIsRunning(false);
    m_token.reset();
}

// --- The version check ------------------------------------------------------------------------

void LaunchController::launchKorvane()
{
    if (busy() || m_model.pendingCompatibility())
        return;
    m_model.setIssue(std::nullopt);
    m_model.setGameStartupDetected(false);
    m_model.activity().begin(m_model.game(), m_clock.now());
    if (!m_model.isReady()) {
        m_model.setIssue(m_model.missingRequirement());
        m_model.activity().finish(LaunchStage::failed, u"missing_requirement"_s, m_clock.now());
        m_model.refreshStatus();
        return;
    }
    const QUuid token = replaceToken();
    const GameKind game = m_model.game();
    const QString executable = m_model.gameExecutablePath();
    setCheckingSteam(true);
    m_model.setIsRunning(true);
    m_model.setStatusMessage(LocalizedMessage("compat.checking"));

    auto *task = new QObject(this);
    m_preparationTask = TaskHandle(task);
    whenFinished(task, m_model.compatibilityService().check(game, executable),
                 [this, token, game, executable](const CompatibilityResult &result) {
                     versionChecked(token, game, executable, result);
                 });
}

void LaunchController::versionChecked(QUuid token, GameKind game, const QString &executable,
                                      const CompatibilityResult &result)
{
    if (m_token != token)
        return;
    endPreparation();
    // The user chose another game or folder meanwhile: this answer is about neither.
    if (m_model.game() != game || m_model.gameExecutablePath() != executable)
        return;
    m_model.setCompatibility(result);
    if (result.state == CompatibilityResult::State::compatible) {
        beginVerifiedLaunch();
        return;
    }
    m_model.setPendingGame(game);
    m_model.setPendingExecutable(executable);
    m_model.setPendingCompatibility(result);
    m_model.setStatusMessage(LocalizedMessage(result.state == CompatibilityResult::State::mismatch ? "compat.mismatch"
                                                                                                   : "compat.unknown"));
}

void LaunchController::confirmCompatibilityLaunch()
{
    if (!m_model.pendingCompatibility() || m_model.pendingGame() != m_model.game()
        || m_model.pendingExecutable() != m_model.gameExecutablePath() || busy()) {
        cancelCompatibilityLaunch(true);
        return;
    }
    m_model.setPendingCompatibility(std::nullopt);
    m_model.setPendingGame(std::nullopt);
    m_model.setPendingExecutable(std::nullopt);
    beginVerifiedLaunch();
}

void LaunchController::cancelCompatibilityLaunch(bool cancelSession)
{
    if (cancelSession && m_model.pendingCompatibility())
        m_model.activity().finish(LaunchStage::cancelled, std::nullopt, m_clock.now());
    m_model.setPendingCompatibility(std::nullopt);
    m_model.setPendingGame(std::nullopt);
    m_model.setPendingExecutable(std::nullopt);
}

// --- The verified launch and the bottle check ----------------------------------------------------

void LaunchController::beginVerifiedLaunch()
{
    if (busy())
        return;
    if (!m_model.isReady()) {
        m_model.setIssue(m_model.missingRequirement());
        m_model.appendLog(L("HIBA: Az indításhoz előbb minden piros ellenőrzést meg kell oldani.\n"));
        m_model.activity().finish(LaunchStage::failed, u"missing_requirement"_s, m_clock.now());
        m_model.refreshStatus();
        return;
    }
    switch (m_microphone.authorizationStatus()) {
    case MicrophoneAuthorization::notDetermined:
        askForMicrophone();
        return;
    case MicrophoneAuthorization::denied:
    case MicrophoneAuthorization::restricted:
        showMicrophonePermissionHelp();
        return;
    case MicrophoneAuthorization::authorized:
        break;
    }

    QString error;
    if (!PrivateDirectory::create(m_model.applicationDataDirectory(), &error)
        || !PrivateDirectory::create(m_model.modsDirectory(), &error)) {
        m_model.setIssue(LaunchIssue::storage);
        m_model.activity().finish(LaunchStage::failed, u"storage"_s, m_clock.now());
        m_model.appendLog(L("HIBA: Az indítási környezet nem készíthető elő: %@\n", error));
        return;
    }

    m_model.saveGameProfile();
    const GameKind game = m_model.game();
    const GameProfile profile = m_model.profiles().profile(game).value_or(GameProfile{});
    const QStringList arguments = LaunchScript::arguments(m_model.selectedBottlePath(), m_model.gameDirectory(),
                                                          m_model.modsDirectory(), profile.arguments(), game);
    if (m_attempt) {
        m_attempt->stopFreezeWatchdog();
        m_attempt->stopStatusMonitor();
    }
    m_model.replaceLog(launchHeader(m_model.desktopSize()));
    m_model.setStatusMessage(LocalizedMessage("Futó Steam ellenőrzése…"));
    m_model.activity().transition(LaunchStage::steam);
    m_model.setIsRunning(true);
    setCheckingSteam(true);
    const QUuid token = replaceToken();

    const QString wine = m_model.winePath();
    const QMap<QString, QString> environment = ProcessEnvironment::forProbe(m_model.processEnvironment());
    const double timeout = m_timings.probeTimeoutSeconds;
    auto *task = new QObject(this);
    m_preparationTask = TaskHandle(task);
    whenFinished(task, QtConcurrent::run([wine, environment, timeout]() -> ProbeOutcome {
                     try {
                         return {WineProcessProbe::read(wine, environment, timeout), {}};
                     } catch (WineProcessProbeError error) {
                         return {std::nullopt, WineProcessProbe::describe(error)};
                     } catch (const WineProcessProbe::SystemError &error) {
                         return {std::nullopt, error.description()};
                     }
                 }),
                 [this, arguments, token](const ProbeOutcome &outcome) { bottleChecked(arguments, token, outcome); });
}

void LaunchController::bottleChecked(const QStringList &arguments, QUuid token, const ProbeOutcome &outcome)
{
    if (m_token != token)
        return;
    if (!outcome.snapshot) {
        preparationFailed(token);
        return;
    }
    setCheckingSteam(false);
    m_preparationTask.cancel();
    const BottleProcessSnapshot &snapshot = *outcome.snapshot;
    if (snapshot.truckGameIsRunning()) {
        m_model.setIsRunning(false);
        m_token.reset();
        m_model.setStatusMessage(LocalizedMessage("A játék már fut"));
        m_model.activity().finish(LaunchStage::cancelled, std::nullopt, m_clock.now());
        m_model.appendLog(
            L("Már fut ATS vagy ETS2 ebben a palackban. Előbb lépj ki a játékból; a Steamet nyitva hagyhatod.\n"));
        return;
    }
    bool compatibilityChanged = false;
    try {
        compatibilityChanged = m_model.configureCrossOverBottle();
    } catch (CompatibilityProfile::ConfigurationError) {
        preparationFailed(token);
        return;
    } catch (const BottleConfiguration::FileError &) {
        preparationFailed(token);
        return;
    }
    // No game runs, so there is a mode.
    const BottleLaunchMode mode = BottleLaunchMode::normal(snapshot, compatibilityChanged).value_or(BottleLaunchMode::coldStart);
    switch (mode) {
    case BottleLaunchMode::reuseSteam:
        m_model.appendLog(L("A Steam már fut a kiválasztott palackban. Megtartjuk; csak a Korvane játékot indítjuk.\n"));
        m_model.setStatusMessage(LocalizedMessage("Játék indítása a futó Steammel"));
        break;
    case BottleLaunchMode::profileChange:
        m_model.appendLog(L("Átállás D3DMetal + MSync módra: a beállítások érvényesítéséhez most egyszer újraindítjuk a "
                            "palackot és a Steamet. A következő indítások megtartják a futó Steamet.\n"));
        m_model.setStatusMessage(LocalizedMessage("Grafikai beállítások alkalmazása"));
        break;
    case BottleLaunchMode::coldStart:
    case BottleLaunchMode::recovery:
        m_model.appendLog(L("A Steam nem fut. A bevált teljes indítás következik: palackleállítás → 8 másodperc → "
                            "Steam → játék.\n"));
        m_model.setStatusMessage(LocalizedMessage("Palackleállítás és 8 mp várakozás"));
        break;
    }
    startCLIProcess(arguments, token, 0, mode);
}

void LaunchController::preparationFailed(QUuid token)
{
    if (m_token != token)
        return;
    endPreparation();
    m_model.setStatusMessage(LocalizedMessage("Indítás előtti ellenőrzés sikertelen"));
    m_model.setIssue(LaunchIssue::probe);
    m_model.appendLog(L("Az indítás előtti ellenőrzés nem sikerült. Biztonságból nem állítottuk le a Steamet vagy a "
                        "palackot. Ellenőrizd a CrossOvert, majd próbáld újra.\n"));
    m_model.activity().finish(LaunchStage::failed, u"preflight"_s, m_clock.now());
}

// --- The microphone ----------------------------------------------------------------------------

void LaunchController::askForMicrophone()
{
    const QUuid token = replaceToken();
    m_model.setIsRunning(true);
    setCheckingSteam(true);
    m_model.setStatusMessage(LocalizedMessage("Mikrofonengedélyre vár"));
    m_microphone.requestAccess([self = QPointer<LaunchController>(this), token](bool granted) {
        if (!self || self->m_token != token)
            return;
        self->m_token.reset();
        self->setCheckingSteam(false);
        self->m_model.setIsRunning(false);
        if (granted)
            self->launchKorvane();
        else
            self->showMicrophonePermissionHelp();
    });
}

void LaunchController::showMicrophonePermissionHelp()
{
    m_model.setIssue(LaunchIssue::microphone);
    m_model.setStatusMessage(LocalizedMessage("Mikrofonengedély szükséges"));
    m_model.appendLog(L("A Korvane hangrendszerének indításához engedélyezd a launcher mikrofonhozzáférését: "
                        "Rendszerbeállítások → Adatvédelem és biztonság → Mikrofon. Ezután indítsd újra a launchert.\n"));
    m_model.activity().finish(LaunchStage::failed, u"microphone_permission"_s, m_clock.now());
}

// --- One attempt -------------------------------------------------------------------------------

void LaunchController::startCLIProcess(const QStringList &arguments, QUuid token, int attempt, BottleLaunchMode mode)
{
    const QString data = m_model.applicationDataDirectory();
    const QString directory = data + u"/Launches"_s;
    QString error;
    if (!PrivateDirectory::create(directory, &error)) {
        launchFailed(error);
        return;
    }
    const QString name = directory + u"/launch-"_s + RecordCoding::uuidText(token);
    const QString scriptPath = name + u".command"_s;
    const QString statusPath = name + u".status"_s;
    const QString bottle = m_model.selectedBottlePath();
    const QString script = LaunchScript::render(
        mode, bottle, m_model.wineServerPath(), m_model.cliDirectory().value_or(data), m_model.cliPath(), arguments,
        LaunchScript::environment(bottle, m_model.winePath(), m_model.wineServerPath(), data), statusPath,
        CompatibilityProfile::restartMarker(data, bottle), LaunchScript::hostIdleServer, m_timings.bottleRestartSeconds);
    if (!AtomicFile::write(scriptPath, script.toUtf8(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner,
                           &error)) {
        launchFailed(error);
        return;
    }

    QMap<QString, QString> environment;
    const QProcessEnvironment own = QProcessEnvironment::systemEnvironment();
    for (const QString &key : own.keys())
        environment.insert(key, own.value(key));
    // The home the launcher reads the game's logs from is the one the client writes them to.
    environment.insert(u"HOME"_s, m_model.paths().home);
    environment.insert(u"TERM"_s, u"xterm-256color"_s);
    environment.insert(u"TERM_PROGRAM"_s, u"KorvaneMacLauncher"_s);

    auto *next = new LaunchAttempt({arguments, token, attempt, mode}, m_terminals(), m_timings, m_clock, this);
    connect(next, &LaunchAttempt::output, this, [this](QUuid from, const QString &text) {
        if (m_token == from)
            m_model.appendLog(text);
    });
    connect(next, &LaunchAttempt::processEnded, this, &LaunchController::processEnded);
    connect(next, &LaunchAttempt::statusRead, this, &LaunchController::statusRead);
    connect(next, &LaunchAttempt::loaded, this, &LaunchController::gameLoaded);
    connect(next, &LaunchAttempt::froze, this, &LaunchController::gameFroze);
    if (!next->start(scriptPath, environment, directory, &error)) {
        delete next;
        launchFailed(error);
        return;
    }
    retireAttempt();
    m_attempt = next;
    Q_EMIT attemptStarted(next);
    next->startStatusMonitor(statusPath);
    startFreezeWatchdog();
}

void LaunchController::launchFailed(const QString &error)
{
    m_model.setIsRunning(false);
    m_token.reset();
    retireAttempt();
    m_model.setStatusMessage(LocalizedMessage("Indítási hiba"));
    m_model.setIssue(LaunchIssue::unexpected);
    m_model.appendLog(L("HIBA: %@\n", error));
    m_model.activity().finish(LaunchStage::failed, u"launch"_s, m_clock.now());
}

void LaunchController::retireAttempt()
{
    if (LaunchAttempt *old = m_attempt.data()) {
        old->stopFreezeWatchdog();
        old->stopStatusMonitor();
        old->terminate(&m_endingProcesses);
        old->deleteLater();
    }
    m_attempt.clear();
}

void LaunchController::processEnded(QUuid token)
{
    LaunchAttempt *ended = m_attempt.data();
    if (!ended || ended->token() != token)
        return;
    // The script's exit trap wrote its status: the monitor reads it at its next poll.
    const QString statusPath = m_model.applicationDataDirectory() + u"/Launches/launch-"_s
        + RecordCoding::uuidText(token) + u".status"_s;
    if (QFileInfo::exists(statusPath) || m_token != token)
        return;
    retireAttempt();
    m_token.reset();
    m_model.setIsRunning(false);
    m_model.setIssue(m_model.issue().value_or(LaunchIssue::unexpected));
    m_model.setStatusMessage(LocalizedMessage("Az indítófolyamat váratlanul leállt"));
    m_model.appendLog(L("HIBA: A beépített konzol állapotjelzés nélkül leállt.\n"));
    m_model.activity().finish(LaunchStage::failed, u"launcher_exit"_s, m_clock.now());
}

void LaunchController::statusRead(QUuid token, int exitCode)
{
    if (m_token != token || !m_model.isRunning())
        return;
    retireAttempt();
    m_token.reset();
    m_model.setIsRunning(false);
    if (exitCode == 0) {
        m_model.setStatusMessage(LocalizedMessage("A játék bezárult"));
        m_model.appendLog(L("\nA beépített konzol folyamata befejeződött.\n"));
        m_model.activity().finish(LaunchStage::finished, std::nullopt, m_clock.now());
        return;
    }
    m_model.setIssue(m_model.issue().value_or(LaunchIssue::unexpected));
    m_model.setStatusMessage(LocalizedMessage("Hiba (kód: %d)", {exitCode}));
    m_model.appendLog(L("\nA beépített konzol folyamata hibával állt le (kód: %d).\n", exitCode));
    m_model.activity().finish(LaunchStage::failed, u"exit_"_s + QString::number(exitCode), m_clock.now());
}

// --- The freeze watchdog -----------------------------------------------------------------------

void LaunchController::startFreezeWatchdog()
{
    FreezeWatch::Watch watch;
    watch.gameLog = m_model.gameLogPath();
    watch.clientLog = FreezeWatch::newestClientLog(m_model.multiplayerLogDirectory());
    watch.clientOffset = watch.clientLog ? FreezeWatch::sizeOf(*watch.clientLog) : 0;
    watch.start = m_clock.now();
    m_attempt->startFreezeWatchdog(watch);
}

void LaunchController::gameLoaded(QUuid token, FreezeWatch::Verdict verdict)
{
    if (m_token != token || !m_model.isRunning())
        return;
    m_model.setStatusMessage(LocalizedMessage("A játék betöltött"));
    m_model.didLoadGame();
    m_model.appendLog(verdict == FreezeWatch::Verdict::clientLoaded
                          ? L("A fagyásfigyelő sikeres Korvane-indítást észlelt.\n")
                          : L("A fagyásfigyelő sikeres betöltést észlelt.\n"));
}

void LaunchController::gameFroze(QUuid token)
{
    if (m_token != token || !m_model.isRunning() || !m_attempt)
        return;
    const LaunchAttempt::Plan plan = m_attempt->plan();
    if (plan.number < maximumRecoveries) {
        const int retry = plan.number + 1;
        m_model.activity().retry();
        m_model.appendLog(L("\nBetöltési fagyás észlelve. Automatikus újrapróbálkozás (%d/3)…\n", retry));
        m_model.setStatusMessage(LocalizedMessage("Automatikus újrapróbálkozás (%d/3)", {retry}));
        const QUuid next = replaceToken();
        retireAttempt();
        m_model.appendLog(L("Helyreállító indítás: a fagyás miatt a Steamet is újraindítjuk ebben a palackban.\n"));
        m_model.setStatusMessage(LocalizedMessage("Palackleállítás és 8 mp várakozás"));
        startCLIProcess(plan.arguments, next, retry, BottleLaunchMode::recovery);
        return;
    }
    m_model.appendLog(L("\nA játék három automatikus újrapróbálkozás után is ugyanott fagyott le. A palackot leállítom.\n"));
    m_model.activity().finish(LaunchStage::failed, u"startup_freeze"_s, m_clock.now());
    retireAttempt();
    m_token.reset();
    m_model.setIsRunning(false);
    stopBottleAfterWatchdogFailure();
}

void LaunchController::stopBottleAfterWatchdogFailure()
{
    auto *stop = new QProcess(this);
    const QMap<QString, QString> environment = m_model.processEnvironment();
    stop->setProgram(m_model.wineServerPath());
    stop->setArguments({u"-k"_s});
    stop->setProcessEnvironment(asProcessEnvironment(environment));
    stop->setWorkingDirectory(environment.value(u"PWD"_s));
    stop->setStandardInputFile(QProcess::nullDevice());
    stop->setStandardOutputFile(QProcess::nullDevice());
    stop->setStandardErrorFile(QProcess::nullDevice());
    connect(stop, &QProcess::finished, this, [this, stop] {
        stop->deleteLater();
        m_model.setStatusMessage(LocalizedMessage("Betöltési fagyás – leállítva"));
        Q_EMIT bottleStopFinished();
    });
    connect(stop, &QProcess::errorOccurred, this, [this, stop](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        stop->deleteLater();
        m_model.setStatusMessage(LocalizedMessage("Betöltési fagyás"));
        m_model.appendLog(L("A palack automatikus leállítása nem sikerült: %@\n", stop->errorString()));
        Q_EMIT bottleStopFinished();
    });
    stop->start();
}

// --- Stop and Steam ----------------------------------------------------------------------------

void LaunchController::stopBottle()
{
    m_model.activity().finish(LaunchStage::cancelled, std::nullopt, m_clock.now());
    const bool wasPreparing = m_isCheckingSteam;
    m_preparationTask.cancel();
    setCheckingSteam(false);
    m_token.reset();
    retireAttempt();
    if (wasPreparing) {
        m_model.setIsRunning(false);
        m_model.setStatusMessage(LocalizedMessage("Indítás megszakítva"));
        m_model.appendLog(L("Az indítást megszakítottad. A futó Steam változatlanul megmaradt.\n"));
        return;
    }
    if (LauncherModel::isExecutableFile(m_model.wineServerPath()) && !m_model.selectedBottlePath().isEmpty()) {
        m_model.appendLog(L("A CrossOver-palack folyamatainak leállítása…\n"));
        QString error;
        if (startDetached(m_model.wineServerPath(), {u"-k"_s}, m_model.processEnvironment(), &error))
            m_model.setStatusMessage(LocalizedMessage("Leállítás elküldve"));
        else
            m_model.appendLog(L("HIBA: Nem sikerült leállítani a palackot: %@\n", error));
    }
    m_model.setIsRunning(false);
}

void LaunchController::openSteam()
{
    const QString steam = m_model.steamPath();
    if (!QFileInfo(steam).isFile() || !LauncherModel::isExecutableFile(m_model.winePath())) {
        m_model.appendLog(L("HIBA: A Windows Steam vagy a CrossOver Wine nem található.\n"));
        return;
    }
    m_model.appendLog(L("Windows Steam indítása…\n"));
    QString error;
    if (startDetached(m_model.winePath(), {steam, u"-no-cef-sandbox"_s}, m_model.processEnvironment(), &error)) {
        m_model.setStatusMessage(LocalizedMessage("Steam elindítva"));
        return;
    }
    m_model.appendLog(L("HIBA: A Steam nem indítható: %@\n", error));
    m_model.setStatusMessage(LocalizedMessage("Indítási hiba"));
}
