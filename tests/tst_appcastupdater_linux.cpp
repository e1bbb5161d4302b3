// The Linux updater against a local HTTPS server that serves a feed and signed archives: what a
// check finds on each channel, and an installation that replaces the tree or refuses a bad
// archive and leaves the tree as it was.
#include "updates/appcastupdater.h"
#include "updates/ed25519.h"
#include "updates/platformupdater.h"
#include "updates/treemanifest.h"
#include "support/httpsserver.h"
#include "support/testfiles.h"
#include "support/testhome.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Records what the updater told the launcher, in order.
class RecordingDelegate final : public UpdaterDelegate {
public:
    QSet<QString> channels;
    std::optional<QString> refusal;
    QStringList events;

    QSet<QString> allowedChannels() const override { return channels; }
    std::optional<QString> mayPerformCheck() override { return refusal; }
    void didFindValidUpdate(const QString &version) override { events.append(u"found "_s + version); }
    void willDownloadUpdate() override { events.append(u"download"_s); }
    void didDownloadUpdate() override { events.append(u"downloaded"_s); }
    void willExtractUpdate() override { events.append(u"extract"_s); }
    void willInstallUpdate() override { events.append(u"install"_s); }
    void userDidCancelDownload() override { events.append(u"cancelled"_s); }
    void didAbortWithError(const QString &) override { events.append(u"abort"_s); }
    void didFinishUpdateCycle(const std::optional<QString> &error) override
    {
        events.append(error ? u"failed"_s : u"complete"_s);
    }
    bool shouldRelaunchApplication() override { return true; }
};

QByteArray item(const QString &version, const QString &channel, const QUrl &url, qint64 length,
                const QByteArray &signature)
{
    const QString channelElement = channel.isEmpty() ? QString() : u"<sparkle:channel>%1</sparkle:channel>"_s.arg(channel);
    return u"<item><title>Version %1</title><sparkle:version>%1</sparkle:version>"
           "<sparkle:shortVersionString>%1.0</sparkle:shortVersionString>%2"
           "<enclosure url=\"%3\" length=\"%4\" type=\"application/octet-stream\" sparkle:os=\"linux\" "
           "sparkle:edSignature=\"%5\"/></item>"_s
        .arg(version, channelElement, url.toString(), QString::number(length), QString::fromLatin1(signature.toBase64()))
        .toUtf8();
}

QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><rss version=\"2.0\" xmlns:sparkle=\""
        + Appcast::sparkleNamespace.toUtf8() + "\"><channel><title>Korvane</title>" + items + "</channel></rss>";
}

} // namespace

class TestAppcastUpdater : public QObject {
    Q_OBJECT

    // An installed tree of the given version, signed with `seed`.
    static void makeTree(const QString &root, const QByteArray &version, const QByteArray &seed)
    {
        QDir(root).removeRecursively();
        TestFiles::write(root + u"/bin/korvane-launcher"_s, "#!/bin/sh\necho " + version + "\n",
                         QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        TestFiles::write(root + u"/share/korvane-launcher/VERSION"_s, version);
        TreeManifest::sign(root, seed);
    }

private Q_SLOTS:
    void update_data()
    {
        QTest::addColumn<QString>("channel");   // the channel the release is on
        QTest::addColumn<bool>("betaAllowed");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<bool>("installs");
        QTest::newRow("stable release") << QString() << false << QString() << true;
        QTest::newRow("beta release on beta") << u"beta"_s << true << QString() << true;
        QTest::newRow("beta release on stable") << u"beta"_s << false << QString() << false;
        QTest::newRow("one byte changed") << QString() << false << u"tampered"_s << false;
        QTest::newRow("signed by another key") << QString() << false << u"other key"_s << false;
        QTest::newRow("length not as announced") << QString() << false << u"length"_s << false;
    }
    void update()
    {
        QFETCH(QString, channel);
        QFETCH(bool, betaAllowed);
        QFETCH(QString, fault);
        QFETCH(bool, installs);

        TestHome home;
        const QByteArray seed = Ed25519::newSeed();
        const QString installed = home.root() + u"/opt/korvane-launcher"_s;
        makeTree(installed, "1", seed);
        const QString release = home.root() + u"/release/korvane-launcher"_s;
        makeTree(release, "2", seed);
        const QString archivePath = home.root() + u"/release.tar.gz"_s;
        QCOMPARE(QProcess::execute(u"tar"_s, {u"-czf"_s, archivePath, u"-C"_s, home.root() + u"/release"_s,
                                               u"korvane-launcher"_s}),
                 0);
        QByteArray archive = TestFiles::read(archivePath);
        QByteArray signature = Ed25519::sign(fault == u"other key"_s ? Ed25519::newSeed() : seed, archive);
        qint64 length = archive.size() + (fault == u"length"_s ? 1 : 0);
        if (fault == u"tampered"_s)
            archive[archive.size() / 2] = char(archive.at(archive.size() / 2) ^ 0x01);

        LocalHttpsServer server;
        server.respond(u"/update.tar.gz"_s, {200, {}, archive});
        server.respond(u"/appcast.xml"_s,
                       ScriptedResponse{200, {}, feed(item(u"2"_s, channel, server.url(u"/update.tar.gz"_s), length, signature))});
        RecordingDelegate delegate;
        if (betaAllowed)
            delegate.channels = {u"beta"_s};
        AppcastUpdater::Settings settings{server.url(u"/appcast.xml"_s), Ed25519::publicKey(seed), installed, u"1"_s,
                                          {{5s, 20s}, nullptr, server.configuration().tls}};
        AppcastUpdater updater(delegate, settings, nullptr);
        QVERIFY(!updater.canCheckForUpdates()); // not before it is started
        updater.start();
        QSignalSpy checked(&updater, &AppcastUpdater::checkFinished);
        updater.checkForUpdates();
        QVERIFY(checked.wait(10000));
        const bool found = channel.isEmpty() || betaAllowed;
        QCOMPARE(updater.foundUpdate().has_value(), found);
        if (!found) {
            QCOMPARE(delegate.events, QStringList{u"complete"_s});
            return;
        }
        QCOMPARE(delegate.events, QStringList{u"found 2.0"_s});

        const QByteArray manifestBefore = TestFiles::read(installed + u'/' + TreeManifest::fileName);
        QSignalSpy finished(&updater, &AppcastUpdater::installFinished);
        updater.installFoundUpdate();
        QVERIFY(finished.wait(20000));
        const auto error = finished.first().at(0).value<std::optional<QString>>();
        QCOMPARE(!error.has_value(), installs);
        QVERIFY(TreeManifest::verify(installed, Ed25519::publicKey(seed)).isOk());
        QCOMPARE(TestFiles::read(installed + u"/share/korvane-launcher/VERSION"_s), installs ? "2" : "1");
        if (installs) {
            QCOMPARE(delegate.events, (QStringList{u"found 2.0"_s, u"download"_s, u"downloaded"_s, u"extract"_s,
                                                   u"install"_s, u"complete"_s}));
            QVERIFY(finished.first().at(1).toBool()); // the delegate lets it restart
            QVERIFY(!updater.foundUpdate());
        } else {
            QCOMPARE(delegate.events.last(), u"failed"_s);
            QCOMPARE(TestFiles::read(installed + u'/' + TreeManifest::fileName), manifestBefore);
        }
        // Nothing is left beside the tree: no staging folder, no downloaded archive.
        QCOMPARE(QDir(home.root() + u"/opt"_s).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{u"korvane-launcher"_s});
    }

    // A Debian package under /usr is the package manager's to update, however it is reached.
    void systemInstall_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("managed");
        QTest::newRow("/usr") << u"/usr"_s << true;
        QTest::newRow("through ..") << u"/usr/bin/.."_s << true;
        QTest::newRow("a name that only begins so") << QDir::tempPath() + u"/usrlocal"_s << false;
        QTest::newRow("an unpacked tree") << QDir::tempPath() << false;
    }
    void systemInstall()
    {
        QFETCH(QString, path);
        QFETCH(bool, managed);
        QCOMPARE(PlatformUpdater::managedBySystem(path), managed);
    }

    void refusedCheckAsksNothing()
    {
        LocalHttpsServer server;
        RecordingDelegate delegate;
        delegate.refusal = u"A game is running"_s;
        AppcastUpdater updater(delegate, {server.url(u"/appcast.xml"_s), {}, QDir::tempPath(), u"1"_s,
                                          {{5s, 20s}, nullptr, server.configuration().tls}},
                               nullptr);
        updater.start();
        QSignalSpy checked(&updater, &AppcastUpdater::checkFinished);
        updater.checkForUpdates();
        QCOMPARE(checked.size(), 1);
        QCOMPARE(checked.first().at(0).value<std::optional<QString>>(), delegate.refusal);
        QVERIFY(delegate.events.isEmpty());
        QVERIFY(!updater.sessionInProgress());
        QTest::qWait(100);
        QVERIFY(server.requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAppcastUpdater)
#include "tst_appcastupdater_linux.moc"
