#pragma once

#include <QByteArray>
#include <QString>

#include <exception>
#include <functional>

// Installs a downloaded update archive over the launcher's own tree on Linux. (On macOS Sparkle
// installs, and this is not built there.)
class ArchiveInstallError : public std::exception {
public:
    enum Code {
        tooLarge,          // the archive, its unpacked size or its entry count is over a cap
        wrongLength,       // the archive is not as long as the feed said
        badSignature,      // the archive is not signed by the update key
        unreadableArchive, // not an archive this build reads, or damaged
        unsafeEntry,       // an entry would land outside the staging folder, or is a device
        untrustedTree,     // the unpacked tree's signed manifest is missing or does not match
        storage,           // a file operation failed
    };
    ArchiveInstallError(Code code, QString detail) : m_code(code), m_detail(std::move(detail)) {}
    Code code() const { return m_code; }
    QString detail() const { return m_detail; }
    const char *what() const noexcept override;

private:
    Code m_code;
    QString m_detail;
};

namespace ArchiveInstall {

// The whole archive is read into memory once its length is known to be the expected one: the
// signature is checked over those bytes and the same bytes are unpacked, so the file cannot be
// swapped between the check and the use. An update is tens of megabytes; the cap bounds it.
constexpr qint64 maximumArchiveSize = 512LL * 1024 * 1024;
constexpr qint64 maximumUnpackedSize = 2LL * 1024 * 1024 * 1024;
constexpr qint64 maximumEntries = 100'000;

// The steps of an installation, in order, for a progress display.
enum class Step { verifying, extracting, checking, installing, cleaning };
using Progress = std::function<void(Step)>;

// Where an update of `installRoot` is unpacked: a hidden folder beside it, on the same file
// system, so that the new tree can be exchanged with the old one by a rename.
QString stagingPath(const QString &installRoot);

// Unpacks a tar archive (plain, gzip, xz or zstd) into `stagingDirectory`, which must not exist
// yet. Absolute paths, ".." components, links that point out of the folder, entries below a file
// or link, duplicates, devices, pipes and sockets are refused before anything is written for
// them; set-id bits and write permission for others are dropped. On any error the staging folder
// is removed again and nothing else has changed. Throws ArchiveInstallError.
void unpack(const QString &archivePath, const QString &stagingDirectory);
void unpack(const QByteArray &archive, const QString &stagingDirectory);

// Replaces the tree at `installRoot` with the one in the archive. In order: a staging folder
// left by an interrupted run is removed; the archive's length and Ed25519 signature (over all of
// its bytes, against `publicKey`) are checked; it is unpacked beside the tree; the unpacked tree
// (the archive's single top folder, or its whole content) must verify against its signed
// manifest with the same key; then the two folders are exchanged in one rename, and the old
// tree, now in the staging folder, is removed. An interruption at any moment leaves either the
// old or the new tree, complete, at `installRoot`. Throws ArchiveInstallError; before the
// exchange every failure leaves the installed tree as it was.
void install(const QString &archivePath, const QString &installRoot, const QByteArray &publicKey,
             qint64 expectedLength, const QByteArray &signature, const Progress &progress = {});

} // namespace ArchiveInstall
