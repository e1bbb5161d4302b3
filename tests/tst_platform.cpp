#include "platform/bundleinfo.h"
#include "platform/paths.h"

#include <QtTest>

using namespace Qt::StringLiterals;

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

    void bundleInformation()
    {
        const QVariantMap info = BundleInfo::main();
        QCOMPARE(info.value(BundleInfo::reportDeliveryEnabledKey).typeId(), QMetaType::Bool);
        for (const QString &key : {BundleInfo::shortVersionKey, BundleInfo::buildVersionKey, BundleInfo::feedURLKey,
                                   BundleInfo::publicEDKeyKey, BundleInfo::releaseChannelKey})
            QCOMPARE(info.value(key).typeId(), QMetaType::QString);
        QVERIFY(!info.value(BundleInfo::shortVersionKey).toString().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
