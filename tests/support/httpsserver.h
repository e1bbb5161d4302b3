#pragma once

#include "platform/serviceconfiguration.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

// What the local server answers on one path.
struct ScriptedResponse {
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    // Accept the request and never answer, holding the connection open.
    bool stall = false;
    // After the headers, send the body in chunks of this size, one per interval, so the
    // transfer stays alive but slow. 0: the body goes out at once.
    int trickleIntervalMs = 0;
    qsizetype trickleChunk = 1;

    static ScriptedResponse json(QByteArray body, int status = 200)
    {
        return {status, {{"Content-Type", "application/json"}}, std::move(body)};
    }
    static ScriptedResponse redirect(int status, const QUrl &location)
    {
        return {status, {{"Location", location.toEncoded()}}, {}};
    }
    static ScriptedResponse stalled() { return {200, {}, {}, true}; }
};
Q_DECLARE_METATYPE(ScriptedResponse)

struct RecordedRequest {
    QByteArray method;
    QByteArray path;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    QByteArray header(const QByteArray &name) const;
};

// A real HTTPS server on 127.0.0.1, for tests of everything that talks to the service. Its
// certificate is made once per test run (for 127.0.0.1 and localhost) and trusted only by
// the clients of `configuration()`. Every answer closes its connection. A plain http one
// serves as the target of redirects that must not be followed.
class LocalHttpsServer : public QObject {
    Q_OBJECT
public:
    enum class Transport { tls, plain };

    explicit LocalHttpsServer(Transport transport = Transport::tls);

    quint16 port() const { return m_port; }
    // https (http for a plain server) on 127.0.0.1 and this server's port.
    QUrl url(const QString &path = {}) const;
    // Stops accepting connections: the port, still reported, refuses them from now on.
    void close() { m_server->close(); }

    // Unscripted paths answer 404.
    void respond(const QString &path, const ScriptedResponse &response) { m_routes.insert(path, response); }
    QList<RecordedRequest> requests() const { return m_requests; }
    qsizetype requestCount(const QString &path) const;

    // The service and report endpoints on this server, trusted, with time-outs short enough
    // for a test to sit through (2 s without data, 5 s for a whole transfer).
    ServiceConfiguration configuration() const;
    // The run's certificate as a PEM file, for child processes (KORVANE_CA_FILE).
    static QString certificatePath();

Q_SIGNALS:
    void requestReceived();

private:
    void readFrom(QTcpSocket *socket);

    Transport m_transport;
    QTcpServer *m_server;
    quint16 m_port = 0;
    QHash<QString, ScriptedResponse> m_routes;
    QList<RecordedRequest> m_requests;
};

// A service and a plain http server beside it, both answering "/v2/moved" with the same good
// answer, so that following a redirect that should have been refused shows in the result.
struct RedirectTargets {
    explicit RedirectTargets(const ScriptedResponse &moved);

    // A redirect to `pattern`, whose {port} is the service's port and {plainport} the plain
    // server's; `otherwise` when there is no pattern.
    ScriptedResponse redirectOr(const ScriptedResponse &otherwise, QString pattern) const;
    qsizetype movedRequests() const;

    LocalHttpsServer service;
    LocalHttpsServer plain{LocalHttpsServer::Transport::plain};
};

// How a call that talks to the service, or parses its answer, ended: "ok", the URL error's
// name ("timedOut"), or "decoding" for a document that is not the one expected.
QString outcomeOf(const std::function<void()> &action);
