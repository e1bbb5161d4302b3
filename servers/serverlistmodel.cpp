#include "servers/serverlistmodel.h"

#include "platform/httpsession.h"
#include "platform/jsondecoding.h"
#include "platform/serverredirectpolicy.h"
#include "platform/userdefaults.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void missingOrMistyped(QLatin1StringView key)
{
    throw DecodingError(u"server member \"%1\" is missing or of the wrong type"_s.arg(key));
}

// Keys as Latin-1 views: a lookup then needs no QString of its own, which matters over
// thousands of servers.
qint64 requiredInteger(const QJsonObject &object, QLatin1StringView key)
{
    if (const auto value = JsonDecoding::integer(object.value(key)))
        return *value;
    missingOrMistyped(key);
}

QString requiredString(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString())
        missingOrMistyped(key);
    return value.toString();
}

TruckServer decodeServer(const QJsonValue &value)
{
    if (!value.isObject())
        throw DecodingError(u"a server is not a JSON object"_s);
    const QJsonObject object = value.toObject();
    TruckServer server;
    server.id = requiredInteger(object, "id"_L1);
    server.game = requiredString(object, "game"_L1);
    server.name = requiredString(object, "name"_L1);
    const QJsonValue online = object.value("online"_L1);
    if (!online.isBool())
        missingOrMistyped("online"_L1);
    server.online = online.toBool();
    server.players = requiredInteger(object, "players"_L1);
    server.queue = requiredInteger(object, "queue"_L1);
    server.maxplayers = requiredInteger(object, "maxplayers"_L1);
    const QJsonValue order = object.value("displayorder"_L1);
    if (!order.isUndefined() && !order.isNull()) {
        server.displayorder = JsonDecoding::integer(order);
        if (!server.displayorder)
            missingOrMistyped("displayorder"_L1);
    }
    return server;
}

// The service has sent the flag as a boolean and as text in either case over the years.
std::optional<bool> decodeErrorFlag(const QJsonValue &value)
{
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (value.isBool())
        return value.toBool();
    if (value.isString()) {
        const QString text = value.toString().toLower();
        if (text == "true"_L1)
            return true;
        if (text == "false"_L1)
            return false;
        throw UrlError(UrlError::cannotParseResponse, u"unreadable error flag"_s);
    }
    throw DecodingError(u"the error member is neither a boolean nor text"_s);
}

qsizetype userPerceivedLength(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

bool isAcceptable(const TruckServer &server)
{
    constexpr qsizetype nameLimit = 200;
    if (server.players < 0 || server.queue < 0 || server.maxplayers < 0)
        return false;
    // A name never has more characters than UTF-16 units, so most names need no segmentation.
    return server.name.size() < nameLimit || userPerceivedLength(server.name) < nameLimit;
}

// The first hundred positive identifiers, in the given order; a repeated one still counts.
QSet<qint64> favoriteSet(const QList<qint64> &ids)
{
    QSet<qint64> favorites;
    qsizetype taken = 0;
    for (qint64 id : ids) {
        if (id < 1)
            continue;
        if (taken++ == ServerListModel::maximumFavorites)
            break;
        favorites.insert(id);
    }
    return favorites;
}

} // namespace

double TruckServer::occupancy() const
{
    if (maxplayers < 1)
        return 0;
    return std::min(1.0, double(players) / double(maxplayers));
}

QList<TruckServer> ServerResponse::parse(const QByteArray &body)
{
    if (body.size() > maximumBodySize)
        throw UrlError(UrlError::dataLengthExceedsMaximum);
    const QJsonObject envelope = JsonDecoding::object(body);
    const std::optional<bool> error = decodeErrorFlag(envelope.value("error"_L1));
    const QJsonValue response = envelope.value("response"_L1);
    if (!response.isArray())
        throw DecodingError(u"the response member is missing or not an array"_s);
    const QJsonArray entries = response.toArray();

    QList<TruckServer> servers;
    servers.reserve(entries.size());
    for (const QJsonValue &entry : entries)
        servers.append(decodeServer(entry));

    if (error.value_or(false))
        throw UrlError(UrlError::cannotParseResponse, u"the service reported an error"_s);
    QSet<qint64> seen;
    seen.reserve(servers.size());
    for (const TruckServer &server : std::as_const(servers)) {
        if (seen.contains(server.id))
            throw UrlError(UrlError::cannotParseResponse, u"duplicate server id %1"_s.arg(server.id));
        seen.insert(server.id);
        if (!isAcceptable(server))
            throw UrlError(UrlError::cannotParseResponse, u"server %1 is not valid"_s.arg(server.id));
    }

    servers.removeIf([](const TruckServer &server) {
        return server.game != "ETS2"_L1 && server.game != "ATS"_L1;
    });
    std::stable_sort(servers.begin(), servers.end(), [](const TruckServer &a, const TruckServer &b) {
        return a.displayorder.value_or(a.id) < b.displayorder.value_or(b.id);
    });
    return servers;
}

ServerListModel::ServerListModel(UserDefaults &defaults, const Clock &clock,
                                 const ServiceConfiguration &service, QObject *parent)
    : QObject(parent), m_defaults(defaults), m_clock(clock), m_listURL(service.apiURL(u"/v2/servers"_s)),
      m_session(new HttpSession({service.timeouts(standardTimeouts),
                                 std::make_shared<ServerRedirectPolicy>(service.apiHost()), service.tls},
                                this))
{
    // Anything but an array of whole numbers is a damaged entry and loads as no favourites.
    const QVariant stored = defaults.object(favoritesKey);
    QList<qint64> ids;
    if (stored.typeId() == QMetaType::QVariantList) {
        for (const QVariant &item : stored.toList()) {
            const bool whole = item.typeId() == QMetaType::LongLong
                || (item.typeId() == QMetaType::Double && std::trunc(item.toDouble()) == item.toDouble()
                    && std::abs(item.toDouble()) < 9.2e18);
            if (!whole) {
                ids.clear();
                break;
            }
            ids.append(item.toLongLong());
        }
    }
    m_favorites = favoriteSet(ids);
}

ServerListModel::~ServerListModel() = default;

QList<TruckServer> ServerListModel::servers(GameKind game) const
{
    QList<TruckServer> result;
    const QString code = game.serverCode();
    for (const TruckServer &server : m_servers)
        if (server.game == code)
            result.append(server);
    return result;
}

QList<qint64> ServerListModel::favoriteList() const
{
    QList<qint64> ids(m_favorites.begin(), m_favorites.end());
    std::sort(ids.begin(), ids.end());
    return ids;
}

bool ServerListModel::isStale() const
{
    if (m_failed || !m_updated.isValid())
        return true;
    return m_updated.msecsTo(m_clock.now()) > staleMilliseconds;
}

void ServerListModel::refresh()
{
    if (m_loading)
        return;
    const QDateTime now = m_clock.now();
    if (m_lastAttempt.isValid() && m_lastAttempt.msecsTo(now) < throttleMilliseconds)
        return;
    m_lastAttempt = now;
    setLoading(true);
    HttpRequest request;
    request.url = m_listURL;
    request.maximumBodySize = ServerResponse::maximumBodySize;
    m_task = m_session->start(request);
    connect(m_task, &HttpTask::finished, this, &ServerListModel::finishRefresh);
}

void ServerListModel::cancelRefresh()
{
    if (m_task)
        m_task->cancel();
}

void ServerListModel::finishRefresh(const HttpResult &result)
{
    m_task = nullptr;
    if (result.error && result.error->code() == UrlError::cancelled) {
        setLoading(false);
        return;
    }
    try {
        if (!result.isHttpResponse())
            throw *result.error;
        if (result.status != 200)
            throw UrlError(UrlError::badServerResponse);
        m_servers = ServerResponse::parse(result.body);
        m_updated = m_clock.now();
        Q_EMIT serversChanged();
        Q_EMIT updatedChanged();
        setFailed(false);
    } catch (const std::exception &) {
        // The views show only that it failed; the old list stays visible.
        setFailed(true);
    }
    setLoading(false);
}

void ServerListModel::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    Q_EMIT loadingChanged();
}

void ServerListModel::setFailed(bool failed)
{
    if (m_failed == failed)
        return;
    m_failed = failed;
    Q_EMIT failedChanged();
}

void ServerListModel::toggleFavorite(qint64 id)
{
    if (id < 1)
        return;
    if (m_favorites.contains(id))
        m_favorites.remove(id);
    else if (m_favorites.size() < maximumFavorites)
        m_favorites.insert(id);
    storeFavorites();
}

void ServerListModel::replaceFavorites(const QList<qint64> &ids)
{
    m_favorites = favoriteSet(ids);
    storeFavorites();
}

void ServerListModel::storeFavorites()
{
    QVariantList stored;
    for (qint64 id : favoriteList())
        stored.append(QVariant(id));
    m_defaults.setArray(favoritesKey, stored);
    Q_EMIT favoritesChanged();
}
