#include "support/korvanectl.h"

#include "platform/bundleinfo.h"

#include <QtTest>

using namespace Qt::StringLiterals;

class TestKorvanectlBasics : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void informationOptions_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("errStart");
        const QVariantMap info = BundleInfo::compiledIn();
        const QString version = info.value(BundleInfo::shortVersionKey).toString() + u" ("_s
            + info.value(BundleInfo::buildVersionKey).toString() + u")"_s;
        QTest::newRow("version") << QStringList{u"--version"_s} << 0 << u"korvanectl "_s + version + u'\n' << QString();
        QTest::newRow("help") << QStringList{u"--help"_s} << 0 << u"usage: korvanectl"_s << QString();
        QTest::newRow("no command is an error") << QStringList{} << 2 << QString() << u"usage: korvanectl"_s;
        QTest::newRow("unknown command") << QStringList{u"--verbose"_s} << 2 << QString()
                                         << u"korvanectl: unknown command \"--verbose\""_s;
    }
    void informationOptions()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, errStart);
        TestHome home;
        const CliResult result = runKorvanectl(home, arguments);
        QCOMPARE(result.exitCode, exitCode);
        // A version is one whole line; usage texts are checked by their start.
        if (out.endsWith(u'\n'))
            QCOMPARE(result.out, out);
        else
            QVERIFY2(result.out.startsWith(out), qPrintable(result.out));
        QVERIFY2(result.err.startsWith(errStart), qPrintable(result.err));
    }

    void gameVersion()
    {
        TestHome home;
        const QString wine = u"/usr/lib/x86_64-linux-gnu/wine/x86_64-windows/"_s;
        CliResult result = runKorvanectl(home, {u"game-version"_s, wine + u"bcrypt.dll"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, u"6.0.6000.16386\n"_s);

        result = runKorvanectl(home, {u"game-version"_s, home.root() + u"/missing.exe"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, u"unknown\n"_s);

        result = runKorvanectl(home, {u"game-version"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY(result.err.contains(u"usage"_s));
    }

    void text_data()
    {
        QTest::addColumn<QString>("storedLanguage"); // empty: none stored
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::newRow("stored German") << u"de"_s << QStringList{u"Alkalmazás nyelve"_s} << 0 << u"App-Sprache\n"_s;
        QTest::newRow("option wins over the store")
            << u"de"_s << QStringList{u"Alkalmazás nyelve"_s, u"--lang"_s, u"en"_s} << 0 << u"App language\n"_s;
        QTest::newRow("nothing stored is English") << QString() << QStringList{u"Alkalmazás nyelve"_s} << 0 << u"App language\n"_s;
        QTest::newRow("Hungarian sentence in Hungarian")
            << QString() << QStringList{u"Alkalmazás nyelve"_s, u"--lang"_s, u"hu"_s} << 0 << u"Alkalmazás nyelve\n"_s;
        QTest::newRow("argument") << QString() << QStringList{u"Telepített verzió: %@"_s, u"1.53.3.14"_s, u"--lang"_s, u"hu"_s}
                                  << 0 << u"Telepített verzió: 1.53.3.14\n"_s;
        QTest::newRow("unknown key") << QString() << QStringList{u"no.such.key"_s} << 0 << u"no.such.key\n"_s;
        QTest::newRow("unknown language") << QString() << QStringList{u"x"_s, u"--lang"_s, u"fr"_s} << 2 << QString();
        QTest::newRow("language without value") << QString() << QStringList{u"x"_s, u"--lang"_s} << 2 << QString();
    }

    void text()
    {
        QFETCH(QString, storedLanguage);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        TestHome home;
        if (!storedLanguage.isEmpty())
            JsonUserDefaults(korvanectlDefaultsPath(home)).setString(u"appLanguage"_s, storedLanguage);
        const CliResult result = runKorvanectl(home, QStringList{u"text"_s} + arguments);
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, out);
        if (exitCode != 0)
            QVERIFY(!result.err.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlBasics)
#include "tst_korvanectl_basics.moc"
