#include "KorvaneMacLauncher/contentview.h"

#include "KorvaneMacLauncher/appnotifications.h"
#include "KorvaneMacLauncher/consoleview.h"
#include "KorvaneMacLauncher/gamespage.h"
#include "KorvaneMacLauncher/gameviews.h"
#include "KorvaneMacLauncher/settingspage.h"
#include "KorvaneMacLauncher/views/microphoneonboarding.h"
#include "KorvaneMacLauncher/views/serverviews.h"
#include "KorvaneMacLauncher/views/setupsupportview.h"
#include "KorvaneMacLauncher/views/setupwizard.h"
#include "KorvaneMacLauncher/views/toolviews.h"
#include "KorvaneMacLauncher/views/updateviews.h"
#include "core/launchermodel.h"
#include "games/gameprofile.h"
#include "platform/microphone.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"
#include "updates/appupdates.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// The page list's column: the alternate base colour with a line on its right.
class Sidebar : public QFrame {
public:
    using QFrame::QFrame;

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), palette().color(QPalette::AlternateBase));
        painter.setPen(palette().color(QPalette::Mid));
        painter.drawLine(width() - 1, 0, width() - 1, height());
    }
};

constexpr std::array pages{LauncherPage::games, LauncherPage::settings, LauncherPage::console, LauncherPage::servers,
                           LauncherPage::updates};
const char *const pageKeys[] = {"page.games", "page.settings", "page.console", "page.servers", "page.updates"};

QScrollArea *scrolling(QWidget *page)
{
    auto *area = new QScrollArea;
    area->setWidget(page);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    return area;
}

bool fileExists(const QString &path)
{
    return QFileInfo(path).isFile();
}

} // namespace

ContentView::ContentView(LauncherModel &model, AppUpdates &updates, ServerListModel &servers,
                         WindowPreferences &preferences, LanguageSettings &language, AppNotifications &notifications,
                         const Services &services, QWidget *parent)
    : QWidget(parent), m_model(model), m_updates(updates), m_servers(servers), m_preferences(preferences),
      m_language(language), m_notifications(notifications), m_services(services),
      m_pageButtons(new QButtonGroup(this)), m_appName(new QLabel(this)), m_running(new QLabel(this)),
      m_version(new QLabel(this)), m_banner(new ViewKit::OutlinedLabel(this)), m_demoButton(new QPushButton(this)),
      m_stack(new QStackedWidget(this)), m_games(new GamesPage(model)), m_settingsCommand(new QAction(this))
{
    resize(1120, 820);
    setMinimumSize(900, 640);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto *sidebar = new Sidebar(this);
    sidebar->setFixedWidth(200);
    auto *side = new QVBoxLayout(sidebar);
    m_appName->setText(u"Korvane"_s);
    ViewKit::setFontStyle(m_appName, 20, QFont::ExtraBold);
    m_appName->setContentsMargins(4, 8, 4, 8);
    side->addWidget(m_appName);
    for (std::size_t index = 0; index < pages.size(); ++index) {
        auto *button = new ViewKit::SidebarButton(sidebar);
        m_pageButtons->addButton(button, int(index));
        side->addWidget(button);
    }
    side->addStretch();
    ViewKit::setTextColor(m_running, QColor(0x2e, 0x9d, 0x57));
    ViewKit::setFontStyle(m_running, 0, QFont::Bold);
    m_running->setWordWrap(true);
    side->addWidget(m_running);
    ViewKit::setTextColor(m_version, QColor(0x5f, 0x63, 0x68));
    side->addWidget(m_version);
    layout->addWidget(sidebar);

    auto *main = new QVBoxLayout;
    main->setContentsMargins(0, 0, 0, 0);
    auto *bannerRow = new QHBoxLayout;
    bannerRow->setContentsMargins(12, 8, 12, 0);
    m_banner->setWordWrap(true);
    m_banner->setOutline({QColor(0xe0, 0xc3, 0x6a), QColor(0xff, 0xf3, 0xcd), 6}, {10, 6, 10, 6},
                         QColor(0x5c, 0x44, 0x00));
    bannerRow->addWidget(m_banner, 1);
    bannerRow->addWidget(m_demoButton);
    main->addLayout(bannerRow);
    // Only the games page is built before the window first shows; the others follow right after
    // it, or as soon as someone asks for them, so the window comes up as fast as it can.
    m_stack->addWidget(scrolling(m_games));
    for (std::size_t index = 1; index < pages.size(); ++index)
        m_stack->addWidget(new QWidget);
    main->addWidget(m_stack, 1);
    layout->addLayout(main, 1);

    // The other screens, where they belong.
    auto *favorites = new FavoriteServersView(servers, model, language);
    m_games->extraArea()->addWidget(favorites);
    connect(favorites, &FavoriteServersView::openServersRequested, this, [this] { setPage(LauncherPage::servers); });
    // Keyboard: every page, the launch and the settings command. Qt::CTRL is ⌘ on macOS.
    const int digits[] = {Qt::Key_1, Qt::Key_2, Qt::Key_3, Qt::Key_4, Qt::Key_5};
    for (std::size_t index = 0; index < pages.size(); ++index) {
        auto *shortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(digits[index])), this);
        connect(shortcut, &QShortcut::activated, this, [this, index] { setPage(pages.at(index)); });
    }
    for (int key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto *launch = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(key)), this);
        connect(launch, &QShortcut::activated, this, [this] {
            if (m_games->launchButton()->isEnabled())
                m_games->launchButton()->click();
        });
    }
    m_settingsCommand->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_settingsCommand->setMenuRole(QAction::PreferencesRole);
    m_settingsCommand->setShortcutContext(Qt::ApplicationShortcut);
    addAction(m_settingsCommand);
    connect(m_settingsCommand, &QAction::triggered, this, [this] {
        Q_EMIT m_notifications.showLauncherAdvanced();
        show();
        raise();
        activateWindow();
    });

    connect(m_pageButtons, &QButtonGroup::idClicked, this, [this](int id) { setPage(pages.at(std::size_t(id))); });
    connect(m_games, &GamesPage::launchClicked, this, &ContentView::launchButtonClicked);
    connect(m_games, &GamesPage::settingsRequested, this, [this] { setPage(LauncherPage::settings); });
    connect(m_games, &GamesPage::diagnosticsRequested, this, &ContentView::presentDiagnostics);
    connect(m_demoButton, &QPushButton::clicked, this, [this] {
        if (m_services.startDemo)
            m_services.startDemo();
    });
    connect(&m_notifications, &AppNotifications::launcherQuickLaunch, this, &ContentView::quickLaunch);
    connect(&m_notifications, &AppNotifications::showLauncherAdvanced, this,
            [this] { setPage(LauncherPage::settings); });

    // A different game or folder makes the last version answer and problem stale.
    connect(&model, &LauncherModel::gameChanged, this, [this] {
        m_model.setCompatibility(std::nullopt);
        m_model.setIssue(std::nullopt);
    });
    connect(&model, &LauncherModel::gameDirectoryChanged, this, [this] { m_model.setCompatibility(std::nullopt); });
    connect(&model, &LauncherModel::pendingCompatibilityChanged, this, &ContentView::showPending);
    for (auto changed : {&LauncherModel::statusChanged, &LauncherModel::gameChanged,
                         &LauncherModel::gameDirectoryChanged, &LauncherModel::isRunningChanged,
                         &LauncherModel::issueChanged, &LauncherModel::compatibilityChanged,
                         &LauncherModel::selectedBottlePathChanged})
        connect(&model, changed, this, &ContentView::refresh);
    connect(&language, &LanguageSettings::languageChanged, this, &ContentView::retranslate);

    setPage(LauncherPage::games);
    retranslate();
}

ContentView::~ContentView()
{
    // The sheets report their end to this window, which is no longer whole once its own
    // destructor has run.
    for (QDialog *sheet : {m_setup.data(), m_microphoneIntro.data(), m_diagnostics.data(),
                           m_compatibilityPrompt.data()})
        if (sheet) {
            disconnect(sheet, nullptr, this, nullptr);
            delete sheet;
        }
}

void ContentView::buildPage(LauncherPage page)
{
    QWidget *built = nullptr;
    switch (page) {
    case LauncherPage::games: return;
    case LauncherPage::settings: {
        if (m_settings)
            return;
        m_settings = new SettingsPage(m_model, m_language);
        auto *support = new SetupSupportView(m_model, m_updates, m_language);
        connect(support, &SetupSupportView::setupRequested, this, [this] {
            if (!m_model.isRunning() && !m_updates.busy())
                presentSetup();
        });
        connect(support, &SetupSupportView::diagnosticsRequested, this, &ContentView::presentDiagnostics);
        m_settings->extraArea()->addWidget(support);
        m_settings->extraArea()->addWidget(new GameProfileView(m_model, m_preferences, m_language));
        m_settings->extraArea()->addWidget(new SettingsTransferView(m_model, m_language, m_servers,
                                                                    m_services.confirmation, m_services.panels));
        connect(m_settings, &SettingsPage::diagnosticsRequested, this, &ContentView::presentDiagnostics);
        connect(m_settings->assistance(), &AssistanceCard::settingsRequested, this,
                [this] { setPage(LauncherPage::settings); });
        m_settings->refresh();
        built = scrolling(m_settings);
        break;
    }
    case LauncherPage::console:
        if (m_console)
            return;
        m_console = new ConsoleView(m_model);
        m_console->extraArea()->addWidget(new ActivityPanel(m_model.activity(), m_language, m_services.confirmation,
                                                            m_services.panels, m_services.reports));
        built = m_console;
        break;
    case LauncherPage::servers:
        if (m_serversPage)
            return;
        m_serversPage = new ServersView(m_servers, m_model, m_language);
        built = scrolling(m_serversPage);
        break;
    case LauncherPage::updates: {
        if (m_updatesPage)
            return;
        m_updatesPage = new QWidget;
        auto *layout = new QVBoxLayout(m_updatesPage);
        layout->addWidget(new UpdateCenterView(m_updates, m_language, m_model.paths().resources));
        layout->addWidget(new MaintenanceView(m_model, m_updates, m_language, m_services.confirmation));
        layout->addStretch();
        built = scrolling(m_updatesPage);
        break;
    }
    }
    const int index = int(page);
    QWidget *placeholder = m_stack->widget(index);
    const bool current = m_stack->currentIndex() == index;
    m_stack->insertWidget(index, built);
    m_stack->removeWidget(placeholder);
    delete placeholder;
    if (current)
        m_stack->setCurrentIndex(index);
}

SettingsPage *ContentView::settingsPage()
{
    buildPage(LauncherPage::settings);
    return m_settings;
}

ConsoleView *ContentView::consoleView()
{
    buildPage(LauncherPage::console);
    return m_console;
}

QWidget *ContentView::pageWidget(LauncherPage page)
{
    buildPage(page);
    return m_stack->widget(int(page));
}

void ContentView::setPage(LauncherPage page)
{
    buildPage(page);
    m_page = page;
    m_stack->setCurrentIndex(int(page));
    if (QAbstractButton *button = m_pageButtons->button(int(page)))
        button->setChecked(true);
}

void ContentView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_appeared)
        return;
    m_appeared = true;
    m_model.refreshStatus();
    m_updates.attach(m_model);
    Q_EMIT firstAppeared();
    QTimer::singleShot(50, this, [this] {
        for (LauncherPage page : pages)
            buildPage(page);
    });
}

void ContentView::paintEvent(QPaintEvent *event)
{
    QWidget::paintEvent(event);
    if (m_painted)
        return;
    m_painted = true;
    // The sheets open once the window stands and shows, so they attach to it and do not hold
    // up its first picture.
    QTimer::singleShot(0, this, [this] {
        if (m_services.defaults.integer(setupCompletedVersionKey) < 1)
            presentSetup();
        else if (!m_services.defaults.boolValue(microphoneOnboardingShownKey)
                 && m_model.microphone().authorizationStatus() == MicrophoneAuthorization::notDetermined)
            presentMicrophoneIntro();
    });
}

void ContentView::closeEvent(QCloseEvent *event)
{
    event->accept();
    Q_EMIT closed();
}

void ContentView::launchButtonClicked()
{
    if (!m_model.isReady()) {
        // The model names the first missing requirement and closes the session.
        m_model.launchKorvane();
        setPage(LauncherPage::settings);
        return;
    }
    requestLaunch();
}

void ContentView::requestLaunch()
{
    if (m_model.microphone().authorizationStatus() != MicrophoneAuthorization::authorized) {
        m_launchAfterPermission = true;
        presentMicrophoneIntro();
        return;
    }
    m_model.launchKorvane();
}

void ContentView::quickLaunch(const QVariant &game)
{
    if (game.metaType() != QMetaType::fromType<GameKind>())
        return;
    if (m_model.isRunning() || m_model.updateSessionActive() || m_model.setupActive() || m_model.pendingCompatibility()
        || showDiagnostics() || showMicrophoneIntro() || showSetup())
        return;
    m_model.setGame(game.value<GameKind>());
    setPage(LauncherPage::games);
    requestLaunch();
}

bool ContentView::isInstalled(GameKind game) const
{
    const auto profile = m_model.profiles().profile(game);
    const QString bottle = profile && !profile->bottle.isEmpty() ? profile->bottle : m_model.selectedBottlePath();
    const QString directory = game == m_model.game()                    ? m_model.gameDirectory()
                              : profile && !profile->directory.isEmpty() ? profile->directory
                                                                         : bottle
                                      + u"/drive_c/Program Files (x86)/Steam/steamapps/common/"_s + game.rawValue();
    return fileExists(directory + u"/bin/win_x64/"_s + game.executable());
}

QDialog *ContentView::openSheet(QWidget *content, const QString &title)
{
    auto *sheet = new QDialog(this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setWindowTitle(title);
    auto *layout = new QVBoxLayout(sheet);
    content->setParent(sheet);
    layout->addWidget(content);
    sheet->resize(680, 560);
    sheet->open();
    return sheet;
}

void ContentView::presentSetup()
{
    if (m_setup)
        return;
    m_model.setSetupActive(true);
    auto *wizard = new SetupWizard(m_model, m_language, m_services.defaults);
    m_setup = openSheet(wizard, L("setup.title"));
    connect(wizard, &SetupWizard::closeRequested, m_setup, &QDialog::close);
    connect(m_setup, &QObject::destroyed, this, [this] { m_model.setSetupActive(false); });
}

void ContentView::presentMicrophoneIntro()
{
    if (m_microphoneIntro)
        return;
    auto *intro = new MicrophoneOnboarding(m_language, m_model.microphone());
    m_microphoneIntro = openSheet(intro, L("Mikrofonengedély"));
    connect(intro, &MicrophoneOnboarding::finished, m_microphoneIntro, &QDialog::close);
    connect(intro, &MicrophoneOnboarding::later, m_microphoneIntro, [this] {
        m_launchAfterPermission = false;
        m_microphoneIntro->close();
    });
    connect(m_microphoneIntro, &QObject::destroyed, this, &ContentView::microphoneIntroGone);
}

void ContentView::microphoneIntroGone()
{
    m_services.defaults.setBool(microphoneOnboardingShownKey, true);
    const bool launch = std::exchange(m_launchAfterPermission, false);
    if (launch && m_model.microphone().authorizationStatus() == MicrophoneAuthorization::authorized)
        m_model.launchKorvane();
}

void ContentView::presentDiagnostics()
{
    if (m_diagnostics)
        return;
    auto *view = new DiagnosticsView(m_model, m_language, m_services.panels, &m_services.desktop,
                                     m_services.reports.temporaryDirectory);
    m_diagnostics = openSheet(view, L("diagnostics.title"));
    connect(view, &DiagnosticsView::closeRequested, m_diagnostics, &QDialog::close);
}

void ContentView::showPending()
{
    if (!m_model.pendingCompatibility()) {
        if (m_compatibilityPrompt)
            m_compatibilityPrompt->close();
        return;
    }
    if (m_compatibilityPrompt)
        return;
    auto *prompt = new CompatibilityPrompt(m_model, this);
    prompt->setAttribute(Qt::WA_DeleteOnClose);
    m_compatibilityPrompt = prompt;
    prompt->open();
}

void ContentView::refresh()
{
    m_games->refresh([this](GameKind game) { return isInstalled(game); });
    if (m_settings)
        m_settings->refresh();
    m_running->setVisible(m_model.isRunning());
}

void ContentView::retranslate()
{
    const AppLanguage language = m_language.language();
    setLocale(QLocale(language.rawValue()));
    setWindowTitle(u"Korvane Mac Launcher"_s);
    for (std::size_t index = 0; index < pages.size(); ++index) {
        QAbstractButton *button = m_pageButtons->button(int(index));
        button->setText(L(pageKeys[index]));
        button->setAccessibleName(button->text());
        button->setToolTip(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + int(index))).toString(QKeySequence::NativeText));
    }
    m_running->setText(L("Játékfolyamat aktív"));
    m_version->setText(L("window.version", QApplication::applicationVersion()));
    m_settingsCommand->setText(L("Beállítások…"));
    const bool noCrossOver = !QFileInfo(m_model.winePath()).isFile();
    m_banner->setVisible(m_services.demo || noCrossOver);
    m_banner->setText(m_services.demo ? L("demo.banner") : L("demo.offer"));
    m_banner->setAccessibleName(m_banner->text());
    m_demoButton->setVisible(!m_services.demo && noCrossOver && bool(m_services.startDemo));
    m_demoButton->setText(L("demo.start"));
    m_demoButton->setAccessibleName(m_demoButton->text());
    m_games->retranslate();
    if (m_settings)
        m_settings->retranslate();
    if (m_console)
        m_console->retranslate();
    refresh();
}
