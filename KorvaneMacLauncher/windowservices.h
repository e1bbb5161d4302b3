#pragma once

#include <QObject>

#include <memory>

class QMenu;
class QWidget;

// The application-wide window services of the desktop: hiding and showing the launcher as a
// whole, bringing it to the front, the menu of quick launches (the Dock's on macOS, a tray
// icon's on Linux) and what closing the main window means.
class WindowServices : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;
    ~WindowServices() override = default;

    virtual void hideApplication() = 0;
    virtual void unhideApplication() = 0;
    // Brings the application in front of the others and `window` in front of its own.
    virtual void activate(QWidget *window) = 0;
    // Shows `menu` as the Dock menu or in the tray; the caller keeps it.
    virtual void installMenu(QMenu *menu) = 0;
    // Whether the application stays reachable once its window is closed (the Dock, a tray
    // icon); without that, closing the window quits.
    virtual bool keepsRunningWithoutWindow() const = 0;

    static std::unique_ptr<WindowServices> system(QObject *parent = nullptr);

Q_SIGNALS:
    // A click on the Dock icon or the tray icon: the window should come back.
    void reopenRequested();
};
