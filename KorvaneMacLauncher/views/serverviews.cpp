#include "KorvaneMacLauncher/views/serverviews.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "preferences/languagesettings.h"

#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using ViewKit::Role;

namespace {

QString statusText(const ServerListModel &list, const TruckServer &server)
{
    if (list.isStale())
        return L("servers.stale");
    return L(server.online ? "servers.online" : "servers.offline");
}

// One server: status dot and text, name, players, queue and, on the full page, the occupancy
// bar. The row's object name carries the server id, so a test can find it.
QWidget *serverRow(ServerListModel &list, const TruckServer &server, bool full)
{
    auto *row = new QWidget;
    row->setObjectName(u"server-"_s + QString::number(server.id));
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 2, 0, 2);
    const QString status = statusText(list, server);
    auto *dot = new QLabel(u"●"_s);
    ViewKit::setTextColor(dot, list.isStale() ? QColor(0x9c, 0xa3, 0xaf)
                               : server.online ? QColor(0x16, 0xa3, 0x4a)
                                               : QColor(0xdc, 0x26, 0x26));
    dot->setAccessibleName(status);
    auto *statusLabel = ViewKit::label(Role::caption);
    statusLabel->setObjectName(u"status"_s);
    statusLabel->setText(status);
    statusLabel->setMinimumWidth(70);
    auto *name = ViewKit::label(Role::heading);
    name->setText(server.name);
    auto *players = ViewKit::label();
    players->setWordWrap(false);
    players->setText(QString::number(server.players) + u" / "_s + QString::number(server.maxplayers) + u"  "_s
                     + L("servers.players"));
    auto *queue = ViewKit::label(Role::caption);
    queue->setWordWrap(false);
    queue->setText(L("servers.queue", server.queue));
    layout->addWidget(dot);
    layout->addWidget(statusLabel);
    layout->addWidget(name, 1);
    layout->addWidget(players);
    layout->addWidget(queue);
    if (full) {
        auto *occupancy = new QProgressBar;
        occupancy->setRange(0, 1000);
        occupancy->setValue(int(server.occupancy() * 1000));
        occupancy->setTextVisible(false);
        occupancy->setFixedWidth(120);
        occupancy->setAccessibleName(L("servers.players"));
        layout->addWidget(occupancy);
    }
    layout->addWidget(new FavoriteButton(list, server));
    return row;
}

QString updatedLine(const ServerListModel &list)
{
    return L("servers.updated") + u' ' + ViewKit::relativeTime(list.updated(), QDateTime::currentDateTime());
}

} // namespace

FavoriteButton::FavoriteButton(ServerListModel &list, TruckServer server, QWidget *parent)
    : QToolButton(parent), m_list(list), m_server(std::move(server))
{
    setAutoRaise(true);
    connect(this, &QToolButton::clicked, this, [this] { m_list.toggleFavorite(m_server.id); });
    refresh();
}

void FavoriteButton::refresh()
{
    const bool favorite = m_list.isFavorite(m_server.id);
    setText(favorite ? u"★"_s : u"☆"_s);
    const QString help = L(favorite ? "favorites.remove" : "favorites.add", m_server.name);
    setToolTip(help);
    setAccessibleName(help);
}

ServersView::ServersView(ServerListModel &list, LauncherModel &model, LanguageSettings &language, QWidget *parent)
    : QWidget(parent), m_list(list), m_model(model)
{
    auto *layout = new QVBoxLayout(this);
    auto *header = new QHBoxLayout;
    m_title = ViewKit::label(Role::title);
    m_refresh = new QPushButton;
    connect(m_refresh, &QPushButton::clicked, this, [this] { m_list.refresh(); });
    header->addWidget(m_title, 1);
    header->addWidget(m_refresh);
    layout->addLayout(header);

    m_info = ViewKit::label(Role::caption);
    layout->addWidget(m_info);
    auto *picker = new QHBoxLayout;
    m_gameLabel = ViewKit::label(Role::heading);
    m_gameLabel->setWordWrap(false);
    m_game = new QComboBox;
    for (GameKind game : GameKind::allCases())
        m_game->addItem(game.rawValue(), game.rawValue());
    // The page's game is the launcher's game: choosing here switches the launcher's profile.
    connect(m_game, &QComboBox::activated, this, [this](int index) {
        if (const auto game = GameKind::fromRawValue(m_game->itemData(index).toString()))
            m_model.setGame(*game);
    });
    picker->addWidget(m_gameLabel);
    picker->addWidget(m_game);
    picker->addStretch();
    layout->addLayout(picker);

    m_loading = new QProgressBar;
    m_loading->setRange(0, 0);
    m_loading->setMaximumHeight(6);
    m_loading->setTextVisible(false);
    m_error = ViewKit::label(Role::warning);
    m_updated = ViewKit::label(Role::caption);
    m_empty = ViewKit::label();
    m_rows = new QVBoxLayout;
    m_footnote = ViewKit::label(Role::caption);
    for (QWidget *widget : {static_cast<QWidget *>(m_loading), static_cast<QWidget *>(m_error),
                            static_cast<QWidget *>(m_updated), static_cast<QWidget *>(m_empty)})
        layout->addWidget(widget);
    layout->addLayout(m_rows);
    layout->addWidget(m_footnote);
    layout->addStretch();

    for (auto changed : {&ServerListModel::serversChanged, &ServerListModel::loadingChanged,
                         &ServerListModel::failedChanged, &ServerListModel::updatedChanged,
                         &ServerListModel::favoritesChanged})
        connect(&m_list, changed, this, &ServersView::rebuild);
    connect(&m_model, &LauncherModel::gameChanged, this, &ServersView::rebuild);
    connect(&language, &LanguageSettings::languageChanged, this, &ServersView::rebuild);
    m_loop = new ServerRefreshLoop(m_list, *this);
    rebuild();
}

void ServersView::rebuild()
{
    m_title->setText(L("servers.title"));
    ViewKit::setText(m_refresh, L("servers.refresh"));
    m_refresh->setEnabled(!m_list.loading());
    m_info->setText(L("servers.info"));
    m_gameLabel->setText(L("Játék"));
    m_game->setAccessibleName(L("Játék"));
    m_game->setCurrentIndex(m_game->findData(m_model.game().rawValue()));
    m_loading->setVisible(m_list.loading());
    m_loading->setAccessibleName(L("servers.refresh"));
    m_error->setVisible(m_list.failed());
    m_error->setText(u"⚠ "_s + L("servers.error"));
    m_updated->setVisible(m_list.updated().isValid());
    if (m_list.updated().isValid())
        m_updated->setText(updatedLine(m_list));
    m_footnote->setText(L("servers.selection"));

    const QList<TruckServer> servers = m_list.servers(m_model.game());
    m_empty->setText(L("servers.empty"));
    m_empty->setVisible(servers.isEmpty() && !m_list.loading());
    ViewKit::clear(m_rows);
    for (const TruckServer &server : servers)
        m_rows->addWidget(serverRow(m_list, server, true));
}

FavoriteServersView::FavoriteServersView(ServerListModel &list, LauncherModel &model, LanguageSettings &language,
                                         QWidget *parent)
    : QWidget(parent), m_list(list), m_model(model)
{
    auto *layout = new QVBoxLayout(this);
    auto *header = new QHBoxLayout;
    auto *star = new QLabel(u"★"_s);
    m_title = ViewKit::label(Role::heading);
    m_manage = new QPushButton;
    connect(m_manage, &QPushButton::clicked, this, &FavoriteServersView::openServersRequested);
    header->addWidget(star);
    header->addWidget(m_title, 1);
    header->addWidget(m_manage);
    layout->addLayout(header);
    m_rows = new QVBoxLayout;
    layout->addLayout(m_rows);
    m_updated = ViewKit::label(Role::caption);
    m_empty = ViewKit::label(Role::caption);
    layout->addWidget(m_updated);
    layout->addWidget(m_empty);

    for (auto changed : {&ServerListModel::serversChanged, &ServerListModel::failedChanged,
                         &ServerListModel::updatedChanged, &ServerListModel::favoritesChanged})
        connect(&m_list, changed, this, &FavoriteServersView::rebuild);
    connect(&m_model, &LauncherModel::gameChanged, this, &FavoriteServersView::rebuild);
    connect(&language, &LanguageSettings::languageChanged, this, &FavoriteServersView::rebuild);
    m_loop = new ServerRefreshLoop(m_list, *this);
    rebuild();
}

void FavoriteServersView::rebuild()
{
    m_title->setText(L("favorites.title"));
    ViewKit::setText(m_manage, L("favorites.manage"));
    ViewKit::clear(m_rows);
    QList<TruckServer> favorites;
    for (const TruckServer &server : m_list.servers(m_model.game()))
        if (m_list.isFavorite(server.id))
            favorites.append(server);
    for (const TruckServer &server : favorites)
        m_rows->addWidget(serverRow(m_list, server, false));
    m_updated->setVisible(!favorites.isEmpty() && m_list.updated().isValid());
    if (m_updated->isVisibleTo(this))
        m_updated->setText(updatedLine(m_list));
    m_empty->setVisible(favorites.isEmpty());
    m_empty->setText(L(m_list.favorites().isEmpty() ? "favorites.empty" : "favorites.unavailable"));
}
