#include "KorvaneMacLauncher/launcherapp.h"

#include "core/demosandbox.h"
#include "platform/bundleinfo.h"
#include "platform/microphone.h"
#include "platform/systeminfo.h"
#include "preferences/l10n.h"

#include <QApplication>
#include <QMenuBar>
#include <QProcess>

using namespace Qt::StringLiterals;

KorvaneMacLauncherApp::KorvaneMacLauncherApp(bool demo)
    : m_defaults(UserDefaults::openStandard()), m_paths(Paths::system()), m_services(WindowServices::system()),
      m_desktop(std::make_unique<QtDesktop>(*m_services))
{
    // The models write their restored settings back as they start: one save instead of one each.
    const UserDefaults::Batch startingUp(*m_defaults);
    L10n::install(m_defaults.get(), std::make_shared<const StringTables>(StringTables::load(m_paths.resources)));
    m_delegate = std::make_unique<LauncherAppDelegate>(*m_services, m_notifications);
    m_language = std::make_unique<LanguageSettings>(*m_defaults);
    m_model = std::make_unique<LauncherModel>(LauncherContext{
        *m_defaults, m_clock, Microphone::system(), SystemFacts::system(), m_paths,
        CrossOverLocation::system(m_paths.home), ServiceConfiguration::standard(), &m_panels, m_desktop.get(), nullptr,
        demo ? DemoSandbox::timings() : LaunchTimings{}});
    m_updates = std::make_unique<AppUpdates>(AppUpdatesContext::system(*m_defaults, m_clock, m_paths, m_desktop.get()));
    m_servers = std::make_unique<ServerListModel>(*m_defaults, m_clock, ServiceConfiguration::standard());

    ContentView::Services services{*m_defaults, *m_desktop, m_panels, m_confirmation,
                                   ReportDestination{ServiceConfiguration::standard(), BundleInfo::main(),
                                                     m_paths.temporary},
                                   demo, {}};
    // Without CrossOver there is nothing to launch; the demo shows what the launcher would do.
    services.startDemo = [] {
        if (QProcess::startDetached(QApplication::applicationFilePath(), {u"--demo"_s}))
            QApplication::quit();
    };
    m_window = std::make_unique<ContentView>(*m_model, *m_updates, *m_servers, m_model->windowPreferences(),
                                             *m_language, m_notifications, services);
#ifdef Q_OS_MACOS
    // The menu bar's settings item: Qt moves an action with the preferences role into the
    // application menu, as "Settings…" with ⌘,.
    m_menuBar = std::make_unique<QMenuBar>();
    m_menuBar->addMenu(QString())->addAction(m_window->settingsCommand());
#endif
    // An installed update has replaced the tree this program runs from, and nothing holds the
    // launcher: the new version starts in its place.
    QObject::connect(m_updates.get(), &AppUpdates::relaunchRequested, qApp, [] {
        if (QProcess::startDetached(QApplication::applicationFilePath(), QApplication::arguments().mid(1)))
            QApplication::quit();
    });
    m_panels.setParentWindow(m_window.get());
    m_confirmation.setParentWindow(m_window.get());
    m_delegate->setWindow(m_window.get());
    QObject::connect(m_window.get(), &ContentView::firstAppeared, m_delegate.get(),
                     [this] { m_delegate->setModel(m_model.get()); });
    QObject::connect(m_window.get(), &ContentView::closed, qApp, [this] {
        if (!m_services->keepsRunningWithoutWindow())
            QApplication::quit();
    });
}

KorvaneMacLauncherApp::~KorvaneMacLauncherApp()
{
    // The window observes the models: it goes first.
    m_window.reset();
}
