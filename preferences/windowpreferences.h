#pragma once

#include <QObject>

class UserDefaults;

// Whether the launcher hides while a game runs and comes back when it ends.
class WindowPreferences : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool hideOnLaunch READ hideOnLaunch WRITE setHideOnLaunch NOTIFY hideOnLaunchChanged)
    Q_PROPERTY(bool restoreOnExit READ restoreOnExit WRITE setRestoreOnExit NOTIFY restoreOnExitChanged)

public:
    explicit WindowPreferences(UserDefaults &defaults, QObject *parent = nullptr);

    bool hideOnLaunch() const { return m_hideOnLaunch; }
    bool restoreOnExit() const { return m_restoreOnExit; }
    void setHideOnLaunch(bool hide);
    void setRestoreOnExit(bool restore);

    static inline const QString hideKey = QStringLiteral("hideOnGameLaunch");
    static inline const QString restoreKey = QStringLiteral("restoreAfterGameExit");

    // The stored restore preference: only a stored boolean counts, anything else is true.
    static bool storedRestoreOnExit(const UserDefaults &defaults);

Q_SIGNALS:
    void hideOnLaunchChanged(bool hide);
    void restoreOnExitChanged(bool restore);

private:
    UserDefaults &m_defaults;
    bool m_hideOnLaunch;
    bool m_restoreOnExit;
};
