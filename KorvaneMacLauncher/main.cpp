#include "KorvaneMacLauncher/launcherapp.h"
#include "KorvaneMacLauncher/screenshots.h"
#include "core/demosandbox.h"
#include "platform/bundleinfo.h"

#include <QApplication>
#include <QDir>
#include <QIcon>

#include <cstdio>
#include <cstring>
#include <optional>

using namespace Qt::StringLiterals;

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
            std::printf("usage: korvane-launcher [--demo] [--version | --help]\n\n"
                        "Opens the Korvane Mac Launcher's window; korvanectl is its command-line front end.\n\n"
                        "  --demo   runs on a throwaway home with a simulated CrossOver, a bottle and both games\n\n"
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
    QApplication::setApplicationName(u"Korvane Mac Launcher"_s);
    QApplication::setApplicationVersion(BundleInfo::versionText(BundleInfo::main()));
    // Lets a Linux desktop match the window to the installed desktop entry and its icon.
    const QString identifier = BundleInfo::main().value(BundleInfo::identifierKey).toString();
    QGuiApplication::setDesktopFileName(identifier);
    QApplication::setWindowIcon(QIcon::fromTheme(identifier));
    // Closing the last window does not quit: the Dock (or the tray) brings it back.
    QApplication::setQuitOnLastWindowClosed(false);

    QStringList arguments = QApplication::arguments().mid(1);
    // The pictures of the documentation are taken in the demo: the same bottle on every machine.
    std::optional<QString> screenshots;
    if (const qsizetype index = arguments.indexOf(u"--screenshots"_s); index >= 0 && index + 1 < arguments.size())
        screenshots = QDir(arguments.at(index + 1)).absolutePath();
    const bool demo = screenshots || arguments.contains(u"--demo"_s);
    std::optional<DemoSandbox::Setup> sandbox;
    if (demo) {
        QString error;
        sandbox = DemoSandbox::prepare(DemoSandbox::simulatorBeside(QApplication::applicationDirPath()),
                                       Paths::system().resources, &error);
        if (!sandbox) {
            std::fprintf(stderr, "korvane-launcher: no demo: %s\n", qPrintable(error));
            return 1;
        }
    }

    int status = 0;
    {
        KorvaneMacLauncherApp app(demo);
        if (screenshots) {
            status = Screenshots::take(app, *screenshots);
        } else {
            app.window().show();
            status = application.exec();
        }
    }
    if (sandbox)
        QDir(sandbox->root).removeRecursively();
    return status;
}
