#pragma once

#include "KorvaneMacLauncher/views/reportviews.h"
#include "KorvaneMacLauncher/views/viewkit.h"
#include "games/gamekind.h"

#include <QDialog>
#include <QPointer>
#include <QWidget>

#include <functional>

class QAction;
class QButtonGroup;
class QLabel;
class QPushButton;
class QStackedWidget;
class AppNotifications;
class AppUpdates;
class ConfirmationDialog;
class ConsoleView;
class Desktop;
class FilePanels;
class GamesPage;
class LanguageSettings;
class LauncherModel;
class ServerListModel;
class SettingsPage;
class UserDefaults;
class WindowPreferences;

// The pages of the main window, in the sidebar's order.
enum class LauncherPage { games, settings, console, servers, updates };

// The launcher's one window: the sidebar of pages and the page area. It holds only view state;
// every action goes to the model or the other shared objects.
class ContentView : public QWidget {
    Q_OBJECT

public:
    static inline const QString microphoneOnboardingShownKey = QStringLiteral("microphoneOnboardingShown");
    static inline const QString setupCompletedVersionKey = QStringLiteral("setupCompletedVersion");

    // The services the window's screens reach beyond the models.
    struct Services {
        UserDefaults &defaults;
        Desktop &desktop;
        FilePanels &panels;
        ConfirmationDialog &confirmation;
        // Whether this run is the demo (the window says so) and, when no CrossOver exists, how
        // to start one.
        // Where failure reports go, and where exports are built.
        ReportDestination reports{};
        bool demo = false;
        std::function<void()> startDemo{};
    };

    ContentView(LauncherModel &model, AppUpdates &updates, ServerListModel &servers, WindowPreferences &preferences,
                LanguageSettings &language, AppNotifications &notifications, const Services &services,
                QWidget *parent = nullptr);
    ~ContentView() override;

    LauncherPage page() const { return m_page; }
    void setPage(LauncherPage page);
    // The single path by which the window starts a launch: the microphone first.
    void requestLaunch();
    // Whether the card of `game` shows it as installed.
    bool isInstalled(GameKind game) const;

    bool showMicrophoneIntro() const { return bool(m_microphoneIntro); }
    bool showSetup() const { return bool(m_setup); }
    bool showDiagnostics() const { return bool(m_diagnostics); }
    bool launchAfterPermission() const { return m_launchAfterPermission; }
    QDialog *compatibilityPrompt() const { return m_compatibilityPrompt; }

    GamesPage *gamesPage() const { return m_games; }
    // The pages are built when first needed; these build them.
    SettingsPage *settingsPage();
    ConsoleView *consoleView();
    QWidget *pageWidget(LauncherPage page);
    // The settings command (Ctrl+, ; ⌘, on macOS), for the application's menu.
    QAction *settingsCommand() const { return m_settingsCommand; }
    // Every sheet the window can show, for the pictures of the documentation.
    QDialog *microphoneIntroSheet() const { return m_microphoneIntro; }
    QDialog *setupSheet() const { return m_setup; }
    QDialog *diagnosticsSheet() const { return m_diagnostics; }

    void presentSetup();
    void presentMicrophoneIntro();
    void presentDiagnostics();

Q_SIGNALS:
    // The window appeared for the first time.
    void firstAppeared();
    // The window was closed by the user.
    void closed();

protected:
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void buildPage(LauncherPage page);
    void launchButtonClicked();
    void quickLaunch(const QVariant &game);
    void showPending();
    void refresh();
    void retranslate();
    void microphoneIntroGone();
    QDialog *openSheet(QWidget *content, const QString &title);

    LauncherModel &m_model;
    AppUpdates &m_updates;
    ServerListModel &m_servers;
    WindowPreferences &m_preferences;
    LanguageSettings &m_language;
    AppNotifications &m_notifications;
    Services m_services;

    LauncherPage m_page = LauncherPage::games;
    bool m_appeared = false;
    bool m_painted = false;
    bool m_launchAfterPermission = false;
    QPointer<QDialog> m_microphoneIntro;
    QPointer<QDialog> m_setup;
    QPointer<QDialog> m_diagnostics;
    QPointer<QDialog> m_compatibilityPrompt;

    QButtonGroup *m_pageButtons;
    QLabel *m_appName;
    QLabel *m_running;
    QLabel *m_version;
    ViewKit::OutlinedLabel *m_banner;
    QPushButton *m_demoButton;
    QStackedWidget *m_stack;
    GamesPage *m_games;
    SettingsPage *m_settings = nullptr;
    ConsoleView *m_console = nullptr;
    QWidget *m_serversPage = nullptr;
    QWidget *m_updatesPage = nullptr;
    QAction *m_settingsCommand;
};
