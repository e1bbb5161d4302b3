#include "crossover/bottleconfiguration.h"

#include "platform/atomicfile.h"
#include "platform/boundedread.h"
#include "platform/privatedirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace BottleConfiguration {

namespace {

[[noreturn]] void fail(const QString &path, const QString &reason)
{
    throw FileError(QString(path + u": "_s + reason).toStdString());
}

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(path, file.errorString());
    if (file.size() > maximumSize)
        fail(path, u"the file is too large (over %1 bytes)"_s.arg(maximumSize));
    // Read one byte past the cap: a file that grows meanwhile is refused, not cut.
    const QByteArray bytes = BoundedRead::upTo(file, maximumSize + 1);
    if (file.error() != QFileDevice::NoError)
        fail(path, file.errorString());
    if (bytes.size() > maximumSize)
        fail(path, u"the file is too large (over %1 bytes)"_s.arg(maximumSize));
    return bytes;
}

QString decodeStrictly(const QString &path, const QByteArray &bytes)
{
    // A byte-order mark is kept as a character, so it is written back where it was; stateless,
    // so a sequence cut off at the end is an error rather than input awaited.
    QStringDecoder decoder(QStringConverter::Utf8,
                           QStringConverter::Flag::ConvertInitialBom | QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        fail(path, u"the file is not valid UTF-8"_s);
    return text;
}

void writeAtomically(const QString &path, const QByteArray &bytes, QFile::Permissions permissions)
{
    if (QString reason; !AtomicFile::write(path, bytes, permissions, &reason))
        fail(path, reason);
}

constexpr QFile::Permissions privateFile = QFile::ReadOwner | QFile::WriteOwner;

// CrossOver's file keeps the permissions it has; a file that is not there gets the usual ones.
QFile::Permissions permissionsToKeep(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() ? info.permissions()
                         : QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
}

void makeProfilesDirectory(const QString &marker)
{
    const QString folder = QFileInfo(marker).absolutePath();
    if (QString reason; !PrivateDirectory::create(folder, &reason))
        fail(folder, reason);
}

void markRestartPending(const QString &marker)
{
    writeAtomically(marker, "pending\n", privateFile);
}

void requireBottle(const QString &bottle)
{
    if (bottle.isEmpty())
        throw FileError("no bottle is selected");
}

} // namespace

QString configurationPath(const QString &bottle)
{
    return bottle + u"/cxbottle.conf"_s;
}

QString keptOriginalPath(const QString &applicationDataDirectory, const QString &bottle)
{
    // The marker's name, so both files of one bottle sit side by side under one hash.
    QString path = CompatibilityProfile::restartMarker(applicationDataDirectory, bottle);
    path.chop(qsizetype(sizeof(".restart-required") - 1));
    return path + u".cxbottle.conf.original"_s;
}

Check check(const QString &bottle)
{
    requireBottle(bottle);
    const QString path = configurationPath(bottle);
    Check result;
    result.current = decodeStrictly(path, readBytes(path));
    result.update = CompatibilityProfile::updatingBottleConfiguration(result.current);
    return result;
}

bool apply(const QString &applicationDataDirectory, const QString &bottle)
{
    requireBottle(bottle);
    const QString path = configurationPath(bottle);
    const QByteArray original = readBytes(path);
    const CompatibilityProfile::ConfigurationUpdate update
        = CompatibilityProfile::updatingBottleConfiguration(decodeStrictly(path, original));
    const QString marker = CompatibilityProfile::restartMarker(applicationDataDirectory, bottle);
    if (update.changed) {
        makeProfilesDirectory(marker);
        // Only the file before the very first change is the user's own; keeping a later one
        // would keep our edit (or what the user changed after it) and lose the way back.
        const QString kept = keptOriginalPath(applicationDataDirectory, bottle);
        if (!QFileInfo::exists(kept))
            writeAtomically(kept, original, privateFile);
        markRestartPending(marker);
        writeAtomically(path, update.text.toUtf8(), permissionsToKeep(path));
    }
    return QFileInfo::exists(marker);
}

bool restore(const QString &applicationDataDirectory, const QString &bottle)
{
    requireBottle(bottle);
    const QString kept = keptOriginalPath(applicationDataDirectory, bottle);
    if (!QFileInfo::exists(kept))
        throw FileError(QString(u"nothing to restore: the launcher has not changed "_s + configurationPath(bottle)
                                + u" (no original is kept at "_s + kept + u')')
                            .toStdString());
    const QByteArray original = readBytes(kept);
    const QString path = configurationPath(bottle);
    if (QFileInfo::exists(path) && readBytes(path) == original)
        return false;
    const QString marker = CompatibilityProfile::restartMarker(applicationDataDirectory, bottle);
    makeProfilesDirectory(marker);
    markRestartPending(marker);
    writeAtomically(path, original, permissionsToKeep(path));
    return true;
}

} // namespace BottleConfiguration
