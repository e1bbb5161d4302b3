#include "updates/rollbackbackup.h"

#include "platform/atomicfile.h"
#include "platform/bundleinfo.h"
#include "platform/privatedirectory.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

QString infoText(const QVariantMap &info, const QString &key)
{
    const QVariant value = info.value(key);
    return value.typeId() == QMetaType::QString && !value.toString().isEmpty() ? value.toString() : u"?"_s;
}

[[noreturn]] void fail(const QString &detail)
{
    throw RollbackBackup::Error(LocalizedMessage("update.backup.error", {detail}));
}

} // namespace

QString RollbackBackup::directory(const Paths &paths, const QString &bundleIdentifier)
{
    return paths.applicationSupport + u"/Korvane Mac Launcher/Backups/"_s
        + (bundleIdentifier.isEmpty() ? u"unknown"_s : bundleIdentifier);
}

QString RollbackBackup::applicationName(const QString &application, const QString &bundleIdentifier)
{
    if (bundleIdentifier.endsWith(u".preview"))
        return u"Korvane Launcher Preview.app"_s;
    return QFileInfo(QDir::cleanPath(application)).fileName();
}

QByteArray RollbackBackup::restoreNote(const QVariantMap &info, const QDateTime &now)
{
    const QString text = u"Version: "_s + infoText(info, BundleInfo::shortVersionKey) + u"\nBuild: "_s
        + infoText(info, BundleInfo::buildVersionKey) + u"\nCreated: "_s
        + now.toUTC().toString(Qt::ISODate) + u"\n"_s
        + u"Quit the launcher, then copy this app to Applications using Finder. "
          u"No game saves or bottle settings are included.\n"_s;
    return text.toUtf8();
}

QString RollbackBackup::save(const QString &application, const QString &root, const Inputs &inputs)
{
    if (!inputs.platform.isApplication || !inputs.platform.isApplication(application))
        throw Error(LocalizedMessage("update.backup.error.notApplication", {application}));

    QString reason;
    if (!PrivateDirectory::create(root, &reason))
        fail(reason);
    // Its own folder, not its parents: an existing UUID would be a broken generator, not
    // something to write into.
    const QString folder = root + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    if (!QDir().mkdir(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        fail(folder);

    try {
        const QVariant identifier = inputs.info.value(BundleInfo::identifierKey);
        const QString copy = folder + u'/'
            + applicationName(application, identifier.typeId() == QMetaType::QString ? identifier.toString() : QString());
        if (!inputs.platform.copy || !inputs.platform.copy(QDir::cleanPath(application), copy, &reason))
            fail(reason);
        if (!inputs.platform.verify || !inputs.platform.verify(copy))
            throw Error(LocalizedMessage("update.backup.error.unverified"));
        if (!AtomicFile::write(folder + u"/RESTORE.txt"_s, restoreNote(inputs.info, inputs.now),
                               QFile::ReadOwner | QFile::WriteOwner, &reason))
            fail(reason);
        return copy;
    } catch (...) {
        // No half-made or unverifiable copy may pass for a backup.
        QDir(folder).removeRecursively();
        throw;
    }
}
