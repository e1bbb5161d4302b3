#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <stdexcept>

// What an installed launcher tree holds, signed, so that a copy of it (the rollback backup) or a
// freshly unpacked update can be checked file by file before it is trusted. The release tool
// writes the manifest into the tree; the launcher only verifies it.
//
// Manifest format (UTF-8 lines, each ended by "\n", entries sorted by path bytes):
//   korvane-manifest 1
//   file <sha256 hex> <size> <x|-> <path>     x: the owner may execute it
//   link <target> <path>                      a symbolic link, not followed
// Paths are relative to the tree, '/'-separated; paths and link targets are percent-encoded so
// that blanks and line breaks in names cannot break a line. Folders are not listed.
struct TreeEntry {
    enum Kind { file, link };
    Kind kind = file;
    QByteArray path;      // relative, raw bytes of the file system
    qint64 size = 0;      // files
    QByteArray sha256;    // files: lower-case hex
    bool executable = false; // files
    QByteArray target;    // links: as stored in the link

    bool operator==(const TreeEntry &) const = default;
};

class TreeManifestError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace TreeManifest {

inline const QString fileName = QStringLiteral(".korvane-manifest");
inline const QString signatureFileName = QStringLiteral(".korvane-manifest.sig");
constexpr qint64 maximumManifestSize = 16 * 1024 * 1024;

// Every regular file and symbolic link below `root`, sorted, without the manifest's own two
// files at the top. Throws TreeManifestError for an unreadable file or a device, pipe or socket.
QList<TreeEntry> list(const QString &root);

// The manifest text of the tree as it is now. Throws TreeManifestError.
QByteArray make(const QString &root);

// Writes the manifest and its base64 Ed25519 signature by `seed` into `root`, each atomically.
// Throws TreeManifestError.
void sign(const QString &root, const QByteArray &seed);

struct Verification {
    enum Status {
        ok,
        notSigned,         // no manifest or no signature: a developer's tree
        badSignature,      // the manifest is not signed by the key, or unreadable
        malformedManifest, // signed, but not in the format above
        missingFile,       // `path` is in the manifest but not in the tree
        extraFile,         // `path` is in the tree but not in the manifest
        changedFile,       // `path` differs in content, size, kind, mode or link target
        unreadableTree,    // the tree could not be listed; `path` says where
    };
    Status status = ok;
    QString path;

    bool isOk() const { return status == ok; }
    // One English sentence for logs and korvanectl.
    QString description() const;
};

// Checks that `root` holds exactly what its signed manifest lists, signed by `publicKey`.
// The first difference in path order is reported.
Verification verify(const QString &root, const QByteArray &publicKey);

} // namespace TreeManifest
