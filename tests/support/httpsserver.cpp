#include "httpsserver.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QTimer>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

struct RunCertificate {
    QTemporaryDir directory;
    QSslCertificate certificate;
    QSslKey key;

    RunCertificate()
    {
        const QString keyPath = directory.filePath(u"key.pem"_s);
        const QString certificatePath = directory.filePath(u"certificate.pem"_s);
        QProcess openssl;
        openssl.setProcessChannelMode(QProcess::MergedChannels);
        openssl.start(u"openssl"_s,
                      {u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s, u"ec_paramgen_curve:prime256v1"_s,
                       u"-nodes"_s, u"-days"_s, u"2"_s, u"-subj"_s, u"/CN=Korvane test server"_s,
                       u"-addext"_s, u"subjectAltName=IP:127.0.0.1,DNS:localhost"_s, u"-keyout"_s, keyPath,
                       u"-out"_s, certificatePath});
        if (!openssl.waitForFinished(60'000) || openssl.exitCode() != 0)
            qFatal("openssl could not make the test certificate: %s", openssl.readAll().constData());
        QFile keyFile(keyPath);
        QFile certificateFile(certificatePath);
        if (!keyFile.open(QIODevice::ReadOnly) || !certificateFile.open(QIODevice::ReadOnly))
            qFatal("the test certificate was not written");
        key = QSslKey(keyFile.readAll(), QSsl::Ec);
        certificate = QSslCertificate(certificateFile.readAll());
        if (key.isNull() || certificate.isNull())
            qFatal("the test certificate could not be read back");
    }
    QString certificateFile() const { return directory.filePath(u"certificate.pem"_s); }
};

RunCertificate &runCertificate()
{
    static RunCertificate certificate;
    return certificate;
}

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 301: return "Moved Permanently";
    case 302: return "Found";
    case 304: return "Not Modified";
    case 307: return "Temporary Redirect";
    case 404: return "Not Found";
    case 500: return "Internal Server Error";
    default: return "Status";
    }
}

} // namespace

ScriptedResponse ScriptedResponse::json(QByteArray body, int status)
{
    ScriptedResponse response;
    response.status = status;
    response.headers = {{"Content-Type", "application/json"}};
    response.body = std::move(body);
    return response;
}

ScriptedResponse ScriptedResponse::redirect(int status, const QUrl &location)
{
    ScriptedResponse response;
    response.status = status;
    response.headers = {{"Location", location.toEncoded()}};
    return response;
}

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    for (const auto &[key, value] : headers)
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

LocalHttpsServer::LocalHttpsServer(Transport transport, QObject *parent)
    : QObject(parent), m_transport(transport)
{
    if (transport == Transport::tls) {
        auto *server = new QSslServer(this);
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setLocalCertificate(runCertificate().certificate);
        configuration.setPrivateKey(runCertificate().key);
        configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
        server->setSslConfiguration(configuration);
        m_server = server;
    } else {
        m_server = new QTcpServer(this);
    }
    // QSslServer offers a connection only once its handshake is done.
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &LocalHttpsServer::accept);
    m_server->listen(QHostAddress::LocalHost, 0);
}

LocalHttpsServer::~LocalHttpsServer() = default;

bool LocalHttpsServer::isListening() const
{
    return m_server->isListening();
}

quint16 LocalHttpsServer::port() const
{
    return m_server->serverPort();
}

QUrl LocalHttpsServer::url(const QString &path, const QString &host) const
{
    QUrl url;
    url.setScheme(m_transport == Transport::tls ? u"https"_s : u"http"_s);
    url.setHost(host);
    url.setPort(port());
    url.setPath(path);
    return url;
}

void LocalHttpsServer::close()
{
    m_server->close();
}

void LocalHttpsServer::respond(const QString &path, ScriptedResponse response)
{
    m_routes.insert(path, std::move(response));
}

qsizetype LocalHttpsServer::requestCount(const QString &path) const
{
    return std::count_if(m_requests.begin(), m_requests.end(),
                         [&](const RecordedRequest &request) { return request.path == path.toUtf8(); });
}

ServiceConfiguration LocalHttpsServer::configuration() const
{
    ServiceConfiguration configuration;
    configuration.apiBaseURL = url();
    configuration.reportURL = url(u"/korvane/api/reports"_s);
    configuration.tls = clientConfiguration();
    configuration.timeoutOverride = HttpTimeouts{std::chrono::seconds(2), std::chrono::seconds(5)};
    return configuration;
}

QSslConfiguration LocalHttpsServer::clientConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates({runCertificate().certificate});
    return configuration;
}

QString LocalHttpsServer::certificatePath()
{
    return runCertificate().certificateFile();
}

void LocalHttpsServer::accept()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        m_buffers.insert(socket, {});
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
        readFrom(socket);
    }
}

void LocalHttpsServer::readFrom(QTcpSocket *socket)
{
    if (!m_buffers.contains(socket))
        return;
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    RecordedRequest request;
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    qsizetype contentLength = 0;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon < 0)
            continue;
        const QByteArray name = lines[i].left(colon).trimmed();
        const QByteArray value = lines[i].mid(colon + 1).trimmed();
        request.headers.append({name, value});
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0)
            contentLength = value.toLongLong();
        if (name.compare("Host", Qt::CaseInsensitive) == 0)
            request.host = value.left(value.lastIndexOf(':') > 0 ? value.lastIndexOf(':') : value.size());
    }
    if (buffer.size() < headEnd + 4 + contentLength)
        return;
    request.body = buffer.mid(headEnd + 4, contentLength);
    m_buffers.remove(socket);
    socket->disconnect(this);
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    m_requests.append(request);
    Q_EMIT requestReceived(request);

    const QString path = QString::fromUtf8(request.path.split('?').first());
    ScriptedResponse response = m_routes.value(path, ScriptedResponse::json("{}", 404));
    if (response.stall)
        return;
    QPointer<QTcpSocket> guarded(socket);
    QTimer::singleShot(response.delayMs, this, [this, guarded, response] {
        if (guarded)
            answer(guarded, response);
    });
}

void LocalHttpsServer::answer(QTcpSocket *socket, const ScriptedResponse &response)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    bool hasLength = false;
    for (const auto &[name, value] : response.headers) {
        head += name + ": " + value + "\r\n";
        hasLength = hasLength || name.compare("Content-Length", Qt::CaseInsensitive) == 0;
    }
    if (!hasLength)
        head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    head += "Connection: close\r\n\r\n";
    socket->write(head);
    if (response.trickleIntervalMs <= 0) {
        socket->write(response.body);
        socket->disconnectFromHost();
        return;
    }
    auto *timer = new QTimer(socket);
    auto sent = std::make_shared<qsizetype>(0);
    connect(timer, &QTimer::timeout, socket, [socket, timer, sent, response] {
        socket->write(response.body.mid(*sent, response.trickleChunk));
        *sent += response.trickleChunk;
        if (*sent >= response.body.size()) {
            timer->stop();
            socket->disconnectFromHost();
        }
    });
    timer->start(response.trickleIntervalMs);
}

RedirectTargets::RedirectTargets(const ScriptedResponse &moved)
{
    service.respond(u"/v2/moved"_s, moved);
    plain.respond(u"/v2/moved"_s, moved);
}

ScriptedResponse RedirectTargets::redirectOr(const ScriptedResponse &otherwise, const QString &pattern) const
{
    if (pattern.isEmpty())
        return otherwise;
    return ScriptedResponse::redirect(302, QUrl(QString(pattern)
                                                    .replace(u"{port}"_s, QString::number(service.port()))
                                                    .replace(u"{plainport}"_s, QString::number(plain.port()))));
}

qsizetype RedirectTargets::movedRequests() const
{
    return service.requestCount(u"/v2/moved"_s) + plain.requestCount(u"/v2/moved"_s);
}
