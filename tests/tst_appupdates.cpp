// The update controller's decisions: whether this build can update at all, the channels, when a
// check may run (the launcher's state, a game in the bottle, the rollback copy once per run),
// what each step of a cycle shows, and when the launcher may restart.
#include "platform/updaterengine_fake.h"
#include "support/crossoversandbox.h"
#include "support/launcherrig.h"
#include "updates/appupdates.h"
#include "updates/updateconfiguration.h"

#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QString gameWindowsPath
    = u"C:\\Program Files (x86)\\Steam\\steamapps\\common\\Euro Truck Simulator 2\\bin\\win_x64\\eurotrucks2.exe"_s;
const QString steamWindowsPath = u"C:\\Program Files (x86)\\Steam\\steam.exe"_s;

QString keyOfSize(int bytes)
{
    return QString::fromLatin1(QByteArray(bytes, '\x5a').toBase64());
}

QVariantMap info(const QString &feed = u"https://updates.korvane.example/appcast.xml"_s,
                 const QString &key = keyOfSize(32))
{
    return {{u"CFBundleIdentifier"_s, u"hu.korvane.maclauncher"_s},
            {u"CFBundleShortVersionString"_s, u"1.0.0"_s},
            {u"CFBundleVersion"_s, u"1"_s},
            {u"SUFeedURL"_s, feed},
            {u"SUPublicEDKey"_s, key}};
}

// A launcher over the simulated CrossOver with one bottle holding Steam and the game, an
// installed application to back up, and the controller over a fake updater.
struct Updates {
    LauncherRig rig;
    CrossOverSandbox sandbox{rig.home};
    QString bottle = sandbox.addBottle();
    QString application = rig.home.root() + u"/Applications/Korvane Mac Launcher.app"_s;
    bool verifies = true;
    bool updaterAutomatic = false;
    int enginesMade = 0;
    FakeUpdaterEngine *engine = nullptr;
    LauncherModel &model = rig.start();
    std::unique_ptr<AppUpdates> updates;

    explicit Updates(const QVariantMap &dictionary = info(), const QProcessEnvironment &environment = {})
    {
        QDir().mkpath(application + u"/Contents/MacOS"_s);
        QFile program(application + u"/Contents/MacOS/launcher"_s);
        program.open(QIODevice::WriteOnly);
        program.write("program");
        program.close();

        AppUpdatesContext context{*rig.home.defaults, rig.clock, dictionary, environment, rig.home.paths};
        context.engines = [this](UpdaterDelegate &delegate, const QVariantMap &) {
            ++enginesMade;
            auto made = std::make_unique<FakeUpdaterEngine>(delegate);
            made->presetAutomatic(updaterAutomatic);
            engine = made.get();
            return made;
        };
        context.application = application;
        context.applicationCopy.isApplication = [](const QString &path) { return path.endsWith(u".app"); };
        context.applicationCopy.copy = &ApplicationCopy::copyTree;
        context.applicationCopy.verify = [this](const QString &) { return verifies; };
        context.desktop = &rig.desktop;
        updates = std::make_unique<AppUpdates>(context);
    }

    FakeUpdaterEngine &attached()
    {
        updates->attach(model);
        engine->setCanCheck(true);
        return *engine;
    }
    // Attaches (except for "detached") and puts the launcher or the updater into `state`:
    // "running", "setup", "compatibility" (a version prompt) or "busy" (an update cycle).
    void enter(const QString &state)
    {
        if (state == u"detached")
            return;
        attached();
        if (state == u"running")
            model.setIsRunning(true);
        if (state == u"setup")
            model.setSetupActive(true);
        if (state == u"compatibility")
            model.setPendingCompatibility(CompatibilityResult{});
        if (state == u"busy")
            engine->setSession(true);
    }
    QStringList backups() const
    {
        return QDir(updates->backupDirectory()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    }
};

} // namespace

class TestAppUpdates : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void configuration_data()
    {
        QTest::addColumn<QVariantMap>("dictionary");
        QTest::addColumn<bool>("ready");
        const auto with = [](const QString &key, const QVariant &value) {
            QVariantMap dictionary = info();
            dictionary.insert(key, value);
            return dictionary;
        };
        QTest::newRow("https feed, 32-byte key") << info() << true;
        QTest::newRow("empty dictionary") << QVariantMap() << false;
        QTest::newRow("http feed") << info(u"http://updates.korvane.example/appcast.xml"_s) << false;
        QTest::newRow("user name in the feed") << info(u"https://me@updates.korvane.example/appcast.xml"_s) << false;
        QTest::newRow("password in the feed") << info(u"https://:secret@updates.korvane.example/a.xml"_s) << false;
        QTest::newRow("feed without host") << info(u"https:///appcast.xml"_s) << false;
        QTest::newRow("HTTPS in capitals parses as https") << info(u"HTTPS://updates.korvane.example/a.xml"_s) << true;
        QTest::newRow("feed missing") << with(u"SUFeedURL"_s, QVariant()) << false;
        QTest::newRow("feed not a string") << with(u"SUFeedURL"_s, QVariant(true)) << false;
        QTest::newRow("key of 31 bytes") << info(info().value(u"SUFeedURL"_s).toString(), keyOfSize(31)) << false;
        QTest::newRow("key of 33 bytes") << info(info().value(u"SUFeedURL"_s).toString(), keyOfSize(33)) << false;
        QTest::newRow("key with a line break") << info(info().value(u"SUFeedURL"_s).toString(), keyOfSize(32) + u'\n')
                                               << false;
        QTest::newRow("key without padding") << info(info().value(u"SUFeedURL"_s).toString(), keyOfSize(32).chopped(1))
                                             << false;
        QTest::newRow("key in the URL-safe alphabet")
            << info(info().value(u"SUFeedURL"_s).toString(),
                    QString::fromLatin1(QByteArray(32, '\xff').toBase64(QByteArray::Base64UrlEncoding)))
            << false;
        QTest::newRow("key missing") << with(u"SUPublicEDKey"_s, QVariant()) << false;
    }
    void configuration()
    {
        QFETCH(QVariantMap, dictionary);
        QFETCH(bool, ready);
        QCOMPARE(UpdateConfiguration::isReady(dictionary), ready);

        Updates updates(dictionary);
        QCOMPARE(updates.updates->configured(), ready);
        updates.updates->attach(updates.model);
        // Without a usable feed and key no updater exists, so nothing can ever be checked.
        QCOMPARE(updates.enginesMade, ready ? 1 : 0);
        QVERIFY(!updates.updates->canCheck());
    }

    void environmentReplacesFeedAndKey_data()
    {
        QTest::addColumn<QVariantMap>("dictionary");
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<bool>("ready");
        QTest::newRow("feed and key given to an unconfigured build")
            << info(QString(), QString())
            << QStringList{u"KORVANE_FEED_URL=https://127.0.0.1:8443/appcast.xml"_s, u"KORVANE_PUBLIC_ED_KEY="_s + keyOfSize(32)}
            << true;
        QTest::newRow("an http feed replaces a good one")
            << info() << QStringList{u"KORVANE_FEED_URL=http://127.0.0.1/appcast.xml"_s} << false;
        QTest::newRow("a short key replaces a good one")
            << info() << QStringList{u"KORVANE_PUBLIC_ED_KEY="_s + keyOfSize(16)} << false;
        QTest::newRow("nothing set") << info() << QStringList() << true;
    }
    void environmentReplacesFeedAndKey()
    {
        QFETCH(QVariantMap, dictionary);
        QFETCH(QStringList, environment);
        QFETCH(bool, ready);
        QProcessEnvironment variables;
        for (const QString &assignment : environment)
            variables.insert(assignment.section(u'=', 0, 0), assignment.section(u'=', 1));
        Updates updates(dictionary, variables);
        QCOMPARE(updates.updates->configured(), ready);
    }

    void releaseLine_data()
    {
        QTest::addColumn<QVariant>("label");
        QTest::addColumn<QString>("shown");
        QTest::newRow("named") << QVariant(u"beta"_s) << u"beta"_s;
        QTest::newRow("missing") << QVariant() << u"development"_s;
        QTest::newRow("empty") << QVariant(QString()) << u"development"_s;
    }
    void releaseLine()
    {
        QFETCH(QVariant, label);
        QFETCH(QString, shown);
        QVariantMap dictionary = info();
        if (label.isValid())
            dictionary.insert(u"KVNReleaseChannel"_s, label);
        QCOMPARE(UpdateConfiguration::releaseChannel(dictionary), shown);
    }

    void storedChannel_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<UpdateChannel>("channel");
        QTest::newRow("beta") << QVariant(u"beta"_s) << UpdateChannel(UpdateChannel::beta);
        QTest::newRow("Beta") << QVariant(u"Beta"_s) << UpdateChannel(UpdateChannel::stable);
        QTest::newRow("beta with a blank") << QVariant(u"beta "_s) << UpdateChannel(UpdateChannel::stable);
        QTest::newRow("stable") << QVariant(u"stable"_s) << UpdateChannel(UpdateChannel::stable);
        QTest::newRow("missing") << QVariant() << UpdateChannel(UpdateChannel::stable);
        QTest::newRow("a bool") << QVariant(true) << UpdateChannel(UpdateChannel::stable);
    }
    void storedChannel()
    {
        QFETCH(QVariant, stored);
        QFETCH(UpdateChannel, channel);
        Updates updates;
        if (stored.isValid())
            updates.rig.home.defaults->setObject(u"updateChannel"_s, stored);
        QCOMPARE(UpdateChannel::saved(*updates.rig.home.defaults), channel);
        const AppUpdates fresh(AppUpdatesContext{*updates.rig.home.defaults, updates.rig.clock, info()});
        QCOMPARE(fresh.channel(), channel);
        QCOMPARE(fresh.allowedChannels(), channel == UpdateChannel::beta ? QSet<QString>{u"beta"_s} : QSet<QString>{});
    }

    void checkBeforeAttachDoesNothing()
    {
        Updates updates;
        updates.updates->check();
        QCOMPARE(updates.updates->phase(), LocalizedMessage("center.idle"));
        QCOMPARE(updates.enginesMade, 0);
    }

    void attachStartsTheUpdaterOnce()
    {
        Updates updates;
        LauncherRig otherRig;
        LauncherModel &other = otherRig.start();
        FakeUpdaterEngine &engine = updates.attached();
        QVERIFY(engine.started);
        updates.updates->attach(other);
        QCOMPARE(updates.enginesMade, 1);
        // The session flag still goes to the first model only.
        engine.setSession(true);
        QVERIFY(updates.updates->busy());
        QVERIFY(updates.model.updateSessionActive());
        QVERIFY(!other.updateSessionActive());
        engine.setSession(false);
        QVERIFY(!updates.model.updateSessionActive());
    }

    void checkWaitsForTheCycleInProgress()
    {
        Updates updates;
        FakeUpdaterEngine &engine = updates.attached();
        engine.setSession(true);
        updates.updates->check();
        QCOMPARE(engine.checks, 0);
        QCOMPARE(updates.updates->phase(), LocalizedMessage("center.idle"));
        engine.setSession(false);
        updates.updates->check();
        QCOMPARE(engine.checks, 1);
        QCOMPARE(updates.updates->phase(), LocalizedMessage("center.checking"));
        engine.setCanCheck(false);
        updates.updates->check();
        QCOMPARE(engine.checks, 1);
    }

    void automaticFollowsTheUpdater()
    {
        Updates updates;
        updates.updates->attach(updates.model);
        QVERIFY(!updates.updates->automatic());
        updates.updates->setAutomatic(true);
        QVERIFY(updates.engine->automaticallyChecksForUpdates());
        QVERIFY(updates.updates->automatic());

        // An updater that remembers automatic checks from an earlier run shows them on attach.
        Updates remembered;
        remembered.updaterAutomatic = true;
        remembered.updates->attach(remembered.model);
        QVERIFY(remembered.updates->automatic());
    }

    void launcherStateRefusesChecks_data()
    {
        QTest::addColumn<QString>("state");
        QTest::newRow("not attached") << u"detached"_s;
        QTest::newRow("game session") << u"running"_s;
        QTest::newRow("setup assistant") << u"setup"_s;
        QTest::newRow("version prompt") << u"compatibility"_s;
    }
    void launcherStateRefusesChecks()
    {
        QFETCH(QString, state);
        Updates updates;
        updates.enter(state);
        updates.updates->didFindValidUpdate(u"1.1.0"_s);
        QCOMPARE(updates.updates->mayPerformCheck(), std::optional(L("update.wait")));
        // Refused before the check began: the previous phase and version stay.
        QCOMPARE(updates.updates->phase(), LocalizedMessage("center.found"));
        QCOMPARE(updates.updates->availableVersion(), std::optional(u"1.1.0"_s));
        QCOMPARE(updates.backups(), QStringList());
    }

    void gameInTheBottleRefusesChecksUntilItQuits()
    {
        Updates updates;
        QCOMPARE(updates.model.selectedBottlePath(), updates.bottle);
        FakeUpdaterEngine &engine = updates.attached();
        updates.sandbox.setRunning(updates.bottle, {steamWindowsPath, gameWindowsPath});
        engine.checkForUpdates();
        QCOMPARE(engine.refusals, QStringList{L("update.wait")});
        QCOMPARE(updates.updates->phase(), LocalizedMessage("center.checking"));
        QCOMPARE(updates.backups(), QStringList());
        QVERIFY(!updates.updates->backupForSession());

        // The probe really ran in the selected bottle, with the launcher's profile left out.
        const QList<QJsonObject> calls = updates.sandbox.calls(u"wine"_s);
        QVERIFY(!calls.isEmpty());
        const QJsonObject environment = calls.last().value(u"env"_s).toObject();
        QCOMPARE(environment.value(u"WINEPREFIX"_s).toString(), updates.bottle);
        QCOMPARE(environment.value(u"CX_BOTTLE"_s).toString(), updates.bottle);
        QVERIFY(!environment.contains(u"WINEMSYNC"_s));
        QVERIFY(!environment.contains(u"CX_GRAPHICS_BACKEND"_s));

        updates.sandbox.setRunning(updates.bottle, {steamWindowsPath});
        engine.checkForUpdates();
        engine.checkForUpdates();
        QCOMPARE(engine.refusals, (QStringList{L("update.wait"), QString(), QString()}));
        const QStringList made = updates.backups();
        QCOMPARE(made.size(), 1);
        QCOMPARE(updates.updates->backupForSession(),
                 std::optional(updates.updates->backupDirectory() + u'/' + made.first() + u"/Korvane Mac Launcher.app"_s));
        QVERIFY(QFile::exists(updates.updates->backupDirectory() + u'/' + made.first() + u"/RESTORE.txt"_s));
    }

    void failedBackupRefusesTheCheck()
    {
        Updates updates;
        updates.verifies = false;
        FakeUpdaterEngine &engine = updates.attached();
        engine.checkForUpdates();
        QCOMPARE(engine.refusals, QStringList{L("update.backup.error.unverified")});
        QCOMPARE(updates.backups(), QStringList());
        QVERIFY(!updates.updates->backupForSession());
    }

    void betaRefusedWhileTheGameRuns()
    {
        Updates updates;
        FakeUpdaterEngine &engine = updates.attached();
        updates.model.setIsRunning(true);
        updates.updates->setChannel(UpdateChannel::beta);
        QCOMPARE(updates.updates->channel(), UpdateChannel(UpdateChannel::stable));
        QVERIFY(!updates.rig.home.defaults->contains(u"updateChannel"_s));
        QCOMPARE(updates.updates->message(), std::nullopt);
        QCOMPARE(engine.resets, 0);

        updates.model.setIsRunning(false);
        updates.updates->setChannel(UpdateChannel::beta);
        QCOMPARE(updates.updates->channel(), UpdateChannel(UpdateChannel::beta));
        QCOMPARE(updates.rig.home.defaults->string(u"updateChannel"_s), std::optional(u"beta"_s));
        QCOMPARE(updates.updates->message(), std::optional(LocalizedMessage("channel.beta.help")));
        QCOMPARE(engine.resets, 1);
        QCOMPARE(updates.updates->allowedChannels(), QSet<QString>{u"beta"_s});

        updates.updates->setChannel(UpdateChannel::stable);
        QCOMPARE(updates.rig.home.defaults->string(u"updateChannel"_s), std::optional(u"stable"_s));
        QCOMPARE(updates.updates->message(), std::optional(LocalizedMessage("channel.stable.help")));
    }

    void channelRefused_data()
    {
        QTest::addColumn<QString>("state");
        QTest::newRow("not attached") << u"detached"_s;
        QTest::newRow("update in progress") << u"busy"_s;
        QTest::newRow("setup assistant") << u"setup"_s;
        QTest::newRow("game session") << u"running"_s;
    }
    void channelRefused()
    {
        QFETCH(QString, state);
        Updates updates;
        updates.enter(state);
        updates.updates->setChannel(UpdateChannel::beta);
        QCOMPARE(updates.updates->channel(), UpdateChannel(UpdateChannel::stable));
        QVERIFY(!updates.rig.home.defaults->contains(u"updateChannel"_s));
    }

    void phaseOfEachStep_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<QString>("phase");
        QTest::newRow("found") << u"found"_s << u"center.found"_s;
        QTest::newRow("will download") << u"willDownload"_s << u"center.downloading"_s;
        QTest::newRow("downloaded") << u"downloaded"_s << u"center.downloaded"_s;
        QTest::newRow("will extract") << u"willExtract"_s << u"center.extracting"_s;
        QTest::newRow("will install") << u"willInstall"_s << u"center.installing"_s;
        QTest::newRow("download cancelled") << u"cancelled"_s << u"stage.cancelled"_s;
        QTest::newRow("aborted") << u"aborted"_s << u"center.failed"_s;
        QTest::newRow("finished") << u"finished"_s << u"center.complete"_s;
        QTest::newRow("finished with an error") << u"finishedWithError"_s << u"center.failed"_s;
    }
    void phaseOfEachStep()
    {
        QFETCH(QString, step);
        QFETCH(QString, phase);
        Updates updates;
        AppUpdates &controller = *updates.updates;
        const QMap<QString, std::function<void()>> steps{
            {u"found"_s, [&] { controller.didFindValidUpdate(u"1.1.0"_s); }},
            {u"willDownload"_s, [&] { controller.willDownloadUpdate(); }},
            {u"downloaded"_s, [&] { controller.didDownloadUpdate(); }},
            {u"willExtract"_s, [&] { controller.willExtractUpdate(); }},
            {u"willInstall"_s, [&] { controller.willInstallUpdate(); }},
            {u"cancelled"_s, [&] { controller.userDidCancelDownload(); }},
            {u"aborted"_s, [&] { controller.didAbortWithError(u"no route"_s); }},
            {u"finished"_s, [&] { controller.didFinishUpdateCycle(std::nullopt); }},
            {u"finishedWithError"_s, [&] { controller.didFinishUpdateCycle(u"no route"_s); }},
        };
        QSignalSpy changed(&controller, &AppUpdates::phaseChanged);
        steps.value(step)();
        QCOMPARE(controller.phase(), LocalizedMessage(phase));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(controller.availableVersion(), step == u"found" ? std::optional(u"1.1.0"_s) : std::nullopt);
    }

    void relaunch_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<bool>("relaunch");
        QTest::newRow("idle launcher") << u"idle"_s << true;
        QTest::newRow("not attached") << u"detached"_s << false;
        QTest::newRow("game session") << u"running"_s << false;
        QTest::newRow("setup assistant") << u"setup"_s << false;
        QTest::newRow("update cycle of its own") << u"busy"_s << true;
    }
    void relaunch()
    {
        QFETCH(QString, state);
        QFETCH(bool, relaunch);
        Updates updates;
        updates.enter(state);
        QCOMPARE(updates.updates->shouldRelaunchApplication(), relaunch);
    }

    // Installing is offered only for a found release and no cycle under way; a finished install
    // restarts the launcher only when the updater says it may.
    void installFoundRelease_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::newRow("installed, may restart") << u"restart"_s;
        QTest::newRow("installed, waits for the next start") << u"wait"_s;
        QTest::newRow("failed") << u"failed"_s;
    }
    void installFoundRelease()
    {
        QFETCH(QString, ending);
        Updates updates;
        FakeUpdaterEngine &engine = updates.attached();
        AppUpdates &controller = *updates.updates;
        engine.found = true;
        QVERIFY(!controller.canInstall()); // nothing told the controller yet
        controller.didFindValidUpdate(u"1.1.0"_s);
        QVERIFY(controller.canInstall());
        engine.setSession(true);
        QVERIFY(!controller.canInstall());
        controller.install();
        QCOMPARE(engine.installs, 0);
        engine.setSession(false);
        controller.install();
        QCOMPARE(engine.installs, 1);

        QSignalSpy finished(&controller, &AppUpdates::installFinished);
        QSignalSpy relaunch(&controller, &AppUpdates::relaunchRequested);
        engine.found = ending == u"failed";
        Q_EMIT engine.installFinished(ending == u"failed" ? std::optional(u"refused"_s) : std::nullopt,
                                      ending == u"restart");
        QCOMPARE(finished.size(), 1);
        QCOMPARE(relaunch.size(), ending == u"restart" ? 1 : 0);
        QCOMPARE(controller.canInstall(), ending == u"failed");
    }

    void manualBackup_data()
    {
        QTest::addColumn<bool>("verifies");
        QTest::addColumn<QString>("message");
        QTest::newRow("verified") << true << u"update.backup.saved"_s;
        QTest::newRow("signature refused") << false << u"update.backup.failed"_s;
    }
    void manualBackup()
    {
        QFETCH(bool, verifies);
        QFETCH(QString, message);
        Updates updates;
        updates.verifies = verifies;
        updates.attached();
        QSignalSpy finished(updates.updates.get(), &AppUpdates::backupFinished);
        updates.updates->saveBackup();
        QVERIFY(updates.updates->busy());
        QVERIFY(updates.model.updateSessionActive());
        // A second one meanwhile is ignored.
        updates.updates->saveBackup();
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.size(), 1);
        QVERIFY(!updates.updates->busy());
        QVERIFY(!updates.model.updateSessionActive());
        QCOMPARE(updates.updates->message(), std::optional(LocalizedMessage(message)));
        QCOMPARE(updates.backups().size(), verifies ? 1 : 0);
        const auto copy = finished.first().first().value<std::optional<QString>>();
        QCOMPARE(updates.rig.desktop.revealed, verifies ? QStringList{*copy} : QStringList());
        // Not the automatic copy of the run: the next check still makes its own.
        QVERIFY(!updates.updates->backupForSession());
    }

    void manualBackupRefusedWhileTheGameRuns()
    {
        Updates updates;
        updates.attached();
        updates.model.setIsRunning(true);
        updates.updates->saveBackup();
        QVERIFY(!updates.updates->busy());
        QCOMPARE(updates.updates->message(), std::nullopt);
    }

    void openBackupsMakesTheFolder()
    {
        Updates updates;
        updates.updates->openBackups();
        QVERIFY(QFileInfo(updates.updates->backupDirectory()).isDir());
        QCOMPARE(updates.rig.desktop.openedFolders, QStringList{updates.updates->backupDirectory()});
        QCOMPARE(updates.updates->backupDirectory(),
                 updates.rig.home.paths.applicationSupport + u"/Korvane Mac Launcher/Backups/hu.korvane.maclauncher"_s);
    }
};

QTEST_GUILESS_MAIN(TestAppUpdates)
#include "tst_appupdates.moc"
