#pragma once

#include "platform/urlerror.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QSslConfiguration>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

// Decides, for each redirect a server answers with, whether the request may follow it. A
// declined redirect is not an error: the 3xx answer itself becomes the result.
class RedirectPolicy {
public:
    virtual ~RedirectPolicy() = default;
    virtual bool allowsRedirect(const QUrl &target) const = 0;
};

struct HttpTimeouts {
    // How long the request may wait for the next bytes to arrive.
    std::chrono::milliseconds request;
    // How long the whole transfer may take, redirects included.
    std::chrono::milliseconds resource;
};

struct HttpSessionOptions {
    HttpTimeouts timeouts;
    std::shared_ptr<const RedirectPolicy> redirects;
    // Trusted roots and protocol settings; the system's unless a test or support injects its own.
    std::optional<QSslConfiguration> tls;
};

struct HttpRequest {
    QUrl url;
    QByteArray method = QByteArrayLiteral("GET");
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    // The largest body we accept; the transfer is aborted as soon as more arrives.
    qint64 maximumBodySize = 0;
};

struct HttpResult {
    // Set when no HTTP answer came back (transport failure, time-out, cap passed, cancelled).
    std::optional<UrlError> error;
    // The HTTP status of the final answer; 0 when there was none.
    int status = 0;
    // Where the final answer came from (after any redirects that were followed).
    QUrl finalUrl;
    QByteArray body;

    bool isHttpResponse() const { return !error && status > 0; }
};

class HttpSession;

// One request in flight. Emits `finished` exactly once, on the session's thread, unless the
// session is destroyed first.
class HttpTask : public QObject {
    Q_OBJECT
public:
    void cancel();
    bool isFinished() const { return m_done; }

Q_SIGNALS:
    void finished(const HttpResult &result);

private:
    friend class HttpSession;
    HttpTask(QNetworkReply *reply, const HttpRequest &request, const HttpSessionOptions &options,
             QObject *parent);
    void onReadyRead();
    void onRedirected(const QUrl &target);
    void onFinished();
    void failWith(UrlError error);
    void complete(HttpResult result);

    QPointer<QNetworkReply> m_reply;
    std::shared_ptr<const RedirectPolicy> m_redirects;
    qint64 m_maximumBodySize;
    // The URL that is answering: the request's, then each redirect target we followed.
    QUrl m_url;
    QByteArray m_body;
    QTimer m_resourceTimer;
    bool m_done = false;
};

// An ephemeral HTTP session: no cookie jar, no cache, no stored credentials, the given time-outs
// and redirect policy, over the given TLS configuration. Lives on one thread; every task it
// starts is cancelled when it is destroyed or invalidated.
class HttpSession : public QObject {
    Q_OBJECT
public:
    explicit HttpSession(HttpSessionOptions options, QObject *parent = nullptr);
    ~HttpSession() override;

    // Never null. A URL that is not https with a host fails at once with unsupportedURL, without
    // any connection.
    HttpTask *start(const HttpRequest &request);
    // Cancels every task still in flight; the session stays usable.
    void invalidateAndCancel();

    const HttpSessionOptions &options() const { return m_options; }

private:
    HttpSessionOptions m_options;
    QNetworkAccessManager *m_manager;
};
