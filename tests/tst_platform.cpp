#include "platform/boundedread.h"
#include "platform/bundleinfo.h"
#include "platform/paths.h"
#include "platform/privatedirectory.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
// The POSIX mode bits, which Qt's permission flags only approximate; -1 when nothing is there.
int mode(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}
} // namespace

class TestPlatform : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pathOverrides_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("expected");
        QTest::newRow("resources override") << QByteArray("KORVANE_RESOURCES_DIR") << QByteArray("/opt/kvn/res/")
                                            << u"resources"_s << u"/opt/kvn/res"_s;
        QTest::newRow("temporary directory") << QByteArray("TMPDIR") << QByteArray("/var/tmp/x/")
                                             << u"temporary"_s << u"/var/tmp/x"_s;
        QTest::newRow("XDG data directory") << QByteArray("XDG_DATA_HOME") << QByteArray("/srv/data")
                                            << u"applicationSupport"_s << u"/srv/data"_s;
        QTest::newRow("relative XDG data directory is ignored")
            << QByteArray("XDG_DATA_HOME") << QByteArray("rel/data") << u"applicationSupport"_s
            << QDir::homePath() + u"/.local/share"_s;
    }

    void pathOverrides()
    {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        QFETCH(QString, field);
        QFETCH(QString, expected);
        const QByteArray saved = qgetenv(variable.constData());
        const bool wasSet = qEnvironmentVariableIsSet(variable.constData());
        qputenv(variable.constData(), value);
        const Paths paths = Paths::system();
        if (wasSet)
            qputenv(variable.constData(), saved);
        else
            qunsetenv(variable.constData());
        const QString actual = field == "resources"_L1   ? paths.resources
                               : field == "temporary"_L1 ? paths.temporary
                                                         : paths.applicationSupport;
        QCOMPARE(actual, expected);
    }

    // Without an override the resources are share/korvane-launcher beside the program's
    // folder: the layout of an installation, which the build tree mirrors.
    void resourcesBesideTheProgram()
    {
        const QByteArray saved = qgetenv("KORVANE_RESOURCES_DIR");
        qunsetenv("KORVANE_RESOURCES_DIR");
        const Paths paths = Paths::system();
        qputenv("KORVANE_RESOURCES_DIR", saved);
        QCOMPARE(paths.resources, QStringLiteral(KVN_BINARY_DIR "/share/korvane-launcher"));
        QVERIFY(!paths.home.isEmpty() && !paths.loginName.isEmpty());
    }

    void underAnotherHome()
    {
        const Paths paths = Paths::underHome(u"/tmp/elsewhere/"_s);
        QCOMPARE(paths.home, u"/tmp/elsewhere"_s);
        QVERIFY(!paths.applicationSupport.startsWith(QDir::homePath() + u'/'));
    }

    void privateDirectories_data()
    {
        QTest::addColumn<QString>("create");   // below a folder of mode 0755
        QTest::addColumn<QString>("existing"); // made beforehand with mode 0755; "file:" a file
        QTest::addColumn<int>("umask");
        QTest::addColumn<bool>("created");
        QTest::newRow("three new levels") << u"a/b/c"_s << QString() << 022 << true;
        QTest::newRow("an open umask") << u"a/b"_s << QString() << 0 << true;
        QTest::newRow("a umask that takes the owner's bits") << u"a/b"_s << QString() << 0377 << true;
        QTest::newRow("trailing separator") << u"a/b/"_s << QString() << 022 << true;
        QTest::newRow("existing middle keeps its mode") << u"a/b/c"_s << u"a"_s << 022 << true;
        QTest::newRow("existing folder keeps its mode") << u"a"_s << u"a"_s << 022 << true;
        QTest::newRow("a file in the way") << u"a/b"_s << u"file:a"_s << 022 << false;
        QTest::newRow("a file at the end") << u"a/b"_s << u"file:a/b"_s << 022 << false;
    }
    void privateDirectories()
    {
        QFETCH(QString, create);
        QFETCH(QString, existing);
        QFETCH(int, umask);
        QFETCH(bool, created);
        QTemporaryDir root;
        const QString base = root.filePath(u"base"_s);
        QVERIFY(QDir().mkdir(base) && ::chmod(QFile::encodeName(base).constData(), 0755) == 0);
        const bool existingIsFile = existing.startsWith(u"file:"_s);
        const QString existingPath = existing.isEmpty() ? QString() : base + u'/' + existing.mid(existingIsFile ? 5 : 0);
        if (existingIsFile) {
            QVERIFY(QDir().mkpath(QFileInfo(existingPath).path()));
            QFile file(existingPath);
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else if (!existingPath.isEmpty()) {
            QVERIFY(QDir().mkpath(existingPath) && ::chmod(QFile::encodeName(existingPath).constData(), 0755) == 0);
        }

        // Every folder on the way: what was there keeps its mode, what was missing is 0700.
        QStringList onTheWay;
        const QStringList parts = QDir::cleanPath(create).split(u'/');
        for (qsizetype depth = 1; depth <= parts.size(); ++depth)
            onTheWay.append(base + u'/' + parts.mid(0, depth).join(u'/'));
        QList<int> before;
        for (const QString &path : std::as_const(onTheWay))
            before.append(mode(path));

        const mode_t saved = ::umask(mode_t(umask));
        QString error;
        const bool made = PrivateDirectory::create(base + u'/' + create, &error);
        ::umask(saved);

        QCOMPARE(made, created);
        QCOMPARE(error.isEmpty(), created);
        QCOMPARE(mode(base), 0755);
        for (qsizetype i = 0; i < onTheWay.size(); ++i)
            QCOMPARE(mode(onTheWay.at(i)), before.at(i) != -1 ? before.at(i) : created ? 0700 : -1);
    }

    void bundleInformation()
    {
        const QVariantMap info = BundleInfo::main();
        QCOMPARE(info.value(BundleInfo::reportDeliveryEnabledKey).typeId(), QMetaType::Bool);
        for (const QString &key : {BundleInfo::identifierKey, BundleInfo::shortVersionKey, BundleInfo::buildVersionKey,
                                   BundleInfo::feedURLKey, BundleInfo::publicEDKeyKey, BundleInfo::releaseChannelKey})
            QCOMPARE(info.value(key).typeId(), QMetaType::QString);
        QVERIFY(!info.value(BundleInfo::shortVersionKey).toString().isEmpty());
        QVERIFY(!info.value(BundleInfo::identifierKey).toString().isEmpty());
    }

    // Every byte up to the limit from where the device stands, across the reads of a chunk, and
    // no more than the file holds set aside for a limit far beyond it.
    void boundedRead_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<qint64>("start");
        QTest::addColumn<qint64>("limit");
        QTest::newRow("small file, huge limit") << qint64(10) << qint64(0) << qint64(512) * 1024 * 1024;
        QTest::newRow("exactly the limit") << qint64(100) << qint64(0) << qint64(100);
        QTest::newRow("one byte over") << qint64(101) << qint64(0) << qint64(100);
        QTest::newRow("several chunks, cut") << qint64(300'000) << qint64(0) << qint64(200'001);
        QTest::newRow("from the middle") << qint64(300'000) << qint64(70'000) << qint64(1'000'000);
        QTest::newRow("empty") << qint64(0) << qint64(0) << qint64(5);
    }
    void boundedRead()
    {
        QFETCH(qint64, size);
        QFETCH(qint64, start);
        QFETCH(qint64, limit);
        QTemporaryDir directory;
        QByteArray content(size, Qt::Uninitialized);
        for (qint64 i = 0; i < size; ++i)
            content[i] = char('a' + i % 23);
        QFile file(directory.filePath(QStringLiteral("data")));
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.write(content);
        QVERIFY(file.seek(start));
        const QByteArray read = BoundedRead::upTo(file, limit);
        QCOMPARE(read, content.mid(start, limit));
        QVERIFY(read.capacity() <= std::max<qint64>(size - start, 0) + 1);
    }

    void versionText_data()
    {
        QTest::addColumn<QVariant>("shortVersion"); // invalid: absent
        QTest::addColumn<QVariant>("build");
        QTest::addColumn<QString>("expected");
        QTest::newRow("version and build") << QVariant(u"1.2.0"_s) << QVariant(u"45"_s) << u"1.2.0 (45)"_s;
        QTest::newRow("no build number") << QVariant(u"1.2.0"_s) << QVariant() << u"1.2.0"_s;
        QTest::newRow("empty build number") << QVariant(u"1.2.0"_s) << QVariant(QString()) << u"1.2.0"_s;
        QTest::newRow("no version") << QVariant() << QVariant(u"45"_s) << u"development"_s;
        QTest::newRow("version not text") << QVariant(12LL) << QVariant(u"45"_s) << u"development"_s;
    }
    void versionText()
    {
        QFETCH(QVariant, shortVersion);
        QFETCH(QVariant, build);
        QFETCH(QString, expected);
        QVariantMap info;
        if (shortVersion.isValid())
            info.insert(BundleInfo::shortVersionKey, shortVersion);
        if (build.isValid())
            info.insert(BundleInfo::buildVersionKey, build);
        QCOMPARE(BundleInfo::versionText(info), expected);
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
