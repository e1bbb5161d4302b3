#include "KorvaneMacLauncher/windowservices.h"

#include <QMenu>
#include <QWidget>

#import <AppKit/AppKit.h>

namespace {

// AppKit's own calls. The Dock menu is Qt's (QMenu::setAsDockMenu); a click on the Dock icon
// while no window is visible makes the application active again, which is where the window is
// brought back.
class MacWindowServices final : public WindowServices {
public:
    explicit MacWindowServices(QObject *parent) : WindowServices(parent)
    {
        MacWindowServices *services = this;
        m_observer = [[NSNotificationCenter defaultCenter]
            addObserverForName:NSApplicationDidBecomeActiveNotification
                        object:nil
                         queue:[NSOperationQueue mainQueue]
                    usingBlock:^(NSNotification *) {
                        bool visible = false;
                        for (NSWindow *window in [NSApp windows])
                            visible = visible || ([window isVisible] && [window canBecomeMainWindow]);
                        if (!visible)
                            Q_EMIT services->reopenRequested();
                    }];
    }

    ~MacWindowServices() override
    {
        if (m_observer)
            [[NSNotificationCenter defaultCenter] removeObserver:m_observer];
    }

    void hideApplication() override { [NSApp hide:nil]; }
    void unhideApplication() override { [NSApp unhide:nil]; }

    void activate(QWidget *window) override
    {
        [NSApp activateIgnoringOtherApps:YES];
        if (!window)
            return;
        window->show();
        window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
        window->raise();
        window->activateWindow();
    }

    void installMenu(QMenu *menu) override
    {
        if (menu)
            menu->setAsDockMenu();
    }

    // The Dock keeps the application reachable.
    bool keepsRunningWithoutWindow() const override { return true; }

private:
    id m_observer = nil;
};

} // namespace

std::unique_ptr<WindowServices> WindowServices::system(QObject *parent)
{
    return std::make_unique<MacWindowServices>(parent);
}
