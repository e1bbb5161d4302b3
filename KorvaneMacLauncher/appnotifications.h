#pragma once

#include <QObject>
#include <QVariant>

// The application's notifications between the Dock or tray menu, the settings command and the
// main window. Carried as Qt signals on one object the application owns.
class AppNotifications : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

Q_SIGNALS:
    // "launcherQuickLaunch": `game` holds the GameKind to launch; anything else is ignored.
    void launcherQuickLaunch(const QVariant &game);
    // "showLauncherAdvanced": the settings command.
    void showLauncherAdvanced();
};
