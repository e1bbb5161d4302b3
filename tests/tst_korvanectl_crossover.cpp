#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"
#include "crossover/launchscript.h"
#include "support/bottletree.h"
#include "support/korvanectl.h"

#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
// A home with one bottle that holds Steam, which korvanectl selects by itself.
struct BottleHome {
    TestHome home;
    QString bottle = BottleTree::makeBottle(home.paths.home + u"/.cxoffice"_s, u"Steam"_s, true);
    QString conf = bottle + u"/cxbottle.conf"_s;
    // What korvanectl's model uses, with XDG_DATA_HOME set by the runner.
    QString data = home.root() + u"/data/Korvane Mac Launcher"_s;
    QString marker = CompatibilityProfile::restartMarker(data, bottle);

    CliResult run(const QStringList &arguments) const
    {
        QProcessEnvironment extra;
        extra.insert(u"CX_ROOT"_s, home.root() + u"/cx"_s);
        return runKorvanectl(home, arguments, {}, extra);
    }
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}
} // namespace

class TestKorvanectlCrossOver : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void checkApplyAndRestore()
    {
        BottleHome sandbox;
        const QByteArray original = "[Bottle]\r\n\"Version\" = \"23\"\r\n[EnvironmentVariables]\r\n\"WINEMSYNC\" = \"0\" ; off\r\n";
        BottleTree::touch(sandbox.conf, false, original);

        CliResult result = sandbox.run({u"bottle-config"_s, u"--check"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.out.contains(u"- \"WINEMSYNC\" = \"0\" ; off\n"_s), qPrintable(result.out));
        QVERIFY(result.out.contains(u"+ \"WINEMSYNC\" = \"1\" ; off\n"_s));
        QVERIFY(result.out.contains(u"+ \"CX_GRAPHICS_BACKEND\" = \"d3dmetal\"\n"_s));
        QCOMPARE(contents(sandbox.conf), original);
        QVERIFY(!QFileInfo::exists(sandbox.marker));

        result = sandbox.run({u"bottle-config"_s});
        QCOMPARE(result.exitCode, 0);
        const QByteArray edited = contents(sandbox.conf);
        QVERIFY(edited.contains("\"WINEMSYNC\" = \"1\" ; off\r\n"));
        QCOMPARE(contents(sandbox.marker), QByteArray("pending\n"));
        QCOMPARE(sandbox.run({u"bottle-config"_s, u"--check"_s}).exitCode, 0);

        // A restore is a change like any other: the next launch restarts the bottle.
        QVERIFY(QFile::remove(sandbox.marker));
        result = sandbox.run({u"bottle-config"_s, u"--restore"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(contents(sandbox.conf), original);
        QCOMPARE(contents(sandbox.marker), QByteArray("pending\n"));
        QCOMPARE(contents(BottleConfiguration::keptOriginalPath(sandbox.data, sandbox.bottle)), original);

        result = sandbox.run({u"bottle-config"_s, u"--restore"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains(u"already is the original"_s));
    }

    void failures_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("nothing to restore")
            << QStringList{u"bottle-config"_s, u"--restore"_s} << QByteArray("[Bottle]\n") << 1 << u"nothing to restore"_s;
        QTest::newRow("ambiguous section") << QStringList{u"bottle-config"_s}
                                           << QByteArray("[EnvironmentVariables]\n[EnvironmentVariables]\n") << 1
                                           << u"more than one [EnvironmentVariables] section"_s;
        QTest::newRow("check of a malformed setting")
            << QStringList{u"bottle-config"_s, u"--check"_s} << QByteArray("[EnvironmentVariables]\n\"WINEMSYNC\"=1\n") << 1
            << u"was left alone"_s;
        QTest::newRow("not UTF-8") << QStringList{u"bottle-config"_s} << QByteArray("\"a\" = \"\xff\"\n") << 1
                                   << u"not valid UTF-8"_s;
        QTest::newRow("check and restore together")
            << QStringList{u"bottle-config"_s, u"--check"_s, u"--restore"_s} << QByteArray("x") << 2 << u"usage"_s;
    }

    void failures()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, file);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        BottleHome sandbox;
        BottleTree::touch(sandbox.conf, false, file);
        const CliResult result = sandbox.run(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message), qPrintable(result.err));
        QCOMPARE(contents(sandbox.conf), file);
        QVERIFY(!QFileInfo::exists(sandbox.marker));
    }

    void withoutBottle()
    {
        TestHome home;
        const CliResult result = runKorvanectl(home, {u"bottle-config"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.err.contains(u"no bottle is selected"_s));
    }

    void launchScript()
    {
        BottleHome sandbox;
        CliResult result = sandbox.run({u"launch-script"_s, u"--mode"_s, u"recovery"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.startsWith(u"#!/bin/zsh\n"_s));
        QVERIFY(result.out.endsWith(u"\n    'ets2kvn'\nexit $?"_s));
        QVERIFY(result.out.contains(u"bottle="_s + LaunchScript::quote(sandbox.bottle) + u'\n'));
        QVERIFY(result.out.contains(u"/bin/rm -f -- "_s + LaunchScript::quote(sandbox.marker) + u" || exit 1\n"_s));
        QVERIFY(result.out.contains(u"status_file='"_s + sandbox.data + u"/Launches/launch-"_s));
        QVERIFY(result.out.contains(u"  WINESERVER="_s + LaunchScript::quote(sandbox.home.root() + u"/cx/bin/wineserver"_s)));

        result = sandbox.run({u"launch-script"_s, u"--mode"_s, u"reuseSteam"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(!result.out.contains(u"/bin/rm"_s));

        for (const QStringList &wrong : {QStringList{u"launch-script"_s}, QStringList{u"launch-script"_s, u"--mode"_s},
                                         QStringList{u"launch-script"_s, u"--mode"_s, u"cold"_s}})
            QCOMPARE(sandbox.run(wrong).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlCrossOver)
#include "tst_korvanectl_crossover.moc"
