#include "updates/archiveinstall.h"

#include "platform/boundedread.h"
#include "updates/ed25519.h"
#include "updates/treemanifest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QSet>

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <system_error>

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

namespace {

using Error = ArchiveInstallError;

constexpr qsizetype maximumPathLength = 4096;

[[noreturn]] void fail(Error::Code code, const QString &detail) { throw Error(code, detail); }

QString shown(const QByteArray &raw) { return QString::fromUtf8(raw); }

void removeTree(const QString &path)
{
    std::error_code ignored;
    fs::remove_all(fs::path(QFile::encodeName(path).toStdString()), ignored);
}

struct ReaderDeleter {
    void operator()(archive *reader) const { archive_read_free(reader); }
};
struct WriterDeleter {
    void operator()(archive *writer) const { archive_write_free(writer); }
};

// A path inside the staging folder, as '/'-joined components without "." and empty ones.
// Absolute paths and ".." are refused rather than cleaned: a signed release never has them.
QByteArray insidePath(const char *raw)
{
    if (!raw)
        fail(Error::unsafeEntry, u"an entry without a name"_s);
    const QByteArray path(raw);
    if (path.size() > maximumPathLength)
        fail(Error::unsafeEntry, u"a name longer than %1 bytes"_s.arg(maximumPathLength));
    if (path.startsWith('/'))
        fail(Error::unsafeEntry, u"an absolute path: %1"_s.arg(shown(path)));
    QList<QByteArray> kept;
    for (const QByteArray &component : path.split('/')) {
        if (component == "..")
            fail(Error::unsafeEntry, u"a path that climbs out: %1"_s.arg(shown(path)));
        if (!component.isEmpty() && component != ".")
            kept.append(component);
    }
    return kept.join('/');
}

// A link target must stay inside the tree when resolved from the link's folder. ".." may only
// lead the target: after a component that could itself be a link, ".." would follow that link's
// parent, not the one the text suggests.
void checkLinkTarget(const QByteArray &linkPath, const char *rawTarget)
{
    const QByteArray target(rawTarget ? rawTarget : "");
    if (target.isEmpty() || target.startsWith('/'))
        fail(Error::unsafeEntry, u"a link to an absolute path: %1"_s.arg(shown(linkPath)));
    QList<QByteArray> folder = linkPath.split('/');
    folder.removeLast();
    bool descended = false;
    for (const QByteArray &component : target.split('/')) {
        if (component.isEmpty() || component == ".")
            continue;
        if (component == "..") {
            if (descended || folder.isEmpty())
                fail(Error::unsafeEntry, u"a link that points out: %1 -> %2"_s.arg(shown(linkPath), shown(target)));
            folder.removeLast();
        } else {
            descended = true;
            folder.append(component);
        }
    }
}

// What has been written so far, to refuse entries that would write below a file or a link
// (following it) or replace an earlier entry.
struct Written {
    QSet<QByteArray> folders;
    QSet<QByteArray> files;
    QSet<QByteArray> links;

    void checkNew(const QByteArray &path, bool isFolder) const
    {
        qsizetype slash = path.indexOf('/');
        while (slash != -1) {
            const QByteArray parent = path.left(slash);
            if (files.contains(parent) || links.contains(parent))
                fail(Error::unsafeEntry, u"an entry below a file or link: %1"_s.arg(shown(path)));
            slash = path.indexOf('/', slash + 1);
        }
        const bool existingFolder = folders.contains(path);
        if ((existingFolder && !isFolder) || files.contains(path) || links.contains(path))
            fail(Error::unsafeEntry, u"an entry that appears twice: %1"_s.arg(shown(path)));
    }

    // libarchive creates missing parent folders; they count as written, so that a later entry
    // cannot claim their place.
    void addParents(const QByteArray &path)
    {
        for (qsizetype slash = path.indexOf('/'); slash != -1; slash = path.indexOf('/', slash + 1))
            folders.insert(path.left(slash));
    }
};

void copyData(archive *reader, archive *writer, qint64 &unpacked)
{
    for (;;) {
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF)
            return;
        if (status < ARCHIVE_WARN)
            fail(Error::unreadableArchive, QString::fromUtf8(archive_error_string(reader)));
        unpacked += qint64(size);
        if (unpacked > ArchiveInstall::maximumUnpackedSize)
            fail(Error::tooLarge, u"more than %1 bytes unpacked"_s.arg(ArchiveInstall::maximumUnpackedSize));
        if (archive_write_data_block(writer, block, size, offset) < ARCHIVE_WARN)
            fail(Error::storage, QString::fromUtf8(archive_error_string(writer)));
    }
}

void unpackInto(const QByteArray &data, const QByteArray &staging)
{
    std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    std::unique_ptr<archive, WriterDeleter> writer(archive_write_disk_new());
    if (!reader || !writer)
        fail(Error::storage, u"out of memory"_s);
    // Only in-process decompressors: the "all" set would run external programs for some formats.
    archive_read_support_format_tar(reader.get());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_filter_xz(reader.get());
    archive_read_support_filter_zstd(reader.get());
    // Our own checks come first; libarchive's refusal to write through links or along ".." is the
    // second line. Owners, ACLs, extended attributes and file flags are never restored.
    archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_SECURE_SYMLINKS
                                                     | ARCHIVE_EXTRACT_SECURE_NODOTDOT);
    if (archive_read_open_memory(reader.get(), data.constData(), size_t(data.size())) != ARCHIVE_OK)
        fail(Error::unreadableArchive, QString::fromUtf8(archive_error_string(reader.get())));

    Written written;
    qint64 entries = 0;
    qint64 unpacked = 0;
    for (;;) {
        archive_entry *entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status < ARCHIVE_WARN)
            fail(Error::unreadableArchive, QString::fromUtf8(archive_error_string(reader.get())));
        if (++entries > ArchiveInstall::maximumEntries)
            fail(Error::tooLarge, u"more than %1 entries"_s.arg(ArchiveInstall::maximumEntries));

        const QByteArray path = insidePath(archive_entry_pathname(entry));
        const char *hardlink = archive_entry_hardlink(entry);
        const auto type = archive_entry_filetype(entry);
        if (path.isEmpty()) {
            if (type == AE_IFDIR && !hardlink)
                continue; // "./", the staging folder itself
            fail(Error::unsafeEntry, u"an entry that would replace the folder itself"_s);
        }
        written.checkNew(path, type == AE_IFDIR && !hardlink);
        written.addParents(path);

        const mode_t permissions = archive_entry_perm(entry) & 0755;
        if (hardlink) {
            const QByteArray target = insidePath(hardlink);
            if (!written.files.contains(target))
                fail(Error::unsafeEntry, u"a hard link to something not unpacked before: %1"_s.arg(shown(path)));
            archive_entry_copy_hardlink(entry, QByteArray(staging + '/' + target).constData());
            written.files.insert(path);
        } else if (type == AE_IFREG) {
            archive_entry_set_perm(entry, permissions | 0600);
            written.files.insert(path);
        } else if (type == AE_IFDIR) {
            archive_entry_set_perm(entry, permissions | 0700);
            written.folders.insert(path);
        } else if (type == AE_IFLNK) {
            checkLinkTarget(path, archive_entry_symlink(entry));
            written.links.insert(path);
        } else {
            fail(Error::unsafeEntry, u"a device, pipe or socket: %1"_s.arg(shown(path)));
        }
        archive_entry_copy_pathname(entry, QByteArray(staging + '/' + path).constData());
        if (archive_write_header(writer.get(), entry) < ARCHIVE_WARN)
            fail(Error::storage, QString::fromUtf8(archive_error_string(writer.get())));
        if (archive_entry_size(entry) > 0 && !hardlink)
            copyData(reader.get(), writer.get(), unpacked);
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN)
            fail(Error::storage, QString::fromUtf8(archive_error_string(writer.get())));
    }
    if (archive_write_close(writer.get()) < ARCHIVE_WARN)
        fail(Error::storage, QString::fromUtf8(archive_error_string(writer.get())));
}

QByteArray readArchive(const QString &archivePath, qint64 expectedLength)
{
    QFile file(archivePath);
    if (!file.open(QIODevice::ReadOnly))
        fail(Error::storage, u"cannot read %1: %2"_s.arg(archivePath, file.errorString()));
    if (file.size() > ArchiveInstall::maximumArchiveSize)
        fail(Error::tooLarge, u"%1 bytes"_s.arg(file.size()));
    if (expectedLength >= 0 && file.size() != expectedLength)
        fail(Error::wrongLength, u"%1 bytes instead of %2"_s.arg(file.size()).arg(expectedLength));
    // One byte more than allowed shows a file that grew after the size was read.
    QByteArray data = BoundedRead::upTo(file, ArchiveInstall::maximumArchiveSize + 1);
    if (data.size() > ArchiveInstall::maximumArchiveSize)
        fail(Error::tooLarge, u"%1 bytes"_s.arg(data.size()));
    if (expectedLength >= 0 && data.size() != expectedLength)
        fail(Error::wrongLength, u"%1 bytes instead of %2"_s.arg(data.size()).arg(expectedLength));
    return data;
}

// The unpacked release: the archive's one top folder (how release archives are packed), or the
// staging folder itself when the archive holds the tree's content directly.
QString unpackedTree(const QString &staging)
{
    const QFileInfoList content = QDir(staging).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System
                                                              | QDir::NoDotAndDotDot);
    if (content.size() == 1 && content.first().isDir() && !content.first().isSymLink())
        return content.first().filePath();
    return staging;
}

// Puts what was written on disk before the exchange makes it visible, so that a power cut
// cannot leave the new tree in place with files that were never written out.
void flush(const QString &folder)
{
    const int descriptor = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    ::syncfs(descriptor);
    ::close(descriptor);
}

void report(const ArchiveInstall::Progress &progress, ArchiveInstall::Step step)
{
    if (progress)
        progress(step);
}

} // namespace

const char *ArchiveInstallError::what() const noexcept
{
    switch (m_code) {
    case tooLarge:
        return "the update archive is too large";
    case wrongLength:
        return "the update archive does not have the announced length";
    case badSignature:
        return "the update archive is not signed by the update key";
    case unreadableArchive:
        return "the update archive cannot be read";
    case unsafeEntry:
        return "the update archive holds an entry that is not allowed";
    case untrustedTree:
        return "the unpacked update does not match its signed manifest";
    case storage:
        return "the update could not be written";
    }
    return "the update was refused";
}

QString ArchiveInstall::stagingPath(const QString &installRoot)
{
    const QFileInfo root(QDir::cleanPath(installRoot));
    return root.path() + u"/."_s + root.fileName() + u".update"_s;
}

void ArchiveInstall::unpack(const QByteArray &archive, const QString &stagingDirectory)
{
    if (QFileInfo(stagingDirectory).exists() || QFileInfo(stagingDirectory).isSymLink())
        fail(Error::storage, u"%1 exists already"_s.arg(stagingDirectory));
    if (!QDir().mkdir(stagingDirectory, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                            | QFileDevice::ReadGroup | QFileDevice::ExeGroup
                                            | QFileDevice::ReadOther | QFileDevice::ExeOther))
        fail(Error::storage, u"cannot create %1"_s.arg(stagingDirectory));
    try {
        // Resolved once, so that the folders above it may be links (a home on another disk)
        // while libarchive refuses every link along the paths below it.
        const QString resolved = QFileInfo(stagingDirectory).canonicalFilePath();
        if (resolved.isEmpty())
            fail(Error::storage, u"cannot resolve %1"_s.arg(stagingDirectory));
        unpackInto(archive, QFile::encodeName(resolved));
    } catch (...) {
        removeTree(stagingDirectory);
        throw;
    }
}

void ArchiveInstall::unpack(const QString &archivePath, const QString &stagingDirectory)
{
    unpack(readArchive(archivePath, -1), stagingDirectory);
}

void ArchiveInstall::install(const QString &archivePath, const QString &installRoot, const QByteArray &publicKey,
                             qint64 expectedLength, const QByteArray &signature, const Progress &progress)
{
    report(progress, Step::verifying);
    const QString root = QFileInfo(installRoot).canonicalFilePath();
    if (root.isEmpty() || !QFileInfo(root).isDir())
        fail(Error::storage, u"%1 is not an installed folder"_s.arg(installRoot));
    const QString staging = stagingPath(root);
    // What an interrupted earlier run left: a partial unpack, or the old tree after the exchange.
    removeTree(staging);
    if (QFileInfo(staging).exists() || QFileInfo(staging).isSymLink())
        fail(Error::storage, u"cannot remove %1"_s.arg(staging));

    const QByteArray data = readArchive(archivePath, expectedLength);
    if (!Ed25519::verify(data, signature, publicKey))
        fail(Error::badSignature, QFileInfo(archivePath).fileName());

    report(progress, Step::extracting);
    unpack(data, staging);

    report(progress, Step::checking);
    const QString tree = unpackedTree(staging);
    const TreeManifest::Verification verification = TreeManifest::verify(tree, publicKey);
    if (!verification.isOk()) {
        removeTree(staging);
        fail(Error::untrustedTree, verification.description());
    }

    report(progress, Step::installing);
    flush(staging);
    if (::renameat2(AT_FDCWD, QFile::encodeName(tree).constData(), AT_FDCWD, QFile::encodeName(root).constData(),
                    RENAME_EXCHANGE)
        != 0) {
        const int error = errno;
        removeTree(staging);
        fail(Error::storage, u"cannot exchange %1 and %2: %3"_s.arg(tree, root, QString::fromLocal8Bit(strerror(error))));
    }
    flush(root);

    report(progress, Step::cleaning);
    // A failure here leaves only the old tree under the staging name; the next run removes it.
    removeTree(staging);
}
