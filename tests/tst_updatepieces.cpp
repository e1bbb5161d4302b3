#include "updates/appcast.h"
#include "updates/ed25519.h"
#include "updates/sparkleversion.h"
#include "updates/treemanifest.h"

#include "support/testfiles.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

const QByteArray someSignature = QByteArray(64, '\x5a').toBase64();

QByteArray enclosure(const QByteArray &url, const QByteArray &length = "9",
                     const QByteArray &signature = someSignature, const QByteArray &os = "linux")
{
    QByteArray element = "<enclosure url=\"" + url + "\"";
    if (!length.isNull())
        element += " length=\"" + length + "\"";
    if (!os.isNull())
        element += " sparkle:os=\"" + os + "\"";
    return element + " sparkle:edSignature=\"" + signature + "\"/>";
}

// One appcast item, by default with a valid Linux download.
QByteArray item(const QByteArray &version, const QByteArray &extra = {}, const QByteArray &download = {})
{
    return "<item><title>Korvane " + version + "</title><sparkle:version>" + version + "</sparkle:version>" + extra
        + (download.isNull() ? enclosure("https://updates.example/k-" + version + ".tar.gz", "1234") : download)
        + "</item>";
}

QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><title>Korvane</title>"
        + items + "</channel></rss>";
}

using TestFiles::write;

int mode(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run release(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(KVN_KORVANE_RELEASE), arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

using Mutation = std::function<void(const QString &root)>;

} // namespace

class TestUpdatePieces : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    const QByteArray m_seed = Ed25519::newSeed();
    const QByteArray m_otherSeed = Ed25519::newSeed();

    // A small launcher tree: an executable, a resource below a folder with a blank in its name,
    // and a link between them, signed with m_seed.
    QString signedTree(const QString &name)
    {
        const QString root = m_dir.filePath(name);
        write(root + u"/bin/korvane-launcher", "ELF launcher");
        QFile::setPermissions(root + u"/bin/korvane-launcher", QFile::permissions(root + u"/bin/korvane-launcher")
                                                                  | QFileDevice::ExeOwner);
        write(root + u"/share/korvane launcher/CHANGELOG.md", "## 1.0.0\n- First\n");
        QFile::link(u"../share/korvane launcher/CHANGELOG.md"_s, root + u"/bin/notes");
        TreeManifest::sign(root, m_seed);
        return root;
    }

private Q_SLOTS:
    void versionOrder_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("numbers by value, not by text") << u"1.10"_s << u"1.9"_s << 1;
        QTest::newRow("equal") << u"2.1.3"_s << u"2.1.3"_s << 0;
        QTest::newRow("trailing zero component") << u"1.0"_s << u"1.0.0"_s << 0;
        QTest::newRow("leading zeros") << u"1.05"_s << u"1.5"_s << 0;
        QTest::newRow("extra component") << u"1.0.1"_s << u"1.0"_s << 1;
        QTest::newRow("beta before release") << u"2.0b2"_s << u"2.0"_s << -1;
        QTest::newRow("beta numbers by value") << u"2.0b2"_s << u"2.0b10"_s << -1;
        QTest::newRow("alpha before beta") << u"2.0a9"_s << u"2.0b1"_s << -1;
        QTest::newRow("beta before rc") << u"2.0b3"_s << u"2.0rc1"_s << -1;
        QTest::newRow("dashed pre-release before release") << u"2.0-beta"_s << u"2.0"_s << -1;
        QTest::newRow("point release after a beta") << u"1.0.1"_s << u"1.0b1"_s << 1;
        QTest::newRow("beta of the next release after this one") << u"1.1b1"_s << u"1.0"_s << 1;
        QTest::newRow("build numbers longer than 64 bits") << u"123456789012345678901234567890"_s
                                                            << u"123456789012345678901234567889"_s << 1;
        QTest::newRow("empty before anything") << u""_s << u"1"_s << -1;
    }
    void versionOrder()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(SparkleVersion::compare(a, b), expected);
        QCOMPARE(SparkleVersion::compare(b, a), -expected);
    }

    void appcastChoice_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QStringList>("allowed");
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("chosen"); // empty: nothing offered

        const QByteArray beta = item("1.3b1", "<sparkle:channel>beta</sparkle:channel>");
        QTest::newRow("newest stable chosen") << feed(item("1.1") + item("1.2") + item("1.1.5")) << QStringList{}
                                              << u"1.0"_s << u"1.2"_s;
        QTest::newRow("beta item hidden on stable") << feed(item("1.2") + beta) << QStringList{} << u"1.0"_s
                                                    << u"1.2"_s;
        QTest::newRow("beta item seen on beta") << feed(item("1.2") + beta) << QStringList{u"beta"_s} << u"1.0"_s
                                                << u"1.3b1"_s;
        QTest::newRow("unknown channel never offered")
            << feed(item("1.2") + item("9.0", "<sparkle:channel>nightly</sparkle:channel>")) << QStringList{u"beta"_s}
            << u"1.0"_s << u"1.2"_s;
        QTest::newRow("up to date") << feed(item("1.2")) << QStringList{} << u"1.2"_s << QString();
        QTest::newRow("older than running") << feed(item("1.2")) << QStringList{} << u"1.10"_s << QString();
        QTest::newRow("http enclosure skipped")
            << feed(item("1.1") + item("1.5", {}, enclosure("http://updates.example/k.tar.gz")))
            << QStringList{} << u"1.0"_s << u"1.1"_s;
        QTest::newRow("user name in the download skipped")
            << feed(item("1.1") + item("1.5", {}, enclosure("https://me@updates.example/k.tar.gz")))
            << QStringList{} << u"1.0"_s << u"1.1"_s;
        QTest::newRow("missing length skipped")
            << feed(item("1.1") + item("1.5", {}, enclosure("https://updates.example/k.tar.gz", QByteArray())))
            << QStringList{} << u"1.0"_s << u"1.1"_s;
        QTest::newRow("short signature skipped")
            << feed(item("1.1") + item("1.5", {}, enclosure("https://updates.example/k.tar.gz", "9", QByteArray(63, 'x').toBase64())))
            << QStringList{} << u"1.0"_s << u"1.1"_s;
        QTest::newRow("macOS enclosure is not ours")
            << feed(item("1.1") + item("1.5", {}, enclosure("https://updates.example/k.zip", "9", someSignature, QByteArray())))
            << QStringList{} << u"1.0"_s << u"1.1"_s;
        QTest::newRow("version as enclosure attribute")
            << feed("<item><enclosure url=\"https://updates.example/k.tar.gz\" length=\"9\" sparkle:version=\"1.4\" "
                    "sparkle:os=\"linux\" sparkle:edSignature=\"" + someSignature + "\"/></item>")
            << QStringList{} << u"1.0"_s << u"1.4"_s;
        QTest::newRow("item without a version skipped")
            << feed(item("1.1") + "<item>" + enclosure("https://updates.example/k.tar.gz") + "</item>")
            << QStringList{} << u"1.0"_s << u"1.1"_s;
    }
    void appcastChoice()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QStringList, allowed);
        QFETCH(QString, running);
        QFETCH(QString, chosen);
        const auto best = Appcast::best(Appcast::parse(xml, u"linux"_s), QSet<QString>(allowed.cbegin(), allowed.cend()),
                                        running);
        QCOMPARE(best ? best->version : QString(), chosen);
    }

    void appcastFields()
    {
        const QByteArray xml = feed(
            "<item><title>Korvane 2.0 beta 2</title><sparkle:channel>beta</sparkle:channel>"
            "<sparkle:shortVersionString>2.0 beta 2</sparkle:shortVersionString>"
            "<enclosure url=\"https://updates.example/k%202.tar.gz?a=1&amp;b=2\" length=\"4096\" sparkle:version=\"2.0b2\" "
            "sparkle:os=\"linux\" sparkle:edSignature=\"" + someSignature + "\"/></item>");
        const QList<AppcastItem> items = Appcast::parse(xml, u"linux"_s);
        QCOMPARE(items.size(), 1);
        const AppcastItem &found = items.first();
        QCOMPARE(found.title, u"Korvane 2.0 beta 2"_s);
        QCOMPARE(found.version, u"2.0b2"_s);
        QCOMPARE(found.displayVersion(), u"2.0 beta 2"_s);
        QCOMPARE(found.channel, u"beta"_s);
        QCOMPARE(found.url, QUrl(u"https://updates.example/k%202.tar.gz?a=1&b=2"_s));
        QCOMPARE(found.length, 4096);
        QCOMPARE(found.edSignature, QByteArray(64, '\x5a'));
    }

    void appcastRefused_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<int>("code");
        QByteArray padded = feed(item("1.1"));
        padded.insert(padded.indexOf("<channel>"), QByteArray(Appcast::maximumFeedSize, ' '));
        QTest::newRow("over the size cap") << padded << int(AppcastError::tooLarge);
        QTest::newRow("not XML") << QByteArray("{\"version\": \"1.1\"}") << int(AppcastError::malformed);
        QTest::newRow("empty") << QByteArray() << int(AppcastError::malformed);
        QTest::newRow("cut off after an item") << feed(item("1.1")).chopped(12) << int(AppcastError::malformed);
        QTest::newRow("garbage after the feed") << feed(item("1.1")) + "<rss/>" << int(AppcastError::malformed);
        QTest::newRow("entity declarations")
            << QByteArray("<?xml version=\"1.0\"?><!DOCTYPE rss [<!ENTITY a \"aaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>"
                          "<rss><channel><title>&b;</title></channel></rss>")
            << int(AppcastError::malformed);
        QTest::newRow("Atom, not RSS") << QByteArray("<feed xmlns=\"http://www.w3.org/2005/Atom\"><entry/></feed>")
                                       << int(AppcastError::notAFeed);
        QTest::newRow("RSS without a channel") << QByteArray("<rss version=\"2.0\"><item/></rss>")
                                               << int(AppcastError::notAFeed);
    }
    void appcastRefused()
    {
        QFETCH(QByteArray, xml);
        QFETCH(int, code);
        try {
            Appcast::parse(xml);
            QFAIL("the feed was accepted");
        } catch (const AppcastError &error) {
            QCOMPARE(int(error.code()), code);
        }
    }

    void signatures()
    {
        const QByteArray message = "the whole archive, byte for byte";
        const QByteArray key = Ed25519::publicKey(m_seed);
        const QByteArray signature = Ed25519::sign(m_seed, message);
        QCOMPARE(key.size(), Ed25519::publicKeySize);
        QCOMPARE(signature.size(), Ed25519::signatureSize);
        QVERIFY(Ed25519::verify(message, signature, key));

        QByteArray flipped = message;
        flipped[3] = char(flipped[3] ^ 1);
        QVERIFY(!Ed25519::verify(flipped, signature, key));
        QVERIFY(!Ed25519::verify(message, Ed25519::sign(m_otherSeed, message), key));
        QVERIFY(!Ed25519::verify(message, signature, key.chopped(1)));
        QVERIFY(!Ed25519::verify(message, signature, key + 'x'));
        QVERIFY(!Ed25519::verify(message, signature.chopped(1), key));
        QVERIFY(Ed25519::publicKey(m_seed.chopped(1)).isEmpty());
        QVERIFY(Ed25519::sign(m_seed + 'x', message).isEmpty());
        // The same seed always yields the same key: it is all a release needs to keep.
        QCOMPARE(Ed25519::publicKey(QByteArray(m_seed)), key);
    }

    void manifestVerification_data()
    {
        QTest::addColumn<Mutation>("mutate");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("path");
        using V = TreeManifest::Verification;
        QTest::newRow("untouched") << Mutation([](const QString &) {}) << int(V::ok) << QString();
        QTest::newRow("one byte changed") << Mutation([](const QString &root) {
            write(root + u"/bin/korvane-launcher", "ELF launcheR");
        }) << int(V::changedFile) << u"bin/korvane-launcher"_s;
        QTest::newRow("executable bit lost") << Mutation([](const QString &root) {
            QFile::setPermissions(root + u"/bin/korvane-launcher", QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        }) << int(V::changedFile) << u"bin/korvane-launcher"_s;
        QTest::newRow("file added") << Mutation([](const QString &root) {
            write(root + u"/share/korvane launcher/extra.dylib", "x");
        }) << int(V::extraFile) << u"share/korvane launcher/extra.dylib"_s;
        QTest::newRow("file removed") << Mutation([](const QString &root) {
            QFile::remove(root + u"/share/korvane launcher/CHANGELOG.md");
        }) << int(V::missingFile) << u"share/korvane launcher/CHANGELOG.md"_s;
        QTest::newRow("link pointed elsewhere") << Mutation([](const QString &root) {
            QFile::remove(root + u"/bin/notes");
            QFile::link(u"/etc/passwd"_s, root + u"/bin/notes");
        }) << int(V::changedFile) << u"bin/notes"_s;
        QTest::newRow("file replaced by a link to it") << Mutation([](const QString &root) {
            QFile::rename(root + u"/bin/korvane-launcher", root + u"/launcher");
            QFile::link(u"../launcher"_s, root + u"/bin/korvane-launcher");
        }) << int(V::changedFile) << u"bin/korvane-launcher"_s;
        QTest::newRow("no manifest") << Mutation([](const QString &root) {
            QFile::remove(root + u'/' + TreeManifest::fileName);
        }) << int(V::notSigned) << QString();
        QTest::newRow("no signature") << Mutation([](const QString &root) {
            QFile::remove(root + u'/' + TreeManifest::signatureFileName);
        }) << int(V::notSigned) << QString();
        QTest::newRow("manifest edited to match a change") << Mutation([](const QString &root) {
            write(root + u"/bin/korvane-launcher", "evil");
            QFile manifest(root + u'/' + TreeManifest::fileName);
            QVERIFY(manifest.remove());
            write(manifest.fileName(), TreeManifest::make(root));
        }) << int(V::badSignature) << QString();
        QTest::newRow("signature not base64") << Mutation([](const QString &root) {
            write(root + u'/' + TreeManifest::signatureFileName, "not*base64\n");
        }) << int(V::badSignature) << QString();
    }
    void manifestVerification()
    {
        QFETCH(Mutation, mutate);
        QFETCH(int, status);
        QFETCH(QString, path);
        const QString root = signedTree(QString::fromLatin1(QTest::currentDataTag()));
        mutate(root);
        const TreeManifest::Verification result = TreeManifest::verify(root, Ed25519::publicKey(m_seed));
        QCOMPARE(int(result.status), status);
        QCOMPARE(result.path, path);
        QVERIFY(!result.description().isEmpty());
    }

    void manifestOfAnotherKey()
    {
        const QString root = signedTree(u"other key"_s);
        QCOMPARE(TreeManifest::verify(root, Ed25519::publicKey(m_otherSeed)).status,
                 TreeManifest::Verification::badSignature);
    }

    void manifestNamesAreEncoded()
    {
        const QString root = m_dir.filePath(u"odd names"_s);
        write(root + u"/a b\nc%d", "1");
        write(root + u"/ünï", "2");
        TreeManifest::sign(root, m_seed);
        const QByteArray manifest = TreeManifest::make(root);
        QCOMPARE(manifest.count('\n'), 3); // the header and one line per file
        QVERIFY(TreeManifest::verify(root, Ed25519::publicKey(m_seed)).isOk());
    }

    void releaseTool()
    {
        const QString secret = m_dir.filePath(u"release/secret.key"_s);
        QDir().mkpath(QFileInfo(secret).path());
        const Run keygen = release({u"keygen"_s, secret});
        QCOMPARE(keygen.exitCode, 0);
        QCOMPARE(mode(secret), 0600);
        const QByteArray publicKey = QByteArray::fromBase64(keygen.out.trimmed());
        QCOMPARE(publicKey.size(), Ed25519::publicKeySize);

        QFile secretFile(secret);
        QVERIFY(secretFile.open(QIODevice::ReadOnly));
        const QByteArray secretBefore = secretFile.readAll();
        const Run again = release({u"keygen"_s, secret});
        QCOMPARE(again.exitCode, 1);
        QVERIFY(again.err.contains("exists already"));
        secretFile.seek(0);
        QCOMPARE(secretFile.readAll(), secretBefore);

        // A tree signed by the tool verifies against the key keygen printed.
        const QString tree = m_dir.filePath(u"release/tree"_s);
        write(tree + u"/bin/korvane-launcher", "launcher");
        QCOMPARE(release({u"sign-tree"_s, secret, tree}).exitCode, 0);
        QVERIFY(TreeManifest::verify(tree, publicKey).isOk());

        // The printed enclosure is one the launcher's feed reader accepts, and its signature
        // covers the archive's bytes.
        const QString archive = m_dir.filePath(u"release/k.tar.gz"_s);
        const QByteArray archiveBytes = QByteArray(70000, '\x1f') + "archive";
        write(archive, archiveBytes);
        const Run signing = release({u"sign-archive"_s, secret, archive, u"https://updates.example/k 1.tar.gz?a&b"_s});
        QCOMPARE(signing.exitCode, 0);
        const QList<AppcastItem> items = Appcast::parse(
            feed("<item><sparkle:version>2</sparkle:version>" + signing.out + "</item>"), u"linux"_s);
        QCOMPARE(items.size(), 1);
        QCOMPARE(items.first().length, archiveBytes.size());
        QCOMPARE(items.first().url, QUrl(u"https://updates.example/k%201.tar.gz?a&b"_s));
        QVERIFY(Ed25519::verify(archiveBytes, items.first().edSignature, publicKey));
    }

    void releaseToolRefusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("no command") << QStringList{} << 2;
        QTest::newRow("unknown command") << QStringList{u"publish"_s} << 2;
        QTest::newRow("sign-tree without a tree") << QStringList{u"sign-tree"_s, u"key"_s} << 2;
        QTest::newRow("unknown operating system")
            << QStringList{u"sign-archive"_s, u"key"_s, u"a"_s, u"https://x.example/a"_s, u"--os"_s, u"windows"_s} << 2;
        QTest::newRow("missing secret") << QStringList{u"sign-tree"_s, u"/nonexistent/key"_s, u"."_s} << 1;
        QTest::newRow("http download") << QStringList{u"sign-archive"_s, u"key"_s, u"a"_s, u"http://x.example/a"_s}
                                       << 1;
    }
    void releaseToolRefusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        const Run run = release(arguments);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY(run.out.isEmpty());
        QVERIFY(!run.err.isEmpty());
    }

    void releaseToolRefusesForeignSecret()
    {
        const QString secret = m_dir.filePath(u"foreign.key"_s);
        write(secret, QByteArray(31, 'k').toBase64());
        const Run run = release({u"sign-tree"_s, secret, m_dir.path()});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains("secret key"));
    }
};

QTEST_GUILESS_MAIN(TestUpdatePieces)
#include "tst_updatepieces.moc"
