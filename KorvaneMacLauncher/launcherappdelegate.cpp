#include "KorvaneMacLauncher/launcherappdelegate.h"

#include "KorvaneMacLauncher/appnotifications.h"
#include "KorvaneMacLauncher/windowservices.h"
#include "core/launchermodel.h"
#include "games/gamekind.h"
#include "preferences/l10n.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QWidget>

LauncherAppDelegate::LauncherAppDelegate(WindowServices &services, AppNotifications &notifications, QObject *parent)
    : QObject(parent), m_services(services), m_notifications(notifications), m_menu(new QMenu)
{
    const auto games = GameKind::allCases();
    for (std::size_t index = 0; index < games.size(); ++index) {
        QAction *item = m_menu->addAction(QString());
        item->setData(int(index));
        connect(item, &QAction::triggered, this, [this, item] { quickLaunch(item->data().toInt()); });
        m_launchItems.append(item);
    }
    // The Dock has its own show and quit; a tray menu needs them.
#ifndef Q_OS_MACOS
    m_menu->addSeparator();
    m_showItem = m_menu->addAction(QString(), this, &LauncherAppDelegate::reopen);
    m_quitItem = m_menu->addAction(QString(), qApp, &QApplication::quit);
#endif
    connect(m_menu, &QMenu::aboutToShow, this, &LauncherAppDelegate::refreshMenu);
    connect(&m_services, &WindowServices::reopenRequested, this, &LauncherAppDelegate::reopen);
    refreshMenu();
    m_services.installMenu(m_menu);
}

LauncherAppDelegate::~LauncherAppDelegate()
{
    delete m_menu;
}

void LauncherAppDelegate::setModel(LauncherModel *model)
{
    if (m_model)
        disconnect(m_model, nullptr, this, nullptr);
    m_model = model;
    if (model)
        for (auto changed : {&LauncherModel::isRunningChanged, &LauncherModel::updateSessionActiveChanged,
                             &LauncherModel::setupActiveChanged, &LauncherModel::pendingCompatibilityChanged})
            connect(model, changed, this, &LauncherAppDelegate::refreshMenu);
    refreshMenu();
}

void LauncherAppDelegate::setWindow(QWidget *window)
{
    m_window = window;
}

bool LauncherAppDelegate::modelIdle() const
{
    return m_model && !m_model->isRunning() && !m_model->updateSessionActive() && !m_model->setupActive()
        && !m_model->pendingCompatibility();
}

void LauncherAppDelegate::refreshMenu()
{
    const auto games = GameKind::allCases();
    const bool idle = modelIdle();
    for (qsizetype index = 0; index < m_launchItems.size(); ++index) {
        QAction *item = m_launchItems.at(index);
        item->setText(L("dock.launch", games.at(std::size_t(index)).rawValue()));
        item->setEnabled(idle);
    }
    if (m_showItem)
        m_showItem->setText(L("window.show"));
    if (m_quitItem)
        m_quitItem->setText(L("window.quit"));
}

void LauncherAppDelegate::quickLaunch(int tag)
{
    if (!m_model || !modelIdle())
        return;
    const auto games = GameKind::allCases();
    if (tag < 0 || tag >= int(games.size()))
        return;
    m_services.unhideApplication();
    m_services.activate(m_window);
    Q_EMIT m_notifications.launcherQuickLaunch(QVariant::fromValue(games.at(std::size_t(tag))));
}

void LauncherAppDelegate::reopen()
{
    m_services.activate(m_window);
}
