#include "updates/platformupdater.h"

#include "platform/bundleinfo.h"

namespace {

// A copied tree counts as verified only when the signed manifest it carries checks against the
// build's public key and every file matches its hash. The manifest check is not connected yet,
// so no tree verifies: a backup is refused and with it every update check, which is the safe
// side for a tree nobody can vouch for.
bool verifyInstalledTree(const QString &copy, const QString &publicKey)
{
    Q_UNUSED(copy);
    Q_UNUSED(publicKey);
    return false;
}

} // namespace

std::unique_ptr<UpdaterEngine> PlatformUpdater::make(UpdaterDelegate &delegate, const QVariantMap &info)
{
    // The appcast engine is not connected yet: without an engine the controller stays unable
    // to check, as for an unconfigured build.
    Q_UNUSED(delegate);
    Q_UNUSED(info);
    return nullptr;
}

ApplicationCopy PlatformUpdater::applicationCopy(const QVariantMap &info)
{
    ApplicationCopy copy = ApplicationCopy::system();
    copy.verify = [publicKey = info.value(BundleInfo::publicEDKeyKey).toString()](const QString &path) {
        return verifyInstalledTree(path, publicKey);
    };
    return copy;
}
