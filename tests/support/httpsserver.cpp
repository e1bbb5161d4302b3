#include "httpsserver.h"

#include "platform/urlerror.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslServer>
#include <QTemporaryDir>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

struct RunCertificate {
    QTemporaryDir directory;
    QString certificatePath = directory.filePath(u"certificate.pem"_s);
    QSslCertificate certificate;
    QSslKey key;

    RunCertificate()
    {
        const QString keyPath = directory.filePath(u"key.pem"_s);
        QProcess openssl;
        openssl.setProcessChannelMode(QProcess::MergedChannels);
        openssl.start(u"openssl"_s, u"req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                                    "-subj /CN=korvane-test -addext subjectAltName=IP:127.0.0.1,DNS:localhost"_s
                                        .split(u' ')
                                        + QStringList{u"-keyout"_s, keyPath, u"-out"_s, certificatePath});
        if (!openssl.waitForFinished(60'000) || openssl.exitCode() != 0)
            qFatal("openssl could not make the test certificate: %s", openssl.readAll().constData());
        QFile keyFile(keyPath);
        key = QSslKey(keyFile.open(QIODevice::ReadOnly) ? keyFile.readAll() : QByteArray(), QSsl::Ec);
        certificate = QSslCertificate::fromPath(certificatePath).value(0);
        if (key.isNull() || certificate.isNull())
            qFatal("the test certificate could not be read back");
    }
};

RunCertificate &runCertificate()
{
    static RunCertificate certificate;
    return certificate;
}

void answer(QTcpSocket *socket, const ScriptedResponse &response)
{
    // Clients ignore the reason phrase, so one does for every status.
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
    for (const auto &[name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    socket->write(head + "Content-Length: " + QByteArray::number(response.body.size())
                  + "\r\nConnection: close\r\n\r\n");
    // The body goes out in timed chunks: all of it at once unless the script asks for a trickle.
    const qsizetype chunk = response.trickleIntervalMs > 0 ? response.trickleChunk : response.body.size();
    auto *timer = new QTimer(socket);
    QObject::connect(timer, &QTimer::timeout, socket, [socket, timer, response, chunk, sent = qsizetype(0)]() mutable {
        socket->write(response.body.mid(sent, chunk));
        if ((sent += chunk) >= response.body.size()) {
            timer->stop();
            socket->disconnectFromHost();
        }
    });
    timer->start(response.trickleIntervalMs);
}

} // namespace

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    for (const auto &[key, value] : headers)
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

LocalHttpsServer::LocalHttpsServer(Transport transport)
    : m_transport(transport)
{
    if (transport == Transport::tls) {
        auto *server = new QSslServer(this);
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setLocalCertificate(runCertificate().certificate);
        tls.setPrivateKey(runCertificate().key);
        server->setSslConfiguration(tls);
        m_server = server;
    } else {
        m_server = new QTcpServer(this);
    }
    // QSslServer offers a connection only once its handshake is done.
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
            readFrom(socket);
        }
    });
    if (!m_server->listen(QHostAddress::LocalHost, 0))
        qFatal("the local test server cannot listen: %s", qPrintable(m_server->errorString()));
    m_port = m_server->serverPort();
}

QUrl LocalHttpsServer::url(const QString &path) const
{
    return QUrl((m_transport == Transport::tls ? u"https://127.0.0.1:%1%2"_s : u"http://127.0.0.1:%1%2"_s)
                    .arg(QString::number(port()), path));
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
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setCaCertificates({runCertificate().certificate});
    configuration.tls = tls;
    configuration.timeoutOverride = HttpTimeouts{std::chrono::seconds(2), std::chrono::seconds(5)};
    return configuration;
}

QString LocalHttpsServer::certificatePath()
{
    return runCertificate().certificatePath;
}

void LocalHttpsServer::readFrom(QTcpSocket *socket)
{
    // The request stays in the socket until all of it has come in.
    const QByteArray buffer = socket->peek(socket->bytesAvailable());
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    RecordedRequest request;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (const QByteArray &line : lines.mid(1))
        if (const qsizetype colon = line.indexOf(':'); colon > 0)
            request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
    const qsizetype contentLength = request.header("Content-Length").toLongLong();
    if (buffer.size() < headEnd + 4 + contentLength)
        return;
    request.body = buffer.mid(headEnd + 4, contentLength);
    socket->disconnect(this);
    m_requests.append(request);
    Q_EMIT requestReceived();

    const ScriptedResponse response =
        m_routes.value(QString::fromUtf8(request.path.split('?').first()), ScriptedResponse::json("{}", 404));
    if (!response.stall)
        answer(socket, response);
}

RedirectTargets::RedirectTargets(const ScriptedResponse &moved)
{
    service.respond(u"/v2/moved"_s, moved);
    plain.respond(u"/v2/moved"_s, moved);
}

ScriptedResponse RedirectTargets::redirectOr(const ScriptedResponse &otherwise, QString pattern) const
{
    if (pattern.isEmpty())
        return otherwise;
    pattern.replace(u"{port}"_s, QString::number(service.port()));
    return ScriptedResponse::redirect(302, QUrl(pattern.replace(u"{plainport}"_s, QString::number(plain.port()))));
}

qsizetype RedirectTargets::movedRequests() const
{
    return service.requestCount(u"/v2/moved"_s) + plain.requestCount(u"/v2/moved"_s);
}

QString outcomeOf(const std::function<void()> &action)
{
    try {
        action();
        return u"ok"_s;
    } catch (const UrlError &error) {
        return UrlError::name(error.code());
    } catch (const DecodingError &) {
        return u"decoding"_s;
    }
}
