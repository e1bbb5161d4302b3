#pragma once

#include "core/bottle.h"
#include "core/launchercontext.h"
#include "core/launchissue.h"
#include "games/compatibilityservice.h"
#include "games/gamekind.h"
#include "games/gameprofile.h"
#include "preferences/applanguage.h"
#include "preferences/l10n.h"
#include "preferences/windowpreferences.h"
#include "sessions/sessionactivity.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QUuid>

#include <optional>

class ConsoleLog;
class LaunchController;
struct SettingsTransfer;

Q_DECLARE_METATYPE(std::optional<CompatibilityResult>)

// The launcher's central state: the bottles and the selected one, the game and its directory,
// the per-game options, the console log, the running state and the current launch problem.
// Every file path the rest of the launcher uses is derived here from three values (the bottle,
// the game directory and the game) at the moment it is read.
//
// Lives on the main thread. Setters run the property's observer after every assignment, as the
// property's comment says; published properties notify only when the value changed.
class LauncherModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<Bottle> bottles READ bottles WRITE setBottles NOTIFY bottlesChanged)
    Q_PROPERTY(QString selectedBottlePath READ selectedBottlePath WRITE setSelectedBottlePath NOTIFY selectedBottlePathChanged)
    Q_PROPERTY(GameKind game READ game WRITE setGame NOTIFY gameChanged)
    Q_PROPERTY(RenderingBackend backend READ backend WRITE setBackend NOTIFY backendChanged)
    Q_PROPERTY(QString gameDirectory READ gameDirectory WRITE setGameDirectory NOTIFY gameDirectoryChanged)
    Q_PROPERTY(bool useWineDesktop READ useWineDesktop WRITE setUseWineDesktop NOTIFY useWineDesktopChanged)
    Q_PROPERTY(QString desktopSize READ desktopSize WRITE setDesktopSize NOTIFY desktopSizeChanged)
    Q_PROPERTY(QString logText READ logText WRITE setLogText NOTIFY logTextChanged)
    Q_PROPERTY(bool isRunning READ isRunning WRITE setIsRunning NOTIFY isRunningChanged)
    Q_PROPERTY(bool skipIntro READ skipIntro WRITE setSkipIntro NOTIFY skipIntroChanged)
    Q_PROPERTY(std::optional<LaunchIssue> issue READ issue WRITE setIssue NOTIFY issueChanged)
    Q_PROPERTY(std::optional<CompatibilityResult> compatibility READ compatibility WRITE setCompatibility NOTIFY compatibilityChanged)
    Q_PROPERTY(std::optional<CompatibilityResult> pendingCompatibility READ pendingCompatibility WRITE setPendingCompatibility NOTIFY pendingCompatibilityChanged)
    Q_PROPERTY(bool updateSessionActive READ updateSessionActive WRITE setUpdateSessionActive NOTIFY updateSessionActiveChanged)
    Q_PROPERTY(bool setupActive READ setupActive WRITE setSetupActive NOTIFY setupActiveChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusChanged)
    Q_PROPERTY(bool isReady READ isReady NOTIFY statusChanged)

public:
    explicit LauncherModel(const LauncherContext &context, QObject *parent = nullptr);
    ~LauncherModel() override;

    // Persisted keys of the model's own settings.
    static inline const QString selectedBottleKey = QStringLiteral("selectedBottlePath");
    static inline const QString gameKey = QStringLiteral("game");
    static inline const QString backendKey = QStringLiteral("backend");
    static inline const QString useWineDesktopKey = QStringLiteral("useWineDesktop");
    static inline const QString desktopSizeKey = QStringLiteral("desktopSize");

    // --- Published state
    QList<Bottle> bottles() const { return m_bottles; }
    void setBottles(const QList<Bottle> &bottles);
    QString selectedBottlePath() const { return m_selectedBottlePath; }
    // On change: persisted, the automatic game directory follows, the profile is saved.
    void setSelectedBottlePath(const QString &path);
    GameKind game() const { return m_game; }
    // On change: the old game's profile is saved, the new game stored and its profile applied.
    void setGame(GameKind game);
    RenderingBackend backend() const { return m_backend; }
    void setBackend(RenderingBackend backend);
    QString gameDirectory() const { return m_gameDirectory; }
    void setGameDirectory(const QString &directory);
    bool useWineDesktop() const { return m_useWineDesktop; }
    void setUseWineDesktop(bool use);
    QString desktopSize() const { return m_desktopSize; }
    void setDesktopSize(const QString &size);
    QString logText() const;
    // Replaces the whole console text.
    void setLogText(const QString &text);
    bool isRunning() const { return m_isRunning; }
    // Going from running to stopped brings back a launcher that hid for the game.
    void setIsRunning(bool running);
    bool skipIntro() const { return m_skipIntro; }
    void setSkipIntro(bool skip);
    std::optional<LaunchIssue> issue() const { return m_issue; }
    void setIssue(std::optional<LaunchIssue> issue);
    std::optional<CompatibilityResult> compatibility() const { return m_compatibility; }
    void setCompatibility(const std::optional<CompatibilityResult> &result);
    std::optional<CompatibilityResult> pendingCompatibility() const { return m_pendingCompatibility; }
    void setPendingCompatibility(const std::optional<CompatibilityResult> &result);
    bool updateSessionActive() const { return m_updateSessionActive; }
    void setUpdateSessionActive(bool active);
    bool setupActive() const { return m_setupActive; }
    void setSetupActive(bool active);

    // --- Owned stores and services
    WindowPreferences &windowPreferences() { return *m_windowPreferences; }
    // The store the model, and the objects that share it, keep their settings in.
    UserDefaults &defaults() { return m_defaults; }
    GameProfiles &profiles() { return m_profiles; }
    const GameProfiles &profiles() const { return m_profiles; }
    SessionActivity &activity() { return *m_activity; }
    CompatibilityService &compatibilityService() { return *m_compatibilityService; }

    // --- Launch supervision, driven by the launch itself
    std::optional<GameKind> pendingGame() const { return m_pendingGame; }
    void setPendingGame(std::optional<GameKind> game) { m_pendingGame = game; }
    std::optional<QString> pendingExecutable() const { return m_pendingExecutable; }
    void setPendingExecutable(std::optional<QString> path) { m_pendingExecutable = std::move(path); }
    bool hiddenForGame() const { return m_hiddenForGame; }
    bool gameStartupDetected() const { return m_gameStartupDetected; }
    void setGameStartupDetected(bool detected) { m_gameStartupDetected = detected; }
    // The launch in progress: its token, whether it is still being prepared, its attempt.
    LaunchController &launch() { return *m_launch; }
    std::optional<QUuid> activeLaunchToken() const;
    bool isCheckingSteam() const;
    // The console text with its bound, reporting each appended piece.
    ConsoleLog &console() { return *m_console; }

    // --- Launching (the chain itself lives in LaunchController)
    // The launch button: checklist, version check, microphone, bottle check, client.
    void launchKorvane();
    // The user starts despite a version that is not known to be supported.
    void confirmCompatibilityLaunch();
    void cancelCompatibilityLaunch(bool cancelSession);
    // Ends the launch: a launch being prepared is abandoned without touching the bottle, a
    // running client is ended and the bottle's processes are stopped.
    void stopBottle();
    // Starts Windows Steam in the selected bottle on its own.
    void openSteam();
    // The game came up: the session records it, console output no longer names problems, and
    // the launcher hides when the window preferences ask for it.
    void didLoadGame();
    void setStatusMessage(const LocalizedMessage &message);

    bool manualGameDirectory() const { return m_manualGameDirectory; }

    // --- The machine, as the front end describes it
    const Microphone &microphone() const { return m_microphone; }
    const SystemFacts &systemFacts() const { return m_system; }

    // --- CrossOver and derived paths (computed on every read)
    const Paths &paths() const { return m_paths; }
    // An absolute path to a file this user may run.
    static bool isExecutableFile(const QString &path);
    QString winePath() const { return m_crossOver.winePath; }
    QString wineServerPath() const { return m_crossOver.wineServerPath; }
    QString bottlesDirectory() const { return m_crossOver.bottlesDirectory; }
    QString applicationDataDirectory() const;
    QString modsDirectory() const;
    // Absent when the launcher has no resource directory.
    std::optional<QString> cliDirectory() const;
    QString cliPath() const;
    QString injectorPath() const;
    QString gameExecutablePath() const;
    QString steamPath() const;
    QString gameLogPath() const;
    QString multiplayerLogDirectory() const;

    // --- The bottle's configuration and the environment of Wine commands
    // Brings the selected bottle's cxbottle.conf to the compatibility profile; tells whether the
    // bottle still has to restart for it. Throws BottleConfiguration::FileError and
    // CompatibilityProfile::ConfigurationError.
    bool configureCrossOverBottle();
    // Puts back the selected bottle's cxbottle.conf as it was before the launcher first changed
    // it; false when it already is. Throws BottleConfiguration::FileError.
    bool restoreBottleConfiguration();
    // A fresh environment for the probe, the Steam start and the bottle stop.
    QMap<QString, QString> processEnvironment() const;

    // --- Readiness
    QList<EnvironmentCheck> checks() const;
    bool isReady() const;
    // The issue of the first failing checklist row; `unexpected` when nothing fails.
    LaunchIssue missingRequirement() const;
    LocalizedMessage statusMessage() const { return m_statusMessage; }
    QString statusText() const { return m_statusMessage.text(); }
    void refreshStatus();

    // --- Bottles and the game directory
    void discoverBottles();
    void chooseBottle();
    void chooseGameDirectory();
    void resetGameDirectory();

    // --- Profiles
    void loadGameProfile();
    // Captures the model's settings into the profile of `game` (the current game when absent).
    void saveGameProfile(std::optional<GameKind> game = std::nullopt);

    // --- Settings transfer
    SettingsTransfer settingsSnapshot(const QSet<qint64> &favorites, AppLanguage language);
    // Applies the game-related part of a document. Throws SettingsTransferError: userCancelled
    // while a launch, an update, the setup or a compatibility decision is in progress (nothing
    // changes), fileReadCorruptFile when the document is invalid.
    void importSettings(const SettingsTransfer &document);
    // Whether settings may be exported or imported now.
    bool canTransferSettings() const;

    // --- The console
    // Appends to the console log, keeps it bounded and, while a launch runs and the game has
    // not loaded, names the problem the newest output reports.
    void appendLog(const QString &text);
    void replaceLog(const QString &text) { setLogText(text); }
    void clearLog();
    void copyLog();
    void openDataFolder();

Q_SIGNALS:
    void bottlesChanged();
    void selectedBottlePathChanged();
    void gameChanged();
    void backendChanged();
    void gameDirectoryChanged();
    void useWineDesktopChanged();
    void desktopSizeChanged();
    void logTextChanged();
    void isRunningChanged();
    void skipIntroChanged();
    void issueChanged();
    void compatibilityChanged();
    void pendingCompatibilityChanged();
    void updateSessionActiveChanged();
    void setupActiveChanged();
    // The status line and the checklist may have changed; sent on every refresh.
    void statusChanged();

private:
    void updateAutomaticGameDirectory();
    // Stores a published value and notifies when it changed; tells whether it did.
    template <typename T>
    bool publish(T &field, const T &value, void (LauncherModel::*changed)())
    {
        if (field == value)
            return false;
        field = value;
        Q_EMIT(this->*changed)();
        return true;
    }

    UserDefaults &m_defaults;
    const Clock &m_clock;
    const Microphone &m_microphone;
    const SystemFacts &m_system;
    Paths m_paths;
    CrossOverLocation m_crossOver;
    FilePanels *m_panels;
    Desktop *m_desktop;

    // Stored state.
    QList<Bottle> m_bottles;
    QString m_selectedBottlePath;
    GameKind m_game = GameKind::ets2;
    RenderingBackend m_backend = RenderingBackend::dx11;
    QString m_gameDirectory;
    bool m_useWineDesktop = false;
    QString m_desktopSize = QStringLiteral("1920x1080");
    ConsoleLog *m_console; // a child
    bool m_isRunning = false;
    QPointer<WindowPreferences> m_windowPreferences;
    GameProfiles m_profiles;
    QPointer<SessionActivity> m_activity;
    bool m_skipIntro = true;
    // True while a profile is being applied, so that the observers it sets off do not write the
    // half-applied state back. Starts true, and construction keeps it so until the stored game's
    // profile is applied, so that the stored settings and discovery do not overwrite a profile.
    bool m_loadingProfile = true;
    std::optional<LaunchIssue> m_issue;
    std::optional<CompatibilityResult> m_compatibility;
    std::optional<CompatibilityResult> m_pendingCompatibility;
    std::optional<GameKind> m_pendingGame;
    std::optional<QString> m_pendingExecutable;
    QPointer<CompatibilityService> m_compatibilityService;
    bool m_hiddenForGame = false;
    bool m_gameStartupDetected = false;
    bool m_updateSessionActive = false;
    bool m_setupActive = false;
    LocalizedMessage m_statusMessage{"Ellenőrzés…"};
    LaunchController *m_launch = nullptr; // a child, deleted first
    bool m_manualGameDirectory = false;
};
