#include "KorvaneMacLauncher/mainwindow.h"

#include "core/launchermodel.h"
#include "platform/clock.h"
#include "platform/microphone.h"
#include "platform/paths.h"
#include "platform/systeminfo.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Korvane Mac Launcher"));
    // Closing the last window does not quit: the Dock icon brings it back.
    QApplication::setQuitOnLastWindowClosed(false);

    const auto defaults = UserDefaults::openStandard();
    const Paths paths = Paths::system();
    L10n::install(defaults.get(), std::make_shared<const StringTables>(StringTables::load(paths.resources)));

    SystemClock clock;
    LanguageSettings language(*defaults);
    // The window's panels and desktop services arrive with the real pages; until then the
    // choose operations do nothing.
    LauncherModel model(LauncherContext{*defaults, clock, Microphone::system(), SystemFacts::system(), paths,
                                        CrossOverLocation::system(paths.home),
                                        ServiceConfiguration::standard()});
    MainWindow window(model, language);
    window.show();
    QObject::connect(&window, &MainWindow::closed, &application, &QApplication::quit);
    return application.exec();
}
