#include "updates/platformupdater.h"

#include "platform/bundleinfo.h"
#include "platform/serverredirectpolicy.h"
#include "platform/serviceconfiguration.h"
#include "updates/appcastupdater.h"
#include "updates/treemanifest.h"

#include <QFileInfo>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

QByteArray publicKeyOf(const QVariantMap &info)
{
    return QByteArray::fromBase64(info.value(BundleInfo::publicEDKeyKey).toString().toLatin1());
}

// The feed and the archives may move to another https address, never to plain http.
class HttpsOnly final : public RedirectPolicy {
public:
    bool allowsRedirect(const QUrl &target) const override
    {
        return target.scheme() == u"https"_s && !target.host().isEmpty();
    }
};

} // namespace

std::unique_ptr<UpdaterEngine> PlatformUpdater::make(UpdaterDelegate &delegate, const QVariantMap &info,
                                                     UserDefaults &defaults)
{
    AppcastUpdater::Settings settings;
    settings.feedURL = QUrl(info.value(BundleInfo::feedURLKey).toString());
    settings.publicKey = publicKeyOf(info);
    settings.installRoot = ApplicationCopy::runningApplication();
    settings.runningVersion = info.value(BundleInfo::buildVersionKey).toString();
    // The feed is a small document; an archive is tens of megabytes over a slow line.
    settings.http = {{std::chrono::seconds(30), std::chrono::minutes(30)}, std::make_shared<HttpsOnly>(),
                     ServiceConfiguration::standard().tls};
    return std::make_unique<AppcastUpdater>(delegate, settings, &defaults);
}

ApplicationCopy PlatformUpdater::applicationCopy(const QVariantMap &info)
{
    ApplicationCopy copy = ApplicationCopy::system();
    // A developer's build carries no manifest: it is no installed launcher, and copying a build
    // folder of gigabytes only to find that out would help nobody.
    copy.isApplication = [isTree = copy.isApplication](const QString &path) {
        return isTree(path) && QFileInfo(path + u'/' + TreeManifest::fileName).isFile();
    };
    // A copied tree counts only when the signed manifest it carries checks against the build's
    // key, file by file: a developer's unsigned tree cannot be vouched for, so it is refused.
    copy.verify = [publicKey = publicKeyOf(info)](const QString &path) {
        return TreeManifest::verify(path, publicKey).isOk();
    };
    return copy;
}

bool PlatformUpdater::managedBySystem(const QString &path)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical == u"/usr"_s || canonical.startsWith(u"/usr/"_s);
}
