#include "KorvaneMacLauncher/windowservices.h"

#include <QApplication>
#include <QIcon>
#include <QList>
#include <QMenu>
#include <QPointer>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QWidget>

namespace {

// No Dock here: a tray icon carries the same menu, and a click on it brings the window back.
// Without a tray (a bare X server, some desktops) nothing would be left to bring the window back
// with, so closing it quits.
class LinuxWindowServices final : public WindowServices {
public:
    explicit LinuxWindowServices(QObject *parent) : WindowServices(parent)
    {
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            return;
        // The installed icon when the desktop's theme has it; a stock icon rather than none.
        QIcon icon = QApplication::windowIcon();
        if (icon.isNull())
            icon = QApplication::style()->standardIcon(QStyle::SP_ComputerIcon);
        m_tray = new QSystemTrayIcon(icon, this);
        connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                Q_EMIT reopenRequested();
        });
        m_tray->show();
    }

    void hideApplication() override
    {
        m_hidden.clear();
        for (QWidget *window : QApplication::topLevelWidgets())
            if (window->isVisible() && !window->isHidden()) {
                m_hidden.append(window);
                window->hide();
            }
    }

    void unhideApplication() override
    {
        for (const QPointer<QWidget> &window : std::as_const(m_hidden))
            if (window)
                window->show();
        m_hidden.clear();
    }

    void activate(QWidget *window) override
    {
        if (!window)
            return;
        window->show();
        window->setWindowState((window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
        window->raise();
        window->activateWindow();
    }

    void installMenu(QMenu *menu) override
    {
        if (m_tray)
            m_tray->setContextMenu(menu);
    }

    bool keepsRunningWithoutWindow() const override { return m_tray != nullptr; }

private:
    QSystemTrayIcon *m_tray = nullptr;
    QList<QPointer<QWidget>> m_hidden;
};

} // namespace

std::unique_ptr<WindowServices> WindowServices::system(QObject *parent)
{
    return std::make_unique<LinuxWindowServices>(parent);
}
