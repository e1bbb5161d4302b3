#pragma once

#include "servers/serverlistmodel.h"

#include <QToolButton>
#include <QWidget>

#include <chrono>

class LanguageSettings;
class LauncherModel;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;
class ServerRefreshLoop;

// The star that adds a server to the favourites or takes it out. With 100 favourites the list
// refuses new ones, so pressing the star of another server changes nothing.
class FavoriteButton : public QToolButton {
    Q_OBJECT
public:
    // Shows `server`'s state in `list`; the view that owns it rebuilds it when either changes.
    FavoriteButton(ServerListModel &list, TruckServer server, QWidget *parent = nullptr);

    const TruckServer &server() const { return m_server; }
    void refresh();

private:
    ServerListModel &m_list;
    TruckServer m_server;
};

// The servers page: the selected game's servers with status, players, queue and occupancy, a
// game picker that is the launcher's own game choice, and the refresh state of the list.
class ServersView : public QWidget {
    Q_OBJECT
public:
    // Shows the servers of `model`'s game and refreshes `list` while it is visible.
    ServersView(ServerListModel &list, LauncherModel &model, LanguageSettings &language, QWidget *parent = nullptr);

    ServerRefreshLoop &refreshLoop() { return *m_loop; }

private:
    void rebuild();

    ServerListModel &m_list;
    LauncherModel &m_model;
    ServerRefreshLoop *m_loop;
    QLabel *m_title, *m_info, *m_gameLabel, *m_error, *m_updated, *m_empty, *m_footnote;
    QPushButton *m_refresh;
    QComboBox *m_game;
    QProgressBar *m_loading;
    QVBoxLayout *m_rows;
};

// The games page's compact list of the favourite servers of the selected game.
class FavoriteServersView : public QWidget {
    Q_OBJECT
public:
    // Shows `list`'s favourites for `model`'s game and refreshes the list while visible.
    FavoriteServersView(ServerListModel &list, LauncherModel &model, LanguageSettings &language,
                        QWidget *parent = nullptr);

    ServerRefreshLoop &refreshLoop() { return *m_loop; }

Q_SIGNALS:
    void openServersRequested();

private:
    void rebuild();

    ServerListModel &m_list;
    LauncherModel &m_model;
    ServerRefreshLoop *m_loop;
    QLabel *m_title, *m_updated, *m_empty;
    QPushButton *m_manage;
    QVBoxLayout *m_rows;
};
