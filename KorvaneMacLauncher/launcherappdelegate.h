#pragma once

#include "core/launchermodel.h"

#include <QObject>
#include <QPointer>

class AppNotifications;
class QAction;
class QMenu;
class QWidget;
class WindowServices;

// The application delegate: the quick-launch menu (the Dock's, or the tray's), bringing the
// window back and the policy on closing it. It learns the model only when the main window first
// appears, and never keeps it alive.
class LauncherAppDelegate : public QObject {
    Q_OBJECT

public:
    LauncherAppDelegate(WindowServices &services, AppNotifications &notifications, QObject *parent = nullptr);
    ~LauncherAppDelegate() override;

    void setModel(LauncherModel *model);
    void setWindow(QWidget *window);
    LauncherModel *model() const { return m_model; }

    // The menu, one quick launch per game, tagged with the game's index; its items are enabled
    // only while the model is set and idle. Refreshed whenever it could change.
    QMenu *dockMenu() const { return m_menu; }
    bool modelIdle() const;
    // The menu item's action: `tag` is the game's index.
    void quickLaunch(int tag);
    // A Dock or tray click: brings the window back whether or not one is visible.
    void reopen();

private:
    void refreshMenu();

    WindowServices &m_services;
    AppNotifications &m_notifications;
    QPointer<LauncherModel> m_model;
    QPointer<QWidget> m_window;
    QMenu *m_menu;
    QList<QAction *> m_launchItems;
    QAction *m_showItem = nullptr;
    QAction *m_quitItem = nullptr;
};
