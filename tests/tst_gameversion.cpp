#include "games/gameversion.h"

#include <QDirIterator>
#include <QtEndian>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <array>

using namespace Qt::StringLiterals;

namespace {
// One version record as it is laid out in a Windows resource, at a chosen offset.
struct Record {
    qsizetype offset = 128;
    std::array<quint16, 4> product{1, 53, 3, 14};
    std::array<quint16, 4> file{1, 0, 0, 0};
    quint16 length = 92;
    quint16 valueLength = 52;
    quint16 type = 0;
    quint32 signature = 0xFEEF04BD;
};

// The resource key in UTF-16LE with its terminator, 32 bytes.
QByteArray key()
{
    return QByteArray(reinterpret_cast<const char *>(u"VS_VERSION_INFO"), 32);
}

// A version as the fixed file info stores it: two little-endian dwords, most significant first.
void putVersion(char *at, const std::array<quint16, 4> &v)
{
    qToLittleEndian<quint32>(quint32(v[0]) << 16 | v[1], at);
    qToLittleEndian<quint32>(quint32(v[2]) << 16 | v[3], at + 4);
}

QByteArray image(const QList<Record> &records, qsizetype size = 1024)
{
    QByteArray data(size, '\0');
    data.replace(0, 2, "MZ");
    for (const Record &r : records) {
        char *header = data.data() + r.offset;
        qToLittleEndian<quint16>(r.length, header);
        qToLittleEndian<quint16>(r.valueLength, header + 2);
        qToLittleEndian<quint16>(r.type, header + 4);
        data.replace(r.offset + 6, 32, key());
        // The value starts at the next multiple of four after the key.
        char *value = data.data() + ((r.offset + 38 + 3) & ~qsizetype(3));
        qToLittleEndian<quint32>(r.signature, value);
        putVersion(value + 8, r.file);
        putVersion(value + 16, r.product);
    }
    return data;
}

using Parts = QList<quint16>;
} // namespace

class TestGameVersion : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parseRecords_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<Parts>("expected"); // empty: no version

        const Parts v15331{1, 53, 3, 14};
        QTest::newRow("smallest accepted record") << image({Record{}}) << v15331;
        QTest::newRow("product version, not file version") << image({Record{.file = {9, 9, 9, 9}}}) << v15331;
        // At 130 the value ends at byte 90 of the record: only the length bound skips it.
        QTest::newRow("length 91 skipped") << image({Record{.offset = 130, .length = 91}}) << Parts{};
        QTest::newRow("value length 51 skipped") << image({Record{.valueLength = 51}}) << Parts{};
        QTest::newRow("text type skipped") << image({Record{.type = 1}}) << Parts{};
        QTest::newRow("wrong signature") << image({Record{.signature = 0xFEEF04BC}}) << Parts{};
        QTest::newRow("major 0 ignored") << image({Record{.product = {0, 1, 2, 3}}}) << Parts{};
        QTest::newRow("major 0 beside a good record")
            << image({Record{.offset = 128, .product = {0, 1, 2, 3}}, Record{.offset = 400}}) << v15331;
        QTest::newRow("two identical records") << image({Record{.offset = 128}, Record{.offset = 400}}) << v15331;
        QTest::newRow("two conflicting records")
            << image({Record{.offset = 128}, Record{.offset = 400, .product = {1, 54, 0, 1}}}) << Parts{};
        QTest::newRow("a broken record does not hide a good one")
            << image({Record{.offset = 128, .type = 1}, Record{.offset = 400}}) << v15331;
        QTest::newRow("record runs past the end") << image({Record{.offset = 1024 - 92, .length = 93}}) << Parts{};
        QTest::newRow("record ends exactly at the end") << image({Record{.offset = 1024 - 92}}) << v15331;
        // An unaligned record start moves the value up to the next multiple of four.
        QTest::newRow("unaligned record") << image({Record{.offset = 131, .length = 96}}) << v15331;
        // A stray key whose header would start before byte 0.
        QTest::newRow("key before any header room") << image({Record{.offset = 400}}).replace(2, 32, key()) << v15331;
        QTest::newRow("no MZ") << image({Record{}}).replace(0, 1, "Z") << Parts{};
    }
    void parseRecords()
    {
        QFETCH(QByteArray, data);
        QFETCH(Parts, expected);
        const auto version = GameVersion::parse(data);
        QCOMPARE(version ? version->parts() : Parts{}, expected);
    }

    // Every truncation of a file with a record: only the whole record gives the version, and
    // no cut makes the scan read past the data (the sanitizer build checks the reads).
    void parseOfEveryTruncation()
    {
        const QByteArray full = image({Record{.offset = 8}}, 100);
        for (qsizetype size = 0; size < full.size(); ++size)
            QVERIFY(!GameVersion::parse(QByteArray(full.constData(), size)));
        QVERIFY(GameVersion::parse(full).has_value());
    }

    void read_data()
    {
        QTest::addColumn<qint64>("size"); // -1: no file
        QTest::addColumn<bool>("readable");
        QTest::addColumn<bool>("found");
        QTest::newRow("exactly the cap") << GameVersion::maximumExecutableSize << true << true;
        QTest::newRow("one byte over the cap") << GameVersion::maximumExecutableSize + 1 << true << false;
        QTest::newRow("empty") << qint64(0) << true << false;
        QTest::newRow("unreadable") << qint64(4096) << false << false;
        QTest::newRow("missing") << qint64(-1) << true << false;
    }
    void read()
    {
        QFETCH(qint64, size);
        QFETCH(bool, readable);
        QFETCH(bool, found);
        if (!readable && ::geteuid() == 0)
            QSKIP("root reads any file");
        QTemporaryDir dir;
        const QString path = dir.filePath(u"eurotrucks2.exe"_s);
        if (size >= 0) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(size));
            // The record sits near the end of a sparse file, so the whole size is really scanned.
            if (size > 0) {
                file.write(image({}, 64));
                QVERIFY(file.seek(size - 256));
                file.write(image({Record{.offset = 0}}, 128));
            }
            QVERIFY(readable || file.setPermissions(QFileDevice::Permissions()));
        }
        const auto version = GameVersion::read(path);
        QCOMPARE(version ? version->text() : QString(), found ? u"1.53.3.14"_s : QString());
        QVERIFY(!GameVersion::read(dir.path())); // a folder
    }

    // Real Windows binaries, read by us and by an independent PE reader that walks the
    // resource directory properly (pefile).
    void agreesWithAnIndependentReader()
    {
        const QString root = u"/usr/lib/x86_64-linux-gnu/wine"_s;
        QStringList files;
        QDirIterator it(root, {u"*.dll"_s, u"*.exe"_s}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (path.contains(u"-windows/"_s))
                files.append(path);
        }
        QVERIFY2(files.size() > 100, "libwine's Windows binaries are missing (./kvn test installs them)");

        const QString script = uR"(
import json, sys, pefile
result = {}
for path in sys.stdin.read().split('\n'):
    if not path: continue
    pe = pefile.PE(path, fast_load=True)
    pe.parse_data_directories(directories=[pefile.DIRECTORY_ENTRY['IMAGE_DIRECTORY_ENTRY_RESOURCE']])
    infos = getattr(pe, 'VS_FIXEDFILEINFO', None) or []
    versions = {(i.ProductVersionMS >> 16, i.ProductVersionMS & 0xffff,
                 i.ProductVersionLS >> 16, i.ProductVersionLS & 0xffff) for i in infos}
    versions = {v for v in versions if v[0] != 0}
    result[path] = '.'.join(map(str, versions.pop())) if len(versions) == 1 else None
print(json.dumps(result))
)"_s;
        QProcess python;
        python.start(u"/usr/bin/python3"_s, {u"-c"_s, script});
        QVERIFY(python.waitForStarted());
        python.write(files.join(u'\n').toUtf8());
        python.closeWriteChannel();
        QVERIFY(python.waitForFinished(300000));
        QCOMPARE(python.exitCode(), 0);
        const QJsonObject expected = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
        QCOMPARE(expected.size(), files.size());

        int withVersion = 0;
        for (const QString &path : std::as_const(files)) {
            const auto version = GameVersion::read(path);
            const QString ours = version ? version->text() : u"none"_s, theirs = expected.value(path).toString(u"none"_s);
            QVERIFY2(ours == theirs, qPrintable(path + u": ours "_s + ours + u", pefile "_s + theirs));
            withVersion += version ? 1 : 0;
        }
        QVERIFY(withVersion > 50);
    }

    void supportedParts_data()
    {
        QTest::addColumn<QString>("supported");
        QTest::addColumn<QString>("pieces"); // blank-separated; empty: refused
        QTest::newRow("trailing s") << u"1.53.3.14s"_s << u"1 53 3 14"_s;
        QTest::newRow("two s") << u"1.53.3.14ss"_s << QString();
        QTest::newRow("capital S") << u"1.53.3.14S"_s << QString();
        QTest::newRow("two pieces") << u"1.53"_s << u"1 53"_s;
        QTest::newRow("one piece") << u"1"_s << QString();
        QTest::newRow("five pieces") << u"1.2.3.4.5"_s << QString();
        QTest::newRow("empty piece") << u"1..3"_s << QString();
        QTest::newRow("wildcard first") << u"*.53"_s << QString();
        QTest::newRow("wildcard inside") << u"1.*.3"_s << u"1 * 3"_s;
        QTest::newRow("too large") << u"1.65536"_s << QString();
        QTest::newRow("largest") << u"1.65535"_s << u"1 65535"_s;
        QTest::newRow("signed") << u"1.+5"_s << QString();
        QTest::newRow("other script's digits") << u"1.\u0665"_s << QString();
        QTest::newRow("blank inside") << u"1. 5"_s << QString();
        QTest::newRow("letters") << u"abc"_s << QString();
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("very long number") << u"1.00000000000000000000053"_s << u"1 00000000000000000000053"_s;
    }
    void supportedParts()
    {
        QFETCH(QString, supported);
        QFETCH(QString, pieces);
        QCOMPARE(GameVersion::supportedParts(supported).value_or(QStringList{}).join(u' '), pieces);
    }

    void matches_data()
    {
        QTest::addColumn<Parts>("installed");
        QTest::addColumn<QString>("supported");
        QTest::addColumn<int>("expected"); // 1 true, 0 false, -1 cannot tell
        // Exact, prefix and unreadable patterns are covered by the compatibility evaluation's table.
        const Parts v{1, 53, 3, 14};
        QTest::newRow("wildcard inside") << v << u"1.53.*.14"_s << 1;
        QTest::newRow("other build") << v << u"1.53.3.15"_s << 0;
        QTest::newRow("leading zero") << v << u"1.053.3.14"_s << 1;
        QTest::newRow("three installed parts") << Parts{1, 53, 3} << u"1.53"_s << -1;
    }
    void matches()
    {
        QFETCH(Parts, installed);
        QFETCH(QString, supported);
        QFETCH(int, expected);
        const auto result = GameVersion(installed).matches(supported);
        QCOMPARE(result ? int(*result) : -1, expected);
    }
};

QTEST_GUILESS_MAIN(TestGameVersion)
#include "tst_gameversion.moc"
