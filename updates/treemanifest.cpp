#include "updates/treemanifest.h"

#include "platform/atomicfile.h"
#include "platform/boundedread.h"
#include "updates/ed25519.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

namespace {

const QByteArray header = "korvane-manifest 1";
// Kept readable: only what could break a line or a field is encoded.
const QByteArray unencoded = "/-._~+,=@";

QByteArray encode(const QByteArray &raw) { return raw.toPercentEncoding(unencoded); }

std::string native(const QString &path) { return QFile::encodeName(path).toStdString(); }

QByteArray bytesOf(const fs::path &path) { return QByteArray::fromStdString(path.native()); }

[[noreturn]] void fail(const QString &message) { throw TreeManifestError(message.toStdString()); }

QByteArray sha256Of(const fs::path &path, qint64 *size)
{
    QFile file(QFile::decodeName(bytesOf(path)));
    if (!file.open(QIODevice::ReadOnly))
        fail(u"cannot read %1: %2"_s.arg(file.fileName(), file.errorString()));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        fail(u"cannot read %1: %2"_s.arg(file.fileName(), file.errorString()));
    *size = file.size();
    return hash.result().toHex();
}

bool isOwnFile(const QByteArray &relative)
{
    return relative == QFile::encodeName(TreeManifest::fileName)
        || relative == QFile::encodeName(TreeManifest::signatureFileName);
}

QByteArray line(const TreeEntry &entry)
{
    if (entry.kind == TreeEntry::link)
        return "link " + encode(entry.target) + ' ' + encode(entry.path);
    return "file " + entry.sha256 + ' ' + QByteArray::number(entry.size) + ' ' + (entry.executable ? "x " : "- ")
        + encode(entry.path);
}

bool isHex64(const QByteArray &text)
{
    return text.size() == 64 && std::all_of(text.cbegin(), text.cend(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

std::optional<TreeEntry> parseLine(const QByteArray &text)
{
    const QList<QByteArray> fields = text.split(' ');
    TreeEntry entry;
    if (fields.size() == 3 && fields[0] == "link") {
        entry.kind = TreeEntry::link;
        entry.target = QByteArray::fromPercentEncoding(fields[1]);
        entry.path = QByteArray::fromPercentEncoding(fields[2]);
        if (entry.target.isEmpty())
            return std::nullopt;
    } else if (fields.size() == 5 && fields[0] == "file") {
        bool sizeOk = false;
        entry.sha256 = fields[1];
        entry.size = fields[2].toLongLong(&sizeOk);
        if (!isHex64(entry.sha256) || !sizeOk || entry.size < 0 || (fields[3] != "x" && fields[3] != "-"))
            return std::nullopt;
        entry.executable = fields[3] == "x";
        entry.path = QByteArray::fromPercentEncoding(fields[4]);
    } else {
        return std::nullopt;
    }
    if (entry.path.isEmpty() || entry.path.startsWith('/'))
        return std::nullopt;
    return entry;
}

// The entries of a manifest text, or nothing when it is not exactly in the written form.
std::optional<QList<TreeEntry>> parse(const QByteArray &manifest)
{
    if (!manifest.endsWith('\n'))
        return std::nullopt;
    QList<QByteArray> lines = manifest.chopped(1).split('\n');
    if (lines.isEmpty() || lines.takeFirst() != header)
        return std::nullopt;
    QList<TreeEntry> entries;
    for (const QByteArray &text : lines) {
        auto entry = parseLine(text);
        if (!entry || (!entries.isEmpty() && !(entries.constLast().path < entry->path)))
            return std::nullopt;
        entries.append(std::move(*entry));
    }
    return entries;
}

std::optional<QByteArray> readSmallFile(const QString &path, qint64 cap)
{
    QFile file(path);
    if (QFileInfo(path).isSymLink() || !file.open(QIODevice::ReadOnly) || file.size() > cap)
        return std::nullopt;
    QByteArray bytes = BoundedRead::upTo(file, cap + 1);
    if (bytes.size() > cap)
        return std::nullopt;
    return bytes;
}

} // namespace

QList<TreeEntry> TreeManifest::list(const QString &root)
{
    const fs::path top(native(root));
    std::error_code error;
    if (!fs::is_directory(fs::symlink_status(top, error)))
        fail(u"%1 is not a folder"_s.arg(root));
    QList<TreeEntry> entries;
    fs::recursive_directory_iterator it(top, fs::directory_options::none, error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        const fs::path &path = it->path();
        const fs::file_status status = it->symlink_status(error);
        if (error)
            break;
        const QByteArray relative = bytesOf(path.lexically_relative(top));
        if (fs::is_directory(status) || (it.depth() == 0 && isOwnFile(relative)))
            continue;
        TreeEntry entry;
        entry.path = relative;
        if (fs::is_symlink(status)) {
            entry.kind = TreeEntry::link;
            entry.target = bytesOf(fs::read_symlink(path, error));
            if (error)
                break;
        } else if (fs::is_regular_file(status)) {
            entry.sha256 = sha256Of(path, &entry.size);
            entry.executable = (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
        } else {
            fail(u"%1 is neither a file, a folder nor a link"_s.arg(QFile::decodeName(relative)));
        }
        entries.append(std::move(entry));
    }
    if (error)
        fail(u"cannot list %1: %2"_s.arg(root, QString::fromStdString(error.message())));
    std::sort(entries.begin(), entries.end(), [](const TreeEntry &a, const TreeEntry &b) { return a.path < b.path; });
    return entries;
}

QByteArray TreeManifest::make(const QString &root)
{
    QByteArray manifest = header + '\n';
    for (const TreeEntry &entry : list(root))
        manifest += line(entry) + '\n';
    return manifest;
}

void TreeManifest::sign(const QString &root, const QByteArray &seed)
{
    if (seed.size() != Ed25519::seedSize)
        fail(u"the secret key is not a 32-byte Ed25519 seed"_s);
    const QByteArray manifest = make(root);
    const QByteArray signature = Ed25519::sign(seed, manifest).toBase64() + '\n';
    const auto permissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
        | QFileDevice::ReadOther;
    QString error;
    if (!AtomicFile::write(root + u'/' + fileName, manifest, permissions, &error)
        || !AtomicFile::write(root + u'/' + signatureFileName, signature, permissions, &error))
        fail(u"cannot write the manifest into %1: %2"_s.arg(root, error));
}

TreeManifest::Verification TreeManifest::verify(const QString &root, const QByteArray &publicKey)
{
    using V = Verification;
    const QString manifestPath = root + u'/' + fileName;
    const QString signaturePath = root + u'/' + signatureFileName;
    if (!QFileInfo::exists(manifestPath) || !QFileInfo::exists(signaturePath))
        return {V::notSigned, {}};
    const auto manifest = readSmallFile(manifestPath, maximumManifestSize);
    const auto signatureText = readSmallFile(signaturePath, 1024);
    if (!manifest || !signatureText)
        return {V::badSignature, {}};
    const auto signature = QByteArray::fromBase64Encoding(signatureText->trimmed(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
    if (!signature || !Ed25519::verify(*manifest, signature.decoded, publicKey))
        return {V::badSignature, {}};
    const auto expected = parse(*manifest);
    if (!expected)
        return {V::malformedManifest, {}};

    QList<TreeEntry> actual;
    try {
        actual = list(root);
    } catch (const TreeManifestError &error) {
        return {V::unreadableTree, QString::fromStdString(error.what())};
    }
    // Both lists are sorted by path: walk them side by side.
    qsizetype e = 0;
    qsizetype a = 0;
    while (e < expected->size() || a < actual.size()) {
        if (a == actual.size() || (e < expected->size() && expected->at(e).path < actual[a].path))
            return {V::missingFile, QFile::decodeName(expected->at(e).path)};
        if (e == expected->size() || actual[a].path < expected->at(e).path)
            return {V::extraFile, QFile::decodeName(actual[a].path)};
        if (!(expected->at(e) == actual[a]))
            return {V::changedFile, QFile::decodeName(actual[a].path)};
        ++e;
        ++a;
    }
    return {V::ok, {}};
}

QString TreeManifest::Verification::description() const
{
    switch (status) {
    case ok:
        return u"every file matches the signed manifest"_s;
    case notSigned:
        return u"the folder holds no signed manifest"_s;
    case badSignature:
        return u"the manifest's signature does not match the update key"_s;
    case malformedManifest:
        return u"the signed manifest cannot be read"_s;
    case missingFile:
        return u"a file of the manifest is missing: %1"_s.arg(path);
    case extraFile:
        return u"a file is not in the manifest: %1"_s.arg(path);
    case changedFile:
        return u"a file differs from the manifest: %1"_s.arg(path);
    case unreadableTree:
        return u"the folder cannot be read: %1"_s.arg(path);
    }
    return {};
}
