#include "updates/archiveinstall.h"
#include "updates/ed25519.h"
#include "updates/treemanifest.h"

#include "support/testfiles.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace Qt::StringLiterals;

namespace {

struct TarEntry {
    enum Type { file, folder, symlink, hardlink, characterDevice, fifo };
    QByteArray path;
    Type type = file;
    QByteArray content; // a file's bytes, or a link's target
    int mode = 0644;
};
using TarEntries = QList<TarEntry>;

// Test archives come from libarchive's writer, so that they can hold what tar would refuse to
// create from a real folder (climbing paths, devices, links out).
bool writeArchive(const QString &path, const TarEntries &entries)
{
    archive *writer = archive_write_new();
    archive_write_add_filter_gzip(writer);
    archive_write_set_format_pax_restricted(writer);
    bool ok = archive_write_open_filename(writer, QFile::encodeName(path).constData()) == ARCHIVE_OK;
    for (const TarEntry &entry : entries) {
        archive_entry *header = archive_entry_new();
        archive_entry_copy_pathname(header, entry.path.constData());
        archive_entry_set_perm(header, mode_t(entry.mode));
        switch (entry.type) {
        case TarEntry::file:
            archive_entry_set_filetype(header, AE_IFREG);
            archive_entry_set_size(header, entry.content.size());
            break;
        case TarEntry::folder:
            archive_entry_set_filetype(header, AE_IFDIR);
            break;
        case TarEntry::symlink:
            archive_entry_set_filetype(header, AE_IFLNK);
            archive_entry_copy_symlink(header, entry.content.constData());
            break;
        case TarEntry::hardlink:
            archive_entry_set_filetype(header, AE_IFREG);
            archive_entry_copy_hardlink(header, entry.content.constData());
            break;
        case TarEntry::characterDevice:
            archive_entry_set_filetype(header, AE_IFCHR);
            archive_entry_set_rdev(header, makedev(1, 3));
            break;
        case TarEntry::fifo:
            archive_entry_set_filetype(header, AE_IFIFO);
            break;
        }
        ok = ok && archive_write_header(writer, header) == ARCHIVE_OK;
        if (entry.type == TarEntry::file && !entry.content.isEmpty())
            ok = ok && archive_write_data(writer, entry.content.constData(), size_t(entry.content.size()))
                    == entry.content.size();
        archive_entry_free(header);
    }
    ok = archive_write_close(writer) == ARCHIVE_OK && ok;
    archive_write_free(writer);
    return ok;
}

// The files and links of a tree as archive entries below `top` (none: at the archive's root).
TarEntries entriesOf(const QString &root, const QByteArray &top)
{
    TarEntries entries;
    const QByteArray prefix = top.isEmpty() ? QByteArray() : top + '/';
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        const QByteArray path = prefix + QFile::encodeName(QDir(root).relativeFilePath(info.filePath()));
        if (info.isSymLink()) {
            entries.append({path, TarEntry::symlink, QFile::encodeName(QFile(info.filePath()).symLinkTarget()), 0777});
            // Qt resolves targets; the tree's own links are relative, so store them that way.
            entries.last().content = QFile::encodeName(QDir(info.path()).relativeFilePath(info.symLinkTarget()));
            continue;
        }
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        entries.append({path, TarEntry::file, file.readAll(), info.isExecutable() ? 0755 : 0644});
    }
    return entries;
}

using TestFiles::read;
using TestFiles::write;

// Everything below `root`, links not followed, with sizes: what "nothing else changed" compares.
QStringList listing(const QString &root)
{
    QStringList found;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        found << QDir(root).relativeFilePath(info.filePath()) + u' ' + QString::number(info.isSymLink() ? -1 : info.size());
    }
    found.sort();
    return found;
}

struct stat statOf(const QString &path)
{
    struct stat info {};
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info;
}

const auto executable = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
    | QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;

struct SignedArchive {
    QString path;
    qint64 length = 0;
    QByteArray signature;
};

} // namespace

Q_DECLARE_METATYPE(TarEntries)

class TestArchiveInstall : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    const QByteArray m_seed = Ed25519::newSeed();
    const QByteArray m_publicKey = Ed25519::publicKey(m_seed);
    int m_serial = 0;

    QString fresh(const QString &name)
    {
        const QString path = m_dir.filePath(name + u'-' + QString::number(++m_serial));
        QDir().mkpath(path);
        return path;
    }

    // A launcher tree of `version`, signed with `seed`; `bulk` adds files so that installing it
    // takes long enough to be interrupted at every step.
    QString makeTree(const QString &root, const QByteArray &version, const QByteArray &seed, int bulk = 0)
    {
        write(root + u"/bin/korvane-launcher", "#!/bin/sh\necho " + version + '\n', executable);
        write(root + u"/share/korvane-launcher/VERSION", version);
        QFile::link(u"../share/korvane-launcher/VERSION"_s, root + u"/bin/VERSION");
        for (int i = 0; i < bulk; ++i) {
            QByteArray data(16 * 1024, Qt::Uninitialized);
            for (qsizetype b = 0; b < data.size(); ++b)
                data[b] = char((i * 131 + b * 7 + version.size()) & 0xff);
            write(root + u"/share/korvane-launcher/data/" + QString::number(i / 50) + u'/' + QString::number(i), data);
        }
        if (!seed.isEmpty())
            TreeManifest::sign(root, seed);
        return root;
    }

    SignedArchive archive(const QString &path, const TarEntries &entries, const QByteArray &seed)
    {
        if (!writeArchive(path, entries))
            return {};
        const QByteArray bytes = read(path);
        return {path, bytes.size(), Ed25519::sign(seed, bytes)};
    }

    QByteArray installedVersion(const QString &root) { return read(root + u"/share/korvane-launcher/VERSION"); }

private Q_SLOTS:
    void unpackRefused_data()
    {
        QTest::addColumn<TarEntries>("entries");
        const QByteArray outside = QFile::encodeName(m_dir.filePath(u"outside-absolute"_s));
        const TarEntry bin{"bin", TarEntry::folder, {}, 0755};
        QTest::newRow("climbing path") << TarEntries{bin, {"../../escaped", TarEntry::file, "x"}};
        QTest::newRow("climbing in the middle") << TarEntries{bin, {"bin/../../escaped", TarEntry::file, "x"}};
        QTest::newRow("absolute path") << TarEntries{bin, {outside, TarEntry::file, "x"}};
        QTest::newRow("link out of the tree") << TarEntries{bin, {"bin/etc", TarEntry::symlink, "../../etc", 0777}};
        QTest::newRow("absolute link") << TarEntries{{"etc", TarEntry::symlink, "/etc", 0777}};
        QTest::newRow("climbing behind a link")
            << TarEntries{bin, {"here", TarEntry::symlink, ".", 0777}, {"up", TarEntry::symlink, "here/..", 0777}};
        QTest::newRow("writing through a link")
            << TarEntries{bin, {"l", TarEntry::symlink, "bin", 0777}, {"l/x", TarEntry::file, "x"}};
        QTest::newRow("hard link to a system file") << TarEntries{{"passwd", TarEntry::hardlink, "/etc/passwd"}};
        QTest::newRow("hard link out of the tree") << TarEntries{{"h", TarEntry::hardlink, "../escaped"}};
        QTest::newRow("hard link to nothing unpacked") << TarEntries{{"h", TarEntry::hardlink, "later"},
                                                                     {"later", TarEntry::file, "x"}};
        QTest::newRow("character device") << TarEntries{bin, {"bin/null", TarEntry::characterDevice, {}, 0644}};
        QTest::newRow("named pipe") << TarEntries{{"pipe", TarEntry::fifo, {}, 0644}};
        QTest::newRow("a file twice") << TarEntries{{"a", TarEntry::file, "1"}, {"a", TarEntry::file, "2"}};
        QTest::newRow("a file over a folder") << TarEntries{{"a/b", TarEntry::file, "1"}, {"a", TarEntry::file, "2"}};
    }
    void unpackRefused()
    {
        QFETCH(TarEntries, entries);
        const QString base = fresh(u"refused"_s);
        const QString archivePath = base + u"/update.tar.gz"_s;
        QVERIFY(writeArchive(archivePath, entries));
        const QString staging = base + u"/a/b/staging"_s;
        QDir().mkpath(base + u"/a/b"_s);
        const QStringList before = listing(base);
        try {
            ArchiveInstall::unpack(archivePath, staging);
            QFAIL("the archive was unpacked");
        } catch (const ArchiveInstallError &error) {
            QCOMPARE(error.code(), ArchiveInstallError::unsafeEntry);
            QVERIFY(!error.detail().isEmpty());
        }
        QCOMPARE(listing(base), before);
        QVERIFY(!QFileInfo::exists(m_dir.filePath(u"outside-absolute"_s)));
    }

    void unpackUnreadable()
    {
        const QString base = fresh(u"unreadable"_s);
        write(base + u"/update.tar.gz"_s, QByteArray(5000, 'z'));
        QVERIFY_THROWS_EXCEPTION(ArchiveInstallError, ArchiveInstall::unpack(base + u"/update.tar.gz"_s, base + u"/s"_s));
        QCOMPARE(listing(base), QStringList{u"update.tar.gz 5000"_s});
    }

    void unpackKeepsWhatIsSafe()
    {
        const QString base = fresh(u"unpack"_s);
        QVERIFY(writeArchive(base + u"/update.tar.gz"_s, {
            {"./", TarEntry::folder, {}, 0755},
            {"bin", TarEntry::folder, {}, 0777},
            {"bin/korvane-launcher", TarEntry::file, "launcher", 04777},
            {"share/notes.md", TarEntry::file, "notes", 0666},
            {"bin/notes", TarEntry::symlink, "../share/notes.md", 0777},
            {"share/notes-again.md", TarEntry::hardlink, "share/notes.md"},
        }));
        const QString staging = base + u"/staging"_s;
        ArchiveInstall::unpack(base + u"/update.tar.gz"_s, staging);
        QCOMPARE(read(staging + u"/bin/korvane-launcher"_s), QByteArray("launcher"));
        // Set-id bits and others' write permission never survive.
        QCOMPARE(int(statOf(staging + u"/bin/korvane-launcher"_s).st_mode & 07777), 0755);
        QCOMPARE(int(statOf(staging + u"/bin"_s).st_mode & 07777), 0755);
        QCOMPARE(int(statOf(staging + u"/share/notes.md"_s).st_mode & 07777), 0644);
        QCOMPARE(QFile(staging + u"/bin/notes"_s).symLinkTarget(), staging + u"/share/notes.md"_s);
        QCOMPARE(statOf(staging + u"/share/notes-again.md"_s).st_ino, statOf(staging + u"/share/notes.md"_s).st_ino);

        // The staging folder belongs to this unpack only: an existing one is never reused.
        try {
            ArchiveInstall::unpack(base + u"/update.tar.gz"_s, staging);
            QFAIL("unpacked into an existing folder");
        } catch (const ArchiveInstallError &error) {
            QCOMPARE(error.code(), ArchiveInstallError::storage);
        }
        QCOMPARE(read(staging + u"/share/notes.md"_s), QByteArray("notes"));
    }

    void installRefused_data()
    {
        QTest::addColumn<QString>("variant");
        QTest::addColumn<int>("code");
        QTest::newRow("one byte flipped") << u"flipped"_s << int(ArchiveInstallError::badSignature);
        QTest::newRow("wrong length") << u"length"_s << int(ArchiveInstallError::wrongLength);
        QTest::newRow("archive signed by another key") << u"other archive key"_s << int(ArchiveInstallError::badSignature);
        QTest::newRow("tree without a manifest") << u"unsigned tree"_s << int(ArchiveInstallError::untrustedTree);
        QTest::newRow("tree signed by another key") << u"other tree key"_s << int(ArchiveInstallError::untrustedTree);
        QTest::newRow("file added after the tree was signed") << u"extra file"_s << int(ArchiveInstallError::untrustedTree);
        QTest::newRow("signed archive climbing out") << u"climbing"_s << int(ArchiveInstallError::unsafeEntry);
        QTest::newRow("signed archive with an absolute path") << u"absolute"_s << int(ArchiveInstallError::unsafeEntry);
    }
    void installRefused()
    {
        QFETCH(QString, variant);
        QFETCH(int, code);
        const QString base = fresh(u"install-refused"_s);
        const QString root = makeTree(base + u"/opt/korvane-launcher"_s, "1.0", m_seed);
        const QByteArray otherSeed = Ed25519::newSeed();
        const bool treeSigned = variant != u"unsigned tree";
        const QString next = makeTree(base + u"/release/tree"_s, "2.0", variant == u"other tree key" ? otherSeed
                                                                         : treeSigned ? m_seed : QByteArray());
        if (variant == u"extra file")
            write(next + u"/bin/payload"_s, "injected");
        TarEntries entries = entriesOf(next, "korvane-launcher-2.0");
        if (variant == u"climbing")
            entries.append({"korvane-launcher-2.0/../../escaped", TarEntry::file, "x"});
        if (variant == u"absolute")
            entries.append({QFile::encodeName(base + u"/escaped"_s), TarEntry::file, "x"});
        SignedArchive update = archive(base + u"/release/update.tar.gz"_s, entries,
                                       variant == u"other archive key" ? otherSeed : m_seed);
        QVERIFY(update.length > 0);
        if (variant == u"flipped") {
            QByteArray bytes = read(update.path);
            bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x01);
            write(update.path, bytes);
        }
        if (variant == u"length")
            ++update.length;

        const QString parent = base + u"/opt"_s;
        const QStringList before = listing(parent);
        try {
            ArchiveInstall::install(update.path, root, m_publicKey, update.length, update.signature);
            QFAIL("the update was installed");
        } catch (const ArchiveInstallError &error) {
            QCOMPARE(int(error.code()), code);
        }
        QCOMPARE(listing(parent), before);
        QVERIFY(TreeManifest::verify(root, m_publicKey).isOk());
        QCOMPARE(installedVersion(root), QByteArray("1.0"));
        QVERIFY(!QFileInfo::exists(base + u"/escaped"_s));
    }

    void installReplacesTheTree_data()
    {
        QTest::addColumn<QByteArray>("top");
        QTest::newRow("archive with a top folder, as packaged") << QByteArray("korvane-launcher-2.0-linux-x86_64");
        QTest::newRow("archive of the tree's content") << QByteArray();
    }
    void installReplacesTheTree()
    {
        QFETCH(QByteArray, top);
        const QString base = fresh(u"install"_s);
        const QString root = makeTree(base + u"/opt/korvane-launcher"_s, "1.0", m_seed);
        const QString next = makeTree(base + u"/release/tree"_s, "2.0", m_seed);
        const SignedArchive update = archive(base + u"/release/update.tar.gz"_s, entriesOf(next, top), m_seed);
        // What an interrupted earlier installation left behind.
        write(ArchiveInstall::stagingPath(root) + u"/half/unpacked"_s, "leftover");

        QList<ArchiveInstall::Step> steps;
        ArchiveInstall::install(update.path, root, m_publicKey, update.length, update.signature,
                                [&](ArchiveInstall::Step step) { steps.append(step); });
        using S = ArchiveInstall::Step;
        QCOMPARE(steps, (QList<S>{S::verifying, S::extracting, S::checking, S::installing, S::cleaning}));
        QCOMPARE(installedVersion(root), QByteArray("2.0"));
        QVERIFY(TreeManifest::verify(root, m_publicKey).isOk());
        QVERIFY(QFileInfo(root + u"/bin/korvane-launcher"_s).isExecutable());
        QCOMPARE(QDir(base + u"/opt"_s).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{u"korvane-launcher"_s});
    }

    // kill -9 of an installation at moments spread over its whole run: the installed folder
    // always holds a complete tree, the old or the new one, and the next run finishes the job.
    void interruptedInstallLeavesATree()
    {
        const QString helper = QStringLiteral(KVN_BINARY_DIR "/tests/updateinstaller_linux");
        const QString base = fresh(u"interrupted"_s);
        const QString root = makeTree(base + u"/opt/korvane-launcher"_s, "1.0", m_seed, 120);
        SignedArchive updates[2];
        for (int i = 0; i < 2; ++i) {
            const QByteArray version = i == 0 ? "1.0" : "2.0";
            const QString tree = makeTree(base + u"/release/" + QString::fromLatin1(version), version, m_seed, 120);
            updates[i] = archive(base + u"/release/" + QString::fromLatin1(version) + u".tar.gz", entriesOf(tree, "k-" + version),
                                 m_seed);
            QVERIFY(updates[i].length > 0);
        }
        const auto start = [&](QProcess &process) {
            const SignedArchive &update = updates[installedVersion(root) == "1.0" ? 1 : 0];
            process.start(helper, {update.path, root, QString::fromLatin1(m_publicKey.toBase64()),
                                   QString::number(update.length), QString::fromLatin1(update.signature.toBase64())});
            return process.waitForStarted(10000);
        };

        // One run undisturbed tells how long an installation takes on this machine.
        QElapsedTimer clock;
        clock.start();
        {
            QProcess process;
            QVERIFY(start(process));
            QVERIFY(process.waitForFinished(60000));
            QCOMPARE(process.exitCode(), 0);
        }
        const qint64 duration = std::max<qint64>(clock.elapsed(), 20);
        QCOMPARE(installedVersion(root), QByteArray("2.0"));

        constexpr int runs = 40;
        QMap<QByteArray, int> killedIn;
        int sawOld = 0;
        int sawNew = 0;
        for (int run = 0; run < runs && clock.elapsed() < 12000; ++run) {
            const QByteArray versionBefore = installedVersion(root);
            QProcess process;
            QVERIFY(start(process));
            // A permutation of the moments, so that a slow machine that stops early has still
            // spread its interruptions over the whole installation.
            const int delay = int(duration * ((run * 17) % runs) / runs);
            if (!process.waitForFinished(delay)) {
                process.kill();
                QVERIFY(process.waitForFinished(60000));
            }
            const QList<QByteArray> steps = process.readAllStandardOutput().split('\n');
            ++killedIn[steps.size() >= 2 ? steps[steps.size() - 2] : "starting"];

            const TreeManifest::Verification verification = TreeManifest::verify(root, m_publicKey);
            QVERIFY2(verification.isOk(), qPrintable(u"after %1 ms: "_s.arg(delay) + verification.description()));
            const QByteArray versionAfter = installedVersion(root);
            QVERIFY(versionAfter == "1.0" || versionAfter == "2.0");
            ++(versionAfter == versionBefore ? sawOld : sawNew);
        }
        qInfo() << "one installation:" << duration << "ms; killed in:" << killedIn << "old tree kept:" << sawOld
                << "new tree in place:" << sawNew;
        // Interruptions before and after the exchange both happened, so both halves were tested.
        QVERIFY(sawOld > 0);
        QVERIFY(sawNew > 0);

        QProcess last;
        QVERIFY(start(last));
        QVERIFY(last.waitForFinished(60000));
        QCOMPARE(last.exitCode(), 0);
        QVERIFY(TreeManifest::verify(root, m_publicKey).isOk());
        QCOMPARE(QDir(base + u"/opt"_s).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{u"korvane-launcher"_s});
    }
};

QTEST_GUILESS_MAIN(TestArchiveInstall)
#include "tst_archiveinstall_linux.moc"
