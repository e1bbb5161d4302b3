// korvanectl update, run from an installed tree as a user would: a check against a local feed
// keeps a verified rollback copy, and an install replaces the tree with the signed release.
#include "updates/appcast.h"
#include "updates/ed25519.h"
#include "updates/treemanifest.h"
#include "support/httpsserver.h"
#include "support/korvanectl.h"
#include "support/testfiles.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestKorvanectlUpdate : public QObject {
    Q_OBJECT

    struct Installation {
        TestHome home;
        QByteArray seed = Ed25519::newSeed();
        QString tree = home.root() + u"/opt/korvane-launcher"_s;
        LocalHttpsServer server;

        // The installed tree holds a copy of the built korvanectl, so that it updates its own tree.
        Installation()
        {
            QDir().mkpath(tree + u"/bin"_s);
            QFile::copy(korvanectlProgram(), tree + u"/bin/korvanectl"_s);
            TestFiles::write(tree + u"/bin/korvane-launcher"_s, "#!/bin/sh\necho 1\n",
                             QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            TestFiles::write(tree + u"/share/korvane-launcher/VERSION"_s, "1");
            TreeManifest::sign(tree, seed);

            const QString release = home.root() + u"/release/korvane-launcher"_s;
            TestFiles::write(release + u"/bin/korvane-launcher"_s, "#!/bin/sh\necho 2\n",
                             QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            TestFiles::write(release + u"/share/korvane-launcher/VERSION"_s, "2");
            TreeManifest::sign(release, seed);
            const QString archivePath = home.root() + u"/release.tar.gz"_s;
            QProcess::execute(u"tar"_s, {u"-czf"_s, archivePath, u"-C"_s, home.root() + u"/release"_s,
                                         u"korvane-launcher"_s});
            const QByteArray archive = TestFiles::read(archivePath);
            server.respond(u"/release.tar.gz"_s, {200, {}, archive});
            const QString item = u"<item><sparkle:version>2</sparkle:version>"
                                 "<sparkle:shortVersionString>2.0</sparkle:shortVersionString>"
                                 "<enclosure url=\"%1\" length=\"%2\" type=\"application/octet-stream\" "
                                 "sparkle:os=\"linux\" sparkle:edSignature=\"%3\"/></item>"_s
                                     .arg(server.url(u"/release.tar.gz"_s).toString(), QString::number(archive.size()),
                                          QString::fromLatin1(Ed25519::sign(seed, archive).toBase64()));
            server.respond(u"/appcast.xml"_s,
                           {200, {}, "<rss version=\"2.0\" xmlns:sparkle=\"" + Appcast::sparkleNamespace.toUtf8()
                                         + "\"><channel>" + item.toUtf8() + "</channel></rss>"});
        }

        // Runs the tree's korvanectl while this thread serves the feed.
        CliResult run(const QStringList &arguments)
        {
            QProcessEnvironment environment;
            environment.insert(u"KORVANE_FEED_URL"_s, server.url(u"/appcast.xml"_s).toString());
            environment.insert(u"KORVANE_PUBLIC_ED_KEY"_s, QString::fromLatin1(Ed25519::publicKey(seed).toBase64()));
            environment.insert(u"KORVANE_CA_FILE"_s, LocalHttpsServer::certificatePath());
            QProcess process;
            QSignalSpy finished(&process, &QProcess::finished);
            startKorvanectl(process, home, arguments, environment, tree + u"/bin/korvanectl"_s);
            CliResult result;
            if (!finished.wait(60000))
                return result;
            result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
            result.out = QString::fromUtf8(process.readAllStandardOutput());
            result.err = QString::fromUtf8(process.readAllStandardError());
            return result;
        }

        QByteArray installedVersion() const
        {
            return TestFiles::read(tree + u"/share/korvane-launcher/VERSION"_s);
        }
    };

private Q_SLOTS:
    void checkKeepsAVerifiedCopyAndInstallReplacesTheTree()
    {
        Installation installation;
        const CliResult check = installation.run({u"update"_s, u"check"_s, u"--json"_s});
        QCOMPARE(check.exitCode, 0);
        const QJsonObject found = QJsonDocument::fromJson(check.out.toUtf8()).object();
        QCOMPARE(found.value(u"result"_s).toString(), u"found"_s);
        QCOMPARE(found.value(u"version"_s).toString(), u"2.0"_s);
        // The copy of the running tree, whole and still matching the signed manifest.
        const QString backup = found.value(u"backup"_s).toString();
        QVERIFY(TreeManifest::verify(backup, Ed25519::publicKey(installation.seed)).isOk());
        QVERIFY(QFile::exists(QFileInfo(backup).absolutePath() + u"/RESTORE.txt"_s));

        const CliResult asked = installation.run({u"update"_s, u"install"_s});
        QCOMPARE(asked.exitCode, 1);
        QVERIFY(asked.out.contains(u"--yes"_s));
        QCOMPARE(installation.installedVersion(), QByteArray("1"));

        const CliResult installed = installation.run({u"update"_s, u"install"_s, u"--yes"_s});
        QVERIFY2(installed.exitCode == 0, qPrintable(installed.err));
        QCOMPARE(installation.installedVersion(), QByteArray("2"));
        QVERIFY(TreeManifest::verify(installation.tree, Ed25519::publicKey(installation.seed)).isOk());
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("unsignedTree");
        QTest::addColumn<QString>("said");
        QTest::newRow("unsigned tree: no copy, no check")
            << QStringList{u"update"_s, u"check"_s} << true << u"isn't an installed launcher"_s;
        QTest::newRow("unsigned tree: no backup")
            << QStringList{u"update"_s, u"backup"_s} << true << u"isn't an installed launcher"_s;
        QTest::newRow("beta without the confirmation")
            << QStringList{u"update"_s, u"channel"_s, u"beta"_s} << false << u"--yes"_s;
    }
    void refusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, unsignedTree);
        QFETCH(QString, said);
        Installation installation;
        if (unsignedTree)
            QFile::remove(installation.tree + u'/' + TreeManifest::fileName);
        const CliResult result = installation.run(arguments);
        QCOMPARE(result.exitCode, 1);
        const QString output = result.out + result.err;
        QVERIFY2(output.contains(said), qPrintable(output));
        QCOMPARE(installation.installedVersion(), QByteArray("1"));
        QVERIFY(!QDirIterator(installation.home.root(), {u"Backups"_s}, QDir::Dirs, QDirIterator::Subdirectories)
                     .hasNext());
        const CliResult status = installation.run({u"update"_s, u"status"_s, u"--json"_s});
        QCOMPARE(QJsonDocument::fromJson(status.out.toUtf8()).object().value(u"channel"_s).toString(), u"stable"_s);
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlUpdate)
#include "tst_korvanectl_update_linux.moc"
