#include "core/launchermodel.h"

#include "core/bottlediscovery.h"
#include "core/consolelog.h"
#include "core/launchcontroller.h"
#include "crossover/bottleconfiguration.h"
#include "crossover/processenvironment.h"
#include "platform/clock.h"
#include "platform/desktop.h"
#include "platform/filepanels.h"
#include "platform/privatedirectory.h"
#include "platform/systeminfo.h"
#include "platform/userdefaults.h"
#include "preferences/settingstransfer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Joins as path components: the relative part is appended unchanged with one separator. An
// empty base leaves the relative part relative, which the existence tests below treat as
// missing.
QString joined(const QString &base, const QString &relative)
{
    if (base.isEmpty())
        return relative;
    return base.endsWith(u'/') ? QString(base + relative) : QString(base + u'/' + relative);
}

// A relative path names nothing on this machine for us: it would be resolved against whatever
// directory the launcher (or korvanectl) happens to run in.
bool exists(const QString &path)
{
    return path.startsWith(u'/') && QFileInfo::exists(path);
}

QString lastPathComponent(const QString &path)
{
    return Bottle{path}.name();
}

} // namespace

LauncherModel::LauncherModel(const LauncherContext &context, QObject *parent)
    : QObject(parent)
    , m_defaults(context.defaults)
    , m_clock(context.clock)
    , m_microphone(context.microphone)
    , m_system(context.system)
    , m_paths(context.paths)
    , m_crossOver(context.crossOver)
    , m_panels(context.panels)
    , m_desktop(context.desktop)
    , m_console(new ConsoleLog(this))
    , m_windowPreferences(new WindowPreferences(context.defaults, this))
    , m_profiles(context.defaults)
    , m_activity(new SessionActivity(context.activityDefaults ? *context.activityDefaults : context.defaults, context.clock,
                                     {context.paths.home, context.system.bundleInfo(),
                                      context.system.operatingSystemVersion()}, this))
    , m_compatibilityService(new CompatibilityService(context.service, this))
{
    m_console->replace(L("Az indító készen áll.\n"));
    connect(m_console, &ConsoleLog::appended, this, &LauncherModel::logTextChanged);
    connect(m_console, &ConsoleLog::replaced, this, &LauncherModel::logTextChanged);
    m_launch = new LaunchController(*this, context.clock, context.microphone, context.timings, context.terminals, this);

    if (const auto stored = m_defaults.string(gameKey))
        if (const auto game = GameKind::fromRawValue(*stored))
            setGame(*game);
    // A stored ATS has just applied its profile, which ends the loading state. Until the profile
    // is applied once more below, nothing may be saved into it: discovery's choice of bottle
    // would replace a remembered bottle that discovery cannot find.
    m_loadingProfile = true;

    // Only DirectX 11 is offered now: a recognised old choice is migrated, an unknown value is
    // left for whoever wrote it.
    if (const auto stored = m_defaults.string(backendKey))
        if (RenderingBackend::fromRawValue(*stored))
            setBackend(RenderingBackend::dx11);

    setUseWineDesktop(m_defaults.boolValue(useWineDesktopKey));
    setDesktopSize(m_defaults.string(desktopSizeKey).value_or(u"1920x1080"_s));

    discoverBottles();
    loadGameProfile();
    refreshStatus();
}

LauncherModel::~LauncherModel()
{
    // The launch reaches into the model until its last attempt is gone.
    delete m_launch;
}

bool LauncherModel::isExecutableFile(const QString &path)
{
    if (!path.startsWith(u'/'))
        return false;
    const QFileInfo info(path);
    return info.exists() && !info.isDir() && ::access(QFile::encodeName(path).constData(), X_OK) == 0;
}

// --- Published state -------------------------------------------------------------------------

void LauncherModel::setBottles(const QList<Bottle> &bottles)
{
    publish(m_bottles, bottles, &LauncherModel::bottlesChanged);
}

void LauncherModel::setSelectedBottlePath(const QString &path)
{
    if (!publish(m_selectedBottlePath, path, &LauncherModel::selectedBottlePathChanged))
        return;
    m_defaults.setString(selectedBottleKey, path);
    updateAutomaticGameDirectory();
    saveGameProfile();
}

void LauncherModel::setGame(GameKind game)
{
    const GameKind old = m_game;
    if (!publish(m_game, game, &LauncherModel::gameChanged))
        return;
    // The model still holds the old game's settings: keep them before the new game's replace them.
    saveGameProfile(old);
    m_defaults.setString(gameKey, game.rawValue());
    loadGameProfile();
}

void LauncherModel::setBackend(RenderingBackend backend)
{
    publish(m_backend, backend, &LauncherModel::backendChanged);
    m_defaults.setString(backendKey, backend.rawValue());
}

void LauncherModel::setGameDirectory(const QString &directory)
{
    publish(m_gameDirectory, directory, &LauncherModel::gameDirectoryChanged);
}

void LauncherModel::setUseWineDesktop(bool use)
{
    publish(m_useWineDesktop, use, &LauncherModel::useWineDesktopChanged);
    m_defaults.setBool(useWineDesktopKey, use);
}

void LauncherModel::setDesktopSize(const QString &size)
{
    publish(m_desktopSize, size, &LauncherModel::desktopSizeChanged);
    m_defaults.setString(desktopSizeKey, size);
    saveGameProfile();
}

QString LauncherModel::logText() const
{
    return m_console->text();
}

void LauncherModel::setLogText(const QString &text)
{
    if (m_console->text() != text)
        m_console->replace(text);
}

void LauncherModel::setIsRunning(bool running)
{
    const bool wasRunning = m_isRunning;
    if (!publish(m_isRunning, running, &LauncherModel::isRunningChanged))
        return;
    if (wasRunning && m_hiddenForGame) {
        m_hiddenForGame = false;
        if (m_windowPreferences->restoreOnExit() && m_desktop)
            m_desktop->unhideApplication();
    }
}

void LauncherModel::setSkipIntro(bool skip)
{
    publish(m_skipIntro, skip, &LauncherModel::skipIntroChanged);
    saveGameProfile();
}

void LauncherModel::setIssue(std::optional<LaunchIssue> issue)
{
    publish(m_issue, issue, &LauncherModel::issueChanged);
}

void LauncherModel::setCompatibility(const std::optional<CompatibilityResult> &result)
{
    publish(m_compatibility, result, &LauncherModel::compatibilityChanged);
}

void LauncherModel::setPendingCompatibility(const std::optional<CompatibilityResult> &result)
{
    publish(m_pendingCompatibility, result, &LauncherModel::pendingCompatibilityChanged);
}

void LauncherModel::setUpdateSessionActive(bool active)
{
    publish(m_updateSessionActive, active, &LauncherModel::updateSessionActiveChanged);
}

void LauncherModel::setSetupActive(bool active)
{
    publish(m_setupActive, active, &LauncherModel::setupActiveChanged);
}

// --- Launching -------------------------------------------------------------------------------

std::optional<QUuid> LauncherModel::activeLaunchToken() const
{
    return m_launch->activeLaunchToken();
}

bool LauncherModel::isCheckingSteam() const
{
    return m_launch->isCheckingSteam();
}

void LauncherModel::launchKorvane()
{
    m_launch->launchKorvane();
}

void LauncherModel::confirmCompatibilityLaunch()
{
    m_launch->confirmCompatibilityLaunch();
}

void LauncherModel::cancelCompatibilityLaunch(bool cancelSession)
{
    m_launch->cancelCompatibilityLaunch(cancelSession);
}

void LauncherModel::stopBottle()
{
    m_launch->stopBottle();
}

void LauncherModel::openSteam()
{
    m_launch->openSteam();
}

void LauncherModel::didLoadGame()
{
    m_activity->loaded(m_clock.now());
    m_gameStartupDetected = true;
    setIssue(std::nullopt);
    if (m_windowPreferences->hideOnLaunch() && !m_hiddenForGame) {
        m_hiddenForGame = true;
        if (m_desktop)
            m_desktop->hideApplication();
    }
}

void LauncherModel::setStatusMessage(const LocalizedMessage &message)
{
    m_statusMessage = message;
    Q_EMIT statusChanged();
}

// --- Derived paths ---------------------------------------------------------------------------

QString LauncherModel::applicationDataDirectory() const
{
    return joined(m_paths.applicationSupport, u"Korvane Mac Launcher"_s);
}

bool LauncherModel::configureCrossOverBottle()
{
    return BottleConfiguration::apply(applicationDataDirectory(), m_selectedBottlePath);
}

bool LauncherModel::restoreBottleConfiguration()
{
    return BottleConfiguration::restore(applicationDataDirectory(), m_selectedBottlePath);
}

QMap<QString, QString> LauncherModel::processEnvironment() const
{
    return ProcessEnvironment::build({m_paths.home, m_paths.loginName, m_paths.temporary, winePath(), wineServerPath(),
                                      m_selectedBottlePath, cliDirectory(), applicationDataDirectory()},
                                     QProcessEnvironment::systemEnvironment());
}

QString LauncherModel::modsDirectory() const
{
    return joined(applicationDataDirectory(), u"Korvane"_s);
}

std::optional<QString> LauncherModel::cliDirectory() const
{
    if (m_paths.resources.isEmpty())
        return std::nullopt;
    return joined(m_paths.resources, u"CLI"_s);
}

QString LauncherModel::cliPath() const
{
    const auto directory = cliDirectory();
    return directory ? joined(*directory, u"korvane-cli"_s) : QString();
}

QString LauncherModel::injectorPath() const
{
    const auto directory = cliDirectory();
    return directory ? joined(*directory, u"_internal/korvane_cli/korvane-cli.exe"_s) : QString();
}

QString LauncherModel::gameExecutablePath() const
{
    return joined(joined(m_gameDirectory, u"bin/win_x64"_s), m_game.executable());
}

QString LauncherModel::steamPath() const
{
    return joined(m_selectedBottlePath, BottleDiscovery::steamExecutable);
}

QString LauncherModel::gameLogPath() const
{
    return joined(joined(joined(m_paths.home, u"Documents"_s), m_game.rawValue()), u"game.log.txt"_s);
}

QString LauncherModel::multiplayerLogDirectory() const
{
    const QString folder = m_game == GameKind::ats ? u"ATSKVN"_s : u"ETS2KVN"_s;
    return joined(joined(joined(m_paths.home, u"Documents"_s), folder), u"logs"_s);
}

// --- Readiness -------------------------------------------------------------------------------

QList<EnvironmentCheck> LauncherModel::checks() const
{
    const bool steamExists = exists(steamPath());
    const bool gameExists = exists(gameExecutablePath());
    const QString cli = cliPath();
    const QString injector = injectorPath();
    const bool injectorExists = exists(injector);
    return {
        {QUuid::createUuid(), u"CrossOver Wine"_s,
         exists(winePath()) ? L("Elérhető") : L("CrossOver nem található"), isExecutableFile(winePath())},
        {QUuid::createUuid(), L("CrossOver-palack"),
         m_selectedBottlePath.isEmpty() ? L("Nincs kiválasztva") : lastPathComponent(m_selectedBottlePath),
         exists(joined(m_selectedBottlePath, BottleDiscovery::markerName))},
        {QUuid::createUuid(), u"Windows Steam"_s,
         steamExists ? L("Telepítve") : L("Nem található a palackban"), steamExists},
        {QUuid::createUuid(), m_game.rawValue(),
         gameExists ? L("Windows-verzió telepítve") : L("A játékfájl hiányzik"), gameExists},
        {QUuid::createUuid(), u"Korvane CLI 0.11.0"_s,
         injectorExists ? L("Teljesen beépítve") : L("A beépített CLI sérült"),
         isExecutableFile(cli) && injectorExists},
    };
}

bool LauncherModel::isReady() const
{
    const QList<EnvironmentCheck> rows = checks();
    return std::all_of(rows.cbegin(), rows.cend(), [](const EnvironmentCheck &row) { return row.ok; });
}

LaunchIssue LauncherModel::missingRequirement() const
{
    static constexpr LaunchIssue::Value byRow[] = {LaunchIssue::crossover, LaunchIssue::bottle, LaunchIssue::steam,
                                                   LaunchIssue::game, LaunchIssue::cli};
    const QList<EnvironmentCheck> rows = checks();
    for (qsizetype row = 0; row < rows.size() && row < qsizetype(std::size(byRow)); ++row)
        if (!rows.at(row).ok)
            return byRow[row];
    return LaunchIssue::unexpected;
}

void LauncherModel::refreshStatus()
{
    const char *key = m_isRunning                         ? "Korvane fut"
                      : isReady()                         ? "Indításra kész"
                      : exists(gameExecutablePath())      ? "Beállítás szükséges"
                                                          : "A játék telepítése szükséges";
    m_statusMessage = LocalizedMessage(key);
    // Always: the checklist is read from the disk, so it may have changed under an equal key.
    Q_EMIT statusChanged();
}

// --- Bottles and the game directory ----------------------------------------------------------

void LauncherModel::discoverBottles()
{
    const QList<Bottle> found = BottleDiscovery::find(m_crossOver.bottlesDirectory);
    const auto hasSteam = [](const Bottle &bottle) {
        return exists(joined(bottle.path, BottleDiscovery::steamExecutable));
    };
    setBottles(BottleDiscovery::sorted(found, hasSteam));

    const QString stored = m_defaults.string(selectedBottleKey).value_or(QString());
    const auto selectable = [this, &stored]() -> std::optional<QString> {
        for (const Bottle &bottle : std::as_const(m_bottles))
            if (bottle.path == stored)
                return bottle.path;
        return std::nullopt;
    };
    if (const auto remembered = selectable()) {
        setSelectedBottlePath(*remembered);
        return;
    }
    const auto withSteam = std::find_if(m_bottles.cbegin(), m_bottles.cend(), hasSteam);
    if (withSteam != m_bottles.cend()) {
        setSelectedBottlePath(withSteam->path);
    } else if (m_bottles.isEmpty()) {
        setSelectedBottlePath(QString());
        // The selection may not have changed, yet the game directory must still be derived.
        updateAutomaticGameDirectory();
    } else {
        setSelectedBottlePath(m_bottles.first().path);
    }
}

void LauncherModel::chooseBottle()
{
    if (!m_panels)
        return;
    const auto chosen = m_panels->chooseDirectory(L("CrossOver-palack kiválasztása"),
                                                  L("A cxbottle.conf fájlt tartalmazó palackmappát válaszd ki."));
    if (!chosen || chosen->isEmpty())
        return;
    const QString path = QDir::cleanPath(*chosen);
    if (!exists(joined(path, BottleDiscovery::markerName))) {
        appendLog(L("HIBA: A kiválasztott mappa nem CrossOver-palack.\n"));
        return;
    }
    if (!m_bottles.contains(Bottle{path})) {
        QList<Bottle> extended = m_bottles;
        extended.append(Bottle{path});
        setBottles(extended);
    }
    setSelectedBottlePath(path);
    refreshStatus();
}

void LauncherModel::chooseGameDirectory()
{
    if (!m_panels)
        return;
    const auto chosen = m_panels->chooseDirectory(
        L("%@ mappájának kiválasztása", m_game.rawValue()),
        L("A játék gyökérmappáját válaszd ki; ebben található a bin/win_x64 mappa."));
    if (!chosen || chosen->isEmpty())
        return;
    setGameDirectory(QDir::cleanPath(*chosen));
    m_manualGameDirectory = true;
    saveGameProfile();
    refreshStatus();
}

void LauncherModel::resetGameDirectory()
{
    m_manualGameDirectory = false;
    updateAutomaticGameDirectory();
    saveGameProfile();
}

void LauncherModel::updateAutomaticGameDirectory()
{
    if (m_manualGameDirectory)
        return;
    setGameDirectory(joined(joined(m_selectedBottlePath, BottleDiscovery::steamLibrary), m_game.rawValue()));
    refreshStatus();
}

// --- Profiles --------------------------------------------------------------------------------

void LauncherModel::loadGameProfile()
{
    m_loadingProfile = true;
    const GameProfile profile = m_profiles.profile(m_game).value_or(
        GameProfile{m_selectedBottlePath, QString(), true, u"1920x1080"_s,
                    m_defaults.boolValue(WindowPreferences::hideKey),
                    WindowPreferences::storedRestoreOnExit(m_defaults)});
    m_manualGameDirectory = false;
    if (!profile.bottle.isEmpty()) {
        // A remembered bottle stays listed even when discovery no longer finds it.
        if (!m_bottles.contains(Bottle{profile.bottle})) {
            QList<Bottle> extended = m_bottles;
            extended.append(Bottle{profile.bottle});
            setBottles(extended);
        }
        setSelectedBottlePath(profile.bottle);
    }
    setSkipIntro(profile.skipIntro);
    setDesktopSize(profile.desktopSize);
    m_windowPreferences->setHideOnLaunch(profile.hide);
    m_windowPreferences->setRestoreOnExit(profile.restore);
    if (profile.directory.isEmpty()) {
        updateAutomaticGameDirectory();
    } else {
        m_manualGameDirectory = true;
        setGameDirectory(profile.directory);
    }
    setCompatibility(std::nullopt);
    m_loadingProfile = false;
    saveGameProfile(m_game);
}

void LauncherModel::saveGameProfile(std::optional<GameKind> game)
{
    if (m_loadingProfile)
        return;
    const GameProfile profile{m_selectedBottlePath,
                              m_manualGameDirectory ? m_gameDirectory : QString(),
                              m_skipIntro,
                              m_desktopSize,
                              m_windowPreferences->hideOnLaunch(),
                              m_windowPreferences->restoreOnExit()};
    m_profiles.save(profile, game.value_or(m_game));
}

// --- Settings transfer -----------------------------------------------------------------------

bool LauncherModel::canTransferSettings() const
{
    return !m_isRunning && !m_updateSessionActive && !m_setupActive && !m_pendingCompatibility;
}

SettingsTransfer LauncherModel::settingsSnapshot(const QSet<qint64> &favorites, AppLanguage language)
{
    saveGameProfile();
    SettingsTransfer document;
    document.language = language.rawValue();
    document.game = m_game.rawValue();
    for (const GameKind game : GameKind::allCases()) {
        const GameProfile fallback{m_selectedBottlePath, QString(), true, u"1920x1080"_s, false, true};
        document.profiles.insert(game.rawValue(), m_profiles.profile(game).value_or(fallback));
    }
    document.favorites = QList<qint64>(favorites.cbegin(), favorites.cend());
    std::sort(document.favorites.begin(), document.favorites.end());
    return document;
}

void LauncherModel::importSettings(const SettingsTransfer &document)
{
    if (!canTransferSettings())
        throw SettingsTransferError(SettingsTransferError::userCancelled);
    document.validate();
    saveGameProfile();
    m_loadingProfile = true;
    for (const GameKind game : GameKind::allCases())
        m_profiles.save(document.profiles.value(game.rawValue()), game);
    // validate() accepted the game, so the lookup cannot fail.
    setGame(GameKind::fromRawValue(document.game).value_or(m_game));
    loadGameProfile();
    refreshStatus();
}

// --- The console -----------------------------------------------------------------------------

void LauncherModel::appendLog(const QString &text)
{
    m_activity->append(text);
    m_console->append(text);
    if (m_isRunning && !m_gameStartupDetected) {
        if (const auto found = LaunchIssue::classify(QStringView(m_console->text()).right(4000).toString()))
            setIssue(found);
    }
}

void LauncherModel::clearLog()
{
    setLogText(QString());
}

void LauncherModel::copyLog()
{
    if (m_desktop)
        m_desktop->copyToPasteboard(m_console->text());
}

void LauncherModel::openDataFolder()
{
    // A failure to create the folder is not reported: the file browser shows what there is.
    PrivateDirectory::create(applicationDataDirectory());
    if (m_desktop)
        m_desktop->openInFileBrowser(applicationDataDirectory());
}
