#pragma once

#include "KorvaneMacLauncher/appnotifications.h"
#include "KorvaneMacLauncher/contentview.h"
#include "KorvaneMacLauncher/desktopservices.h"
#include "KorvaneMacLauncher/launcherappdelegate.h"
#include "KorvaneMacLauncher/windowservices.h"
#include "core/launchermodel.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/userdefaults.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"
#include "updates/appupdates.h"

#include <QMenuBar>

#include <memory>

// The application: the long-lived models, created once for the run, the window services and
// the delegate, and the one main window. The models exist before the window, and the window
// hands the model to the delegate only when it first appears.
class KorvaneMacLauncherApp {
public:
    // `demo`: the process already points at a demo sandbox (the window says so).
    explicit KorvaneMacLauncherApp(bool demo);
    ~KorvaneMacLauncherApp();

    ContentView &window() { return *m_window; }
    LauncherModel &model() { return *m_model; }
    LanguageSettings &languageSettings() { return *m_language; }
    LauncherAppDelegate &delegate() { return *m_delegate; }
    UserDefaults &defaults() { return *m_defaults; }

private:
    std::unique_ptr<UserDefaults> m_defaults;
    Paths m_paths;
    SystemClock m_clock;
    std::unique_ptr<WindowServices> m_services;
    std::unique_ptr<QtDesktop> m_desktop;
    QtFilePanels m_panels;
    QtConfirmationDialog m_confirmation;
    AppNotifications m_notifications;
    std::unique_ptr<LauncherAppDelegate> m_delegate;
    std::unique_ptr<LanguageSettings> m_language;
    std::unique_ptr<LauncherModel> m_model;
    std::unique_ptr<AppUpdates> m_updates;
    std::unique_ptr<ServerListModel> m_servers;
    std::unique_ptr<ContentView> m_window;
    // macOS only: the global menu bar, which has no window to belong to.
    std::unique_ptr<QMenuBar> m_menuBar;
};
