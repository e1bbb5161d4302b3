#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

using SourceFiles = QMap<QString, QByteArray>;

// The include-order checker over small trees of its own: it must name every include against the
// order (a circle included) and nothing else. The real tree is checked by the include_order test.
class TestIncludeOrder : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void check_data()
    {
        QTest::addColumn<SourceFiles>("files");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("errors");

        const QString summary1 = u"include order: 1 include(s) from a folder not below their own"_s;

        QTest::newRow("own folder and every layer below")
            << SourceFiles{{u"core/model.cpp"_s, "#include \"core/model.h\"\n#include \"crossover/probe.h\"\n"
                                                 "#include \"sessions/play.h\"\n#include \"games/kind.h\"\n"
                                                 "#include \"platform/clock.h\"\n"},
                           {u"sessions/play.h"_s, "#include \"preferences/l10n.h\"\n#include \"games/kind.h\"\n"},
                           {u"cli/main.cpp"_s, "#include \"updates/app.h\"\n#include \"core/model.h\"\n"},
                           {u"KorvaneMacLauncher/main.cpp"_s, "#include \"KorvaneMacLauncher/window.h\"\n"}}
            << 0 << QStringList();
        QTest::newRow("the one allowed sibling edge: preferences reads game profiles")
            << SourceFiles{{u"preferences/transfer.h"_s, "#include \"games/profile.h\"\n"}} << 0 << QStringList();
        QTest::newRow("Qt headers, same-folder names and commented-out includes")
            << SourceFiles{{u"games/kind.cpp"_s, "#include <QtCore/QString>\n#include \"kind.h\"\n"
                                                 "// #include \"core/model.h\"\n#include \"kind.moc\"\n"}}
            << 0 << QStringList();
        QTest::newRow("tests and benchmarks include anything")
            << SourceFiles{{u"tests/tst_model.cpp"_s, "#include \"core/model.h\"\n#include \"support/rig.h\"\n"},
                           {u"bench/bench_tail.cpp"_s, "#include \"cli/context.h\"\n"},
                           {u"platform/clock.h"_s, "#pragma once\n"}}
            << 0 << QStringList();

        QTest::newRow("a circle between games and core")
            << SourceFiles{{u"core/model.h"_s, "#include \"games/kind.h\"\n"},
                           {u"games/kind.h"_s, "#pragma once\n\n#include \"core/model.h\"\n"}}
            << 1
            << QStringList{u"games/kind.h:3: includes \"core/model.h\": core/ (layer 4) is above games/ (layer 1)"_s,
                           summary1};
        QTest::newRow("a circle through the allowed sibling edge")
            << SourceFiles{{u"preferences/transfer.h"_s, "#include \"games/profile.h\"\n"},
                           {u"games/profile.h"_s, "#include \"preferences/transfer.h\"\n"}}
            << 1
            << QStringList{u"games/profile.h:1: includes \"preferences/transfer.h\": preferences/ shares layer 1 with "
                           "games/, and games/ may not use it"_s,
                           summary1};
        QTest::newRow("servers and sessions stay apart")
            << SourceFiles{{u"servers/list.cpp"_s, "#include \"sessions/play.h\"\n"},
                           {u"sessions/play.cpp"_s, "#include \"servers/list.h\"\n"}}
            << 1
            << QStringList{u"servers/list.cpp:1: includes \"sessions/play.h\": sessions/ shares layer 2 with servers/, "
                           "and servers/ may not use it"_s,
                           u"sessions/play.cpp:1: includes \"servers/list.h\": servers/ shares layer 2 with sessions/, "
                           "and sessions/ may not use it"_s,
                           u"include order: 2 include(s) from a folder not below their own"_s};
        QTest::newRow("the two front ends stay apart")
            << SourceFiles{{u"cli/main.cpp"_s, "#include \"KorvaneMacLauncher/mainwindow.h\"\n"}} << 1
            << QStringList{u"cli/main.cpp:1: includes \"KorvaneMacLauncher/mainwindow.h\": KorvaneMacLauncher/ shares "
                           "layer 6 with cli/, and cli/ may not use it"_s,
                           summary1};
        QTest::newRow("core reaches up to self-update")
            << SourceFiles{{u"core/model.cpp"_s, "  #  include \"updates/app.h\"\n"}} << 1
            << QStringList{u"core/model.cpp:1: includes \"updates/app.h\": updates/ (layer 5) is above core/ (layer 4)"_s,
                           summary1};
        QTest::newRow("the library includes test support")
            << SourceFiles{{u"sessions/play.cpp"_s, "#include \"tests/support/rig.h\"\n"}} << 1
            << QStringList{u"sessions/play.cpp:1: includes \"tests/support/rig.h\": tests/ (layer 7) is above "
                           "sessions/ (layer 2)"_s,
                           summary1};
        QTest::newRow("a relative include that climbs out of its folder")
            << SourceFiles{{u"platform/paths.cpp"_s, "#include \"../core/model.h\"\n"}} << 1
            << QStringList{u"platform/paths.cpp:1: includes \"../core/model.h\": core/ (layer 4) is above platform/ "
                           "(layer 0)"_s,
                           summary1};
        QTest::newRow("an Objective-C++ import in a subfolder")
            << SourceFiles{{u"platform/mac/microphone_mac.mm"_s, "#import <Foundation/Foundation.h>\n"
                                                                 "#import \"crossover/probe.h\"\n"}}
            << 1
            << QStringList{u"platform/mac/microphone_mac.mm:2: includes \"crossover/probe.h\": crossover/ (layer 3) "
                           "is above platform/ (layer 0)"_s,
                           summary1};
    }

    void check()
    {
        QFETCH(SourceFiles, files);
        QFETCH(int, exitCode);
        QFETCH(QStringList, errors);

        QTemporaryDir root;
        QVERIFY(root.isValid());
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            const QString path = root.filePath(file.key());
            QVERIFY(QDir().mkpath(QFileInfo(path).path()));
            QFile out(path);
            QVERIFY(out.open(QIODevice::WriteOnly));
            QCOMPARE(out.write(file.value()), file.value().size());
        }

        QProcess checker;
        checker.start(QStringLiteral(KVN_PYTHON), {QStringLiteral(KVN_SOURCE_DIR "/tests/include_order.py"), root.path()});
        QVERIFY2(checker.waitForFinished(60000), qPrintable(checker.errorString()));
        QCOMPARE(checker.exitStatus(), QProcess::NormalExit);
        const QString stderrText = QString::fromUtf8(checker.readAllStandardError());
        QCOMPARE(checker.exitCode(), exitCode);
        QCOMPARE(stderrText.split(u'\n', Qt::SkipEmptyParts), errors);
        if (exitCode == 0)
            QVERIFY(QString::fromUtf8(checker.readAllStandardOutput()).endsWith(u", every include from below\n"_s));
    }

    // A checker pointed at the wrong folder must not pass over nothing.
    void refusesATreeWithoutLayeredSources_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QString>("reason");
        QTest::newRow("no such folder") << false << u"not a folder"_s;
        QTest::newRow("only tests and build output") << true << u"no source files in the layered folders"_s;
    }

    void refusesATreeWithoutLayeredSources()
    {
        QFETCH(bool, exists);
        QFETCH(QString, reason);
        QTemporaryDir temporary;
        QVERIFY(temporary.isValid());
        QString root = temporary.filePath(u"tree"_s);
        if (exists) {
            QVERIFY(QDir().mkpath(root + u"/tests"_s) && QDir().mkpath(root + u"/build/dev"_s));
            QFile source(root + u"/tests/tst_x.cpp"_s);
            QVERIFY(source.open(QIODevice::WriteOnly));
            source.write("#include \"core/model.h\"\n");
        }
        QProcess checker;
        checker.start(QStringLiteral(KVN_PYTHON), {QStringLiteral(KVN_SOURCE_DIR "/tests/include_order.py"), root});
        QVERIFY(checker.waitForFinished(60000));
        QCOMPARE(checker.exitCode(), 2);
        QCOMPARE(QString::fromUtf8(checker.readAllStandardError()), u"include order: "_s + root + u": "_s + reason + u'\n');
    }
};

QTEST_GUILESS_MAIN(TestIncludeOrder)
#include "tst_includeorder.moc"
