#pragma once

#include "games/gamekind.h"
#include "platform/clock.h"
#include "platform/serviceconfiguration.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include <optional>

class UserDefaults;

// One multiplayer server as the service lists it.
struct TruckServer {
    qint64 id = 0;
    // "ETS2" or "ATS" once the list has been filtered.
    QString game;
    QString name;
    bool online = false;
    qint64 players = 0;
    qint64 queue = 0;
    qint64 maxplayers = 0;
    std::optional<qint64> displayorder;

    // How full the server is, 0 to 1.
    double occupancy() const;
    bool operator==(const TruckServer &) const = default;
};

// The envelope of the service's answer to "/v2/servers".
namespace ServerResponse {
inline constexpr qint64 maximumBodySize = 2'000'000;
// The servers of both games, validated and in display order. Throws UrlError
// (dataLengthExceedsMaximum, cannotParseResponse) or DecodingError; one bad server rejects the
// whole answer.
QList<TruckServer> parse(const QByteArray &body);
} // namespace ServerResponse

class HttpSession;
class HttpTask;

// The public server list and the user's favourite servers. Lives on the main thread; the views
// observe it and ask for refreshes while they are shown.
class ServerListModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<TruckServer> servers READ servers NOTIFY serversChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    Q_PROPERTY(bool failed READ failed NOTIFY failedChanged)
    Q_PROPERTY(QDateTime updated READ updated NOTIFY updatedChanged)
    Q_PROPERTY(QList<qint64> favorites READ favoriteList NOTIFY favoritesChanged)
    Q_PROPERTY(bool isStale READ isStale)
public:
    static inline const QString favoritesKey = QStringLiteral("favoriteServerIDs");
    static constexpr qsizetype maximumFavorites = 100;
    static constexpr qint64 throttleMilliseconds = 60'000;
    static constexpr qint64 staleMilliseconds = 120'000;
    static constexpr HttpTimeouts standardTimeouts{std::chrono::seconds(12), std::chrono::seconds(15)};

    ServerListModel(UserDefaults &defaults, const Clock &clock, const ServiceConfiguration &service,
                    QObject *parent = nullptr);
    ~ServerListModel() override;

    QList<TruckServer> servers() const { return m_servers; }
    // The servers of one game, in display order.
    QList<TruckServer> servers(GameKind game) const;
    bool loading() const { return m_loading; }
    bool failed() const { return m_failed; }
    // Invalid until the first successful refresh.
    QDateTime updated() const { return m_updated; }
    QSet<qint64> favorites() const { return m_favorites; }
    // The favourites in ascending order, as they are stored.
    QList<qint64> favoriteList() const;
    bool isFavorite(qint64 id) const { return m_favorites.contains(id); }
    // Whether the views should ask for a refresh.
    bool isStale() const;

    // Fetches the list unless a fetch runs or the last one started less than a minute ago.
    void refresh();
    // Abandons the fetch in flight, if any; nothing but `loading` changes.
    void cancelRefresh();
    void toggleFavorite(qint64 id);
    void replaceFavorites(const QList<qint64> &ids);

Q_SIGNALS:
    void serversChanged();
    void loadingChanged();
    void failedChanged();
    void updatedChanged();
    void favoritesChanged();

private:
    void finishRefresh(const HttpResult &result);
    void setLoading(bool loading);
    void setFailed(bool failed);
    void storeFavorites();

    UserDefaults &m_defaults;
    const Clock &m_clock;
    QUrl m_listURL;
    HttpSession *m_session;
    QPointer<HttpTask> m_task;
    QList<TruckServer> m_servers;
    bool m_loading = false;
    bool m_failed = false;
    QDateTime m_updated;
    QSet<qint64> m_favorites;
    // Invalid stands for the distant past: the first refresh is always accepted.
    QDateTime m_lastAttempt;
};

Q_DECLARE_METATYPE(TruckServer)
