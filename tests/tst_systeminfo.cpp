#include "platform/systeminfo.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

// The Linux side of the platform facts: CrossOver's version from an installation root.
class TestSystemInfo : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void crossOverVersion_data()
    {
        QTest::addColumn<QByteArray>("distversion");
        QTest::addColumn<std::optional<QString>>("version");
        QTest::newRow("public version") << QByteArray("# generated\nBUILTIN_PRODUCT_ID = \"cxoffice\"\nPUBLIC_VERSION = \"24.0.1\"\n")
                                        << std::optional<QString>(u"24.0.1"_s);
        QTest::newRow("build version in single quotes") << QByteArray("CX_VERSION = '23.7.1'\n") << std::optional<QString>(u"23.7.1"_s);
        QTest::newRow("no version line") << QByteArray("PRODUCT = \"CrossOver\"\n") << std::optional<QString>();
        QTest::newRow("version only in a comment") << QByteArray("# PUBLIC_VERSION = \"1\"\n") << std::optional<QString>();
        QTest::newRow("no installation") << QByteArray() << std::optional<QString>();
    }

    void crossOverVersion()
    {
        QFETCH(QByteArray, distversion);
        QFETCH(std::optional<QString>, version);
        QTemporaryDir root;
        if (!distversion.isEmpty()) {
            QVERIFY(QDir().mkpath(root.filePath(u"lib/python"_s)));
            QFile file(root.filePath(u"lib/python/distversion.py"_s));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(distversion);
        }
        qputenv("CX_ROOT", root.path().toLocal8Bit());
        QCOMPARE(SystemInfo::crossOverVersion(), version);
        qunsetenv("CX_ROOT");
    }

    void operatingSystemNamesItself()
    {
        QVERIFY(!SystemInfo::operatingSystemVersion().trimmed().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSystemInfo)
#include "tst_systeminfo.moc"
