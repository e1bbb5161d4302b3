#include "KorvaneMacLauncher/mainwindow.h"

#include "core/launchermodel.h"
#include "platform/bundleinfo.h"
#include "platform/clock.h"
#include "platform/microphone.h"
#include "platform/paths.h"
#include "platform/systeminfo.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QApplication>

#include <cstdio>
#include <cstring>
#include <optional>

namespace {
// Answered before the application object exists: that needs a display, and these need none.
// Any other argument is left to Qt (-platform, -style and the like).
std::optional<int> answerInformationOption(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("Korvane Mac Launcher %s\n", qPrintable(BundleInfo::versionText(BundleInfo::main())));
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::printf("usage: korvane-launcher [--version | --help]\n\n"
                        "Opens the Korvane Mac Launcher's window; korvanectl is its command-line front end.\n\n"
                        "environment:\n"
                        "  KORVANE_API_URL        the Korvane service's https base URL\n"
                        "  KORVANE_REPORT_URL     the failure-report endpoint\n"
                        "  CX_ROOT                CrossOver's install root (Linux; default /opt/cxoffice)\n"
                        "  KORVANE_RESOURCES_DIR  the resource folder, its CLI folder included\n"
                        "  KORVANE_CA_FILE        extra PEM certificates trusted for the service and reports\n");
            return 0;
        }
    }
    return std::nullopt;
}
} // namespace

int main(int argc, char *argv[])
{
    if (const auto status = answerInformationOption(argc, argv))
        return *status;

    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Korvane Mac Launcher"));
    QApplication::setApplicationVersion(BundleInfo::versionText(BundleInfo::main()));
    // Lets a Linux desktop match the window to the installed desktop entry and its icon.
    QGuiApplication::setDesktopFileName(BundleInfo::main().value(BundleInfo::identifierKey).toString());
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
