#include "preferences/windowpreferences.h"

#include "platform/userdefaults.h"

WindowPreferences::WindowPreferences(UserDefaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_hideOnLaunch(defaults.boolValue(hideKey))
    , m_restoreOnExit(storedRestoreOnExit(defaults))
{
}

bool WindowPreferences::storedRestoreOnExit(const UserDefaults &defaults)
{
    const QVariant stored = defaults.object(restoreKey);
    return stored.typeId() == QMetaType::Bool ? stored.toBool() : true;
}

void WindowPreferences::setHideOnLaunch(bool hide)
{
    m_defaults.setBool(hideKey, hide);
    if (hide == m_hideOnLaunch)
        return;
    m_hideOnLaunch = hide;
    Q_EMIT hideOnLaunchChanged(hide);
}

void WindowPreferences::setRestoreOnExit(bool restore)
{
    m_defaults.setBool(restoreKey, restore);
    if (restore == m_restoreOnExit)
        return;
    m_restoreOnExit = restore;
    Q_EMIT restoreOnExitChanged(restore);
}
