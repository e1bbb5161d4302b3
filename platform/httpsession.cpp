#include "platform/httpsession.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>

using namespace Qt::StringLiterals;

namespace {

// A jar that never keeps or sends a cookie, so nothing a server sets outlives one request.
class NoCookies final : public QNetworkCookieJar {
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    QList<QNetworkCookie> cookiesForUrl(const QUrl &) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie> &, const QUrl &) override { return false; }
};

bool isUsableURL(const QUrl &url)
{
    return url.isValid() && url.scheme() == "https"_L1 && !url.host().isEmpty();
}

UrlError::Code codeFor(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::HostNotFoundError: return UrlError::cannotFindHost;
    case QNetworkReply::ConnectionRefusedError: return UrlError::cannotConnectToHost;
    case QNetworkReply::RemoteHostClosedError: return UrlError::networkConnectionLost;
    // The transfer time-out aborts the reply; every abort of our own carries its own reason.
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: return UrlError::timedOut;
    case QNetworkReply::SslHandshakeFailedError: return UrlError::secureConnectionFailed;
    case QNetworkReply::ProtocolUnknownError: return UrlError::unsupportedURL;
    case QNetworkReply::InsecureRedirectError:
    case QNetworkReply::TooManyRedirectsError: return UrlError::badServerResponse;
    default: return UrlError::unknown;
    }
}

// Qt reports 4xx and 5xx answers as reply errors; for us they are answers like any other.
bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    const int value = int(error);
    return (value >= 201 && value <= 299) || (value >= 401 && value <= 499);
}

} // namespace

HttpTask::HttpTask(QNetworkReply *reply, const HttpRequest &request, const HttpSessionOptions &options,
                   QObject *parent)
    : QObject(parent), m_reply(reply), m_redirects(options.redirects),
      m_maximumBodySize(request.maximumBodySize), m_url(request.url)
{
    m_resourceTimer.setSingleShot(true);
    connect(&m_resourceTimer, &QTimer::timeout, this, [this] { failWith(UrlError(UrlError::timedOut)); });
    m_resourceTimer.start(options.timeouts.resource);
    if (!reply) {
        // Reported from the event loop so that the caller has connected to `finished` first.
        QMetaObject::invokeMethod(this, [this] { failWith(UrlError(UrlError::unsupportedURL)); },
                                  Qt::QueuedConnection);
        return;
    }
    connect(reply, &QNetworkReply::readyRead, this, &HttpTask::onReadyRead);
    connect(reply, &QNetworkReply::redirected, this, &HttpTask::onRedirected);
    connect(reply, &QNetworkReply::finished, this, &HttpTask::onFinished);
}

void HttpTask::cancel()
{
    failWith(UrlError(UrlError::cancelled));
}

void HttpTask::onReadyRead()
{
    if (m_done || !m_reply || !m_reply->isOpen())
        return;
    // Drained at every arrival, so Qt's own buffer stays small and the cap is checked against
    // what has really come in.
    const qint64 room = m_maximumBodySize - m_body.size();
    const QByteArray chunk = m_reply->read(std::max<qint64>(room, 0) + 1);
    m_body.append(chunk);
    if (m_body.size() > m_maximumBodySize)
        failWith(UrlError(UrlError::dataLengthExceedsMaximum));
    else if (m_reply->bytesAvailable() > 0)
        onReadyRead();
}

void HttpTask::onRedirected(const QUrl &target)
{
    if (m_done || !m_reply)
        return;
    if (m_redirects && m_redirects->allowsRedirect(target)) {
        m_url = target;
        m_body.clear();
        Q_EMIT m_reply->redirectAllowed();
        return;
    }
    HttpResult declined;
    declined.status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    declined.finalUrl = m_url;
    QNetworkReply *reply = m_reply;
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
    complete(std::move(declined));
}

void HttpTask::onFinished()
{
    if (m_done || !m_reply)
        return;
    onReadyRead();
    if (m_done)
        return;
    QNetworkReply *reply = m_reply;
    reply->deleteLater();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    HttpResult result;
    if (reply->error() == QNetworkReply::NoError || (isHttpStatusError(reply->error()) && status.isValid())) {
        result.status = status.toInt();
        result.finalUrl = m_url;
        result.body = std::move(m_body);
        if (result.status <= 0)
            result.error = UrlError(UrlError::badServerResponse);
    } else {
        result.error = UrlError(codeFor(reply->error()), reply->errorString());
    }
    complete(std::move(result));
}

void HttpTask::failWith(UrlError error)
{
    if (m_done)
        return;
    if (QNetworkReply *reply = m_reply) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    HttpResult result;
    result.error = std::move(error);
    complete(std::move(result));
}

void HttpTask::complete(HttpResult result)
{
    m_done = true;
    m_resourceTimer.stop();
    m_reply = nullptr;
    Q_EMIT finished(result);
    deleteLater();
}

HttpSession::HttpSession(HttpSessionOptions options, QObject *parent)
    : QObject(parent), m_options(std::move(options)), m_manager(new QNetworkAccessManager(this))
{
    m_manager->setCookieJar(new NoCookies(m_manager));
    m_manager->setCache(nullptr);
    m_manager->setStrictTransportSecurityEnabled(false);
}

HttpSession::~HttpSession()
{
    // Whoever waits on a task of a session that goes away is not called back any more.
    for (HttpTask *task : findChildren<HttpTask *>(Qt::FindDirectChildrenOnly)) {
        task->m_done = true;
        if (QNetworkReply *reply = task->m_reply) {
            reply->disconnect(task);
            reply->abort();
        }
    }
}

HttpTask *HttpSession::start(const HttpRequest &request)
{
    if (!isUsableURL(request.url))
        return new HttpTask(nullptr, request, m_options, this);

    QNetworkRequest networkRequest(request.url);
    if (m_options.tls)
        networkRequest.setSslConfiguration(*m_options.tls);
    networkRequest.setTransferTimeout(int(m_options.timeouts.request.count()));
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::UserVerifiedRedirectPolicy);
    networkRequest.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    networkRequest.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    networkRequest.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    for (const auto &[name, value] : request.headers)
        networkRequest.setRawHeader(name, value);

    QNetworkReply *reply = request.body.isEmpty() && request.method == "GET"
        ? m_manager->get(networkRequest)
        : m_manager->sendCustomRequest(networkRequest, request.method, request.body);
    return new HttpTask(reply, request, m_options, this);
}

void HttpSession::invalidateAndCancel()
{
    for (HttpTask *task : findChildren<HttpTask *>(Qt::FindDirectChildrenOnly))
        task->cancel();
}
