#include "platform/serviceconfiguration.h"

#include "kvn_buildconfig.h"

#include <QFile>
#include <QSslCertificate>

using namespace Qt::StringLiterals;

namespace {
QString overridden(const char *variable, const char *compiledIn)
{
    const QString value = qEnvironmentVariable(variable);
    return value.isEmpty() ? QString::fromUtf8(compiledIn) : value;
}
} // namespace

ServiceConfiguration ServiceConfiguration::standard()
{
    ServiceConfiguration configuration;
    configuration.apiBaseURL = QUrl(overridden("KORVANE_API_URL", KVN_API_URL));
    configuration.reportURL = QUrl(overridden("KORVANE_REPORT_URL", KVN_REPORT_URL));
    configuration.reportRecipient = QString::fromUtf8(KVN_REPORT_RECIPIENT);
    const QString caFile = qEnvironmentVariable("KORVANE_CA_FILE");
    if (!caFile.isEmpty()) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        QList<QSslCertificate> roots = tls.caCertificates();
        roots += QSslCertificate::fromPath(caFile, QSsl::Pem);
        tls.setCaCertificates(roots);
        configuration.tls = tls;
    }
    return configuration;
}

QString ServiceConfiguration::apiHost() const
{
    return apiBaseURL.isValid() && apiBaseURL.scheme() == "https"_L1 ? apiBaseURL.host() : QString();
}

QUrl ServiceConfiguration::apiURL(const QString &path) const
{
    if (apiHost().isEmpty())
        return {};
    QUrl url;
    url.setScheme(u"https"_s);
    url.setHost(apiBaseURL.host());
    url.setPort(apiBaseURL.port());
    url.setPath(path);
    return url;
}
