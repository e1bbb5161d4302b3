#include "KorvaneMacLauncher/screenshots.h"

#include "KorvaneMacLauncher/gamespage.h"
#include "KorvaneMacLauncher/gameviews.h"
#include "KorvaneMacLauncher/launcherapp.h"
#include "preferences/l10n.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDialog>
#include <QDir>
#include <QPixmap>
#include <QPushButton>
#include <QThread>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

struct Camera {
    QString directory;
    QString language;
    int failures = 0;

    void shoot(QWidget *widget, const QString &name)
    {
        settle(150);
        const QString path = u"%1/%2-%3.png"_s.arg(directory, language, name);
        if (!widget || !widget->grab().save(path)) {
            std::fprintf(stderr, "screenshots: could not write %s\n", qPrintable(path));
            ++failures;
            return;
        }
        std::printf("%s\n", qPrintable(path));
    }

    // Lets layouts, timers and the launch's own processes move on.
    static void settle(int milliseconds)
    {
        QDeadlineTimer deadline(milliseconds);
        do {
            QApplication::processEvents(QEventLoop::AllEvents, 20);
            QThread::msleep(5);
        } while (!deadline.hasExpired());
    }

    template <typename Condition>
    static bool waitFor(Condition condition, int milliseconds)
    {
        QDeadlineTimer deadline(milliseconds);
        while (!condition() && !deadline.hasExpired())
            settle(50);
        return condition();
    }
};

const char *const pageNames[] = {"games", "settings", "console", "servers", "updates"};

} // namespace

int Screenshots::take(KorvaneMacLauncherApp &app, const QString &directory)
{
    QDir().mkpath(directory);
    Camera camera{directory, QString()};
    ContentView &window = app.window();
    window.resize(1120, 820);
    window.show();
    Camera::settle(300);

    for (AppLanguage language : AppLanguage::allCases()) {
        app.languageSettings().setLanguage(language);
        camera.language = language.rawValue();
        // The first-run sheet opens as the window first appears.
        Camera::waitFor([&] { return window.showSetup(); }, 1000);
        // After the first language the wizard is opened as the settings page's support panel does.
        if (!window.showSetup())
            window.presentSetup();
        if (QDialog *setup = window.setupSheet()) {
            // Every step of the wizard, moving on with its own Next button.
            for (int step = 1; step <= 4; ++step) {
                camera.shoot(setup, u"sheet-setup-step%1"_s.arg(step));
                QPushButton *next = nullptr;
                for (QPushButton *button : setup->findChildren<QPushButton *>())
                    if (button->isVisible() && button->text() == L("setup.next"))
                        next = button;
                if (!next)
                    break;
                next->click();
            }
            setup->reject();
        }
        Camera::settle(100);

        for (std::size_t index = 0; index < std::size(pageNames); ++index) {
            window.setPage(LauncherPage(index));
            camera.shoot(&window, u"page-%1-%2"_s.arg(index + 1).arg(QString::fromLatin1(pageNames[index])));
        }
        window.setPage(LauncherPage::games);
        window.resize(900, 640);
        camera.shoot(&window, u"page-games-small"_s);
        window.resize(1120, 820);

        window.presentMicrophoneIntro();
        if (QDialog *intro = window.microphoneIntroSheet()) {
            camera.shoot(intro, u"sheet-microphone"_s);
            intro->reject();
        }
        window.presentDiagnostics();
        if (QDialog *diagnostics = window.diagnosticsSheet()) {
            camera.shoot(diagnostics, u"sheet-diagnostics"_s);
            diagnostics->reject();
        }
        Camera::settle(100);

        // A launch in the demo: the version cannot be checked offline, so the prompt comes first.
        window.gamesPage()->launchButton()->click();
        if (Camera::waitFor([&] { return window.compatibilityPrompt() != nullptr; }, 8000)) {
            camera.shoot(window.compatibilityPrompt(), u"dialog-compatibility"_s);
            if (auto *prompt = qobject_cast<CompatibilityPrompt *>(window.compatibilityPrompt()))
                prompt->launchAnywayButton()->click();
        }
        Camera::waitFor([&] { return app.model().isRunning(); }, 5000);
        Camera::settle(3500);
        window.setPage(LauncherPage::console);
        camera.shoot(&window, u"page-3-console-running"_s);
        window.setPage(LauncherPage::games);
        camera.shoot(&window, u"page-1-games-running"_s);
        app.model().stopBottle();
        Camera::waitFor([&] { return !app.model().isRunning(); }, 10000);
        Camera::settle(300);
    }
    return camera.failures == 0 ? 0 : 1;
}
