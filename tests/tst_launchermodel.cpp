#include "core/bottlediscovery.h"
#include "core/consolelog.h"
#include "core/launchermodel.h"
#include "support/bottletree.h"
#include "support/launcherrig.h"

#include <QtTest>

using namespace Qt::StringLiterals;

class TestLauncherModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void derivedPaths()
    {
        qputenv("CX_ROOT", "/srv/cx/");
        const CrossOverLocation custom = CrossOverLocation::system(u"/home/u"_s);
        QCOMPARE(custom.winePath, u"/srv/cx/bin/wine"_s);
        QCOMPARE(custom.wineServerPath, u"/srv/cx/bin/wineserver"_s);
        QCOMPARE(custom.bottlesDirectory, u"/home/u/.cxoffice"_s);
        qunsetenv("CX_ROOT");
        QCOMPARE(CrossOverLocation::system(u"/home/u"_s).winePath, u"/opt/cxoffice/bin/wine"_s);

        LauncherRig rig;
        LauncherModel &model = rig.start();
        model.setGame(GameKind::ats);
        model.setGameDirectory(u"/x"_s);
        QCOMPARE(model.gameExecutablePath(), u"/x/bin/win_x64/amtrucks.exe"_s);
        QCOMPARE(model.multiplayerLogDirectory(), rig.home.paths.home + u"/Documents/ATSKVN/logs"_s);
        QCOMPARE(model.gameLogPath(), rig.home.paths.home + u"/Documents/American Truck Simulator/game.log.txt"_s);
        QCOMPARE(model.cliPath(), rig.resources + u"/CLI/korvane-cli"_s);
        QCOMPARE(model.modsDirectory(), rig.home.paths.applicationSupport + u"/Korvane Mac Launcher/Korvane"_s);
    }

    void equalNamesKeepTheirOrder()
    {
        const QList<Bottle> found{{u"/r/one/Game"_s}, {u"/r/two/game"_s}, {u"/r/three/GAME"_s}, {u"/r/x/alpha"_s}};
        const auto sorted = BottleDiscovery::sorted(found, [](const Bottle &) { return false; });
        QCOMPARE(sorted, (QList<Bottle>{{u"/r/x/alpha"_s}, {u"/r/one/Game"_s}, {u"/r/two/game"_s}, {u"/r/three/GAME"_s}}));
    }

    void walkFindsNestedAndSkipsHiddenAndPackages()
    {
        LauncherRig rig;
        const QString plain = BottleTree::makeBottle(rig.bottles, u"Plain"_s);
        const QString nested = BottleTree::makeBottle(rig.bottles, u"Outer/drive_c/users/inner"_s);
        BottleTree::makeBottle(rig.bottles, u".Hidden"_s);
        BottleTree::makeBottle(rig.bottles, u"Visible/.cache/Buried"_s);
        BottleTree::makeBottle(rig.bottles, u"Tools.app/Contents/Bottle"_s);
        BottleTree::touch(rig.bottles + u"/Loose/CXBOTTLE.CONF"_s); // the marker's case matters
        QVERIFY(QFile::link(plain, rig.bottles + u"/Linked"_s));  // links are not followed

        QList<Bottle> found = BottleDiscovery::find(rig.bottles + u'/');
        std::sort(found.begin(), found.end(), [](const Bottle &a, const Bottle &b) { return a.path < b.path; });
        QCOMPARE(found, (QList<Bottle>{{QDir::cleanPath(nested)}, {plain}}));
        QVERIFY(BottleDiscovery::find(rig.home.root() + u"/absent"_s).isEmpty());
    }

    void discoveryOrderAndStoredSelection()
    {
        LauncherRig rig;
        // Each pair sorts the other way by code unit; the Steam bottles come first.
        for (const auto &[name, steam] : {std::pair{u"B"_s, false}, {u"D"_s, true}, {u"a"_s, false}, {u"c"_s, true}})
            BottleTree::makeBottle(rig.bottles, name, steam);
        QCOMPARE(Bottle{rig.start().selectedBottlePath()}.name(), u"c"_s);
        QCOMPARE(rig.bottleNames(), (QStringList{u"c"_s, u"D"_s, u"a"_s, u"B"_s}));

        rig.model.reset();
        rig.home.defaults->remove(u"gameProfiles.v1"_s);
        rig.home.defaults->setString(u"selectedBottlePath"_s, rig.bottles + u"/a"_s);
        QCOMPARE(rig.start().selectedBottlePath(), rig.bottles + u"/a"_s);

        // A stored bottle that is gone is replaced by the first one with Steam (the profile,
        // which would name the bottle again, is dropped for this).
        rig.model.reset();
        rig.home.defaults->remove(u"gameProfiles.v1"_s);
        rig.home.defaults->setString(u"selectedBottlePath"_s, rig.bottles + u"/Gone"_s);
        QCOMPARE(Bottle{rig.start().selectedBottlePath()}.name(), u"c"_s);

        // The profile's bottle is listed even where discovery does not look.
        rig.model.reset();
        const QString remembered = BottleTree::makeBottle(rig.home.root(), u"Remembered"_s);
        GameProfiles(*rig.home.defaults).save(GameProfile{remembered, {}, true, u"1920x1080"_s, false, true}, GameKind::ets2);
        QCOMPARE(rig.start().selectedBottlePath(), remembered);
        QCOMPARE(rig.bottleNames(), (QStringList{u"c"_s, u"D"_s, u"a"_s, u"B"_s, u"Remembered"_s}));
    }

    // A bottle chosen by hand outside the bottles folder stays the game's bottle at every start,
    // whatever discovery finds, and its profile keeps naming it.
    void rememberedBottleSurvivesRestarts_data()
    {
        QTest::addColumn<int>("game");
        QTest::addColumn<bool>("discoveryFindsOne");
        QTest::newRow("ETS2, another bottle with Steam found") << int(GameKind::ets2) << true;
        QTest::newRow("ETS2, no bottle found") << int(GameKind::ets2) << false;
        QTest::newRow("ATS, another bottle with Steam found") << int(GameKind::ats) << true;
        QTest::newRow("ATS, no bottle found") << int(GameKind::ats) << false;
    }
    void rememberedBottleSurvivesRestarts()
    {
        QFETCH(int, game);
        QFETCH(bool, discoveryFindsOne);
        const GameKind kind{GameKind::Value(game)};
        LauncherRig rig;
        if (discoveryFindsOne)
            BottleTree::makeBottle(rig.bottles, u"Found"_s, true);
        const QString chosen = BottleTree::makeBottle(rig.home.root(), u"Chosen"_s);
        rig.start().setGame(kind);
        rig.panels.answers.append(chosen);
        rig.model->chooseBottle();

        for (int restart = 0; restart < 2; ++restart) {
            LauncherModel &model = rig.start();
            QCOMPARE(model.game(), kind);
            QCOMPARE(model.selectedBottlePath(), chosen);
            QVERIFY(model.bottles().contains(Bottle{chosen}));
            QCOMPARE(GameProfiles(*rig.home.reopenDefaults()).profile(kind).value_or(GameProfile()).bottle, chosen);
        }
    }

    void choosingABottle_data()
    {
        QTest::addColumn<QString>("answer"); // relative to the bottles directory; "-" cancels
        QTest::addColumn<QStringList>("expectedBottles");
        QTest::addColumn<QString>("expectedSelection");
        QTest::addColumn<bool>("errorLogged");
        QTest::newRow("cancelled") << u"-"_s << QStringList{u"Main"_s} << u"Main"_s << false;
        QTest::newRow("not a bottle") << u"elsewhere"_s << QStringList{u"Main"_s} << u"Main"_s << true;
        QTest::newRow("outside the bottles folder is appended") << u"../Manual"_s << QStringList{u"Main"_s, u"Manual"_s} << u"Manual"_s << false;
        QTest::newRow("a listed bottle is not added twice") << u"Main"_s << QStringList{u"Main"_s} << u"Main"_s << false;
    }
    void choosingABottle()
    {
        QFETCH(QString, answer);
        QFETCH(QStringList, expectedBottles);
        QFETCH(QString, expectedSelection);
        QFETCH(bool, errorLogged);
        LauncherRig rig;
        BottleTree::makeBottle(rig.bottles, u"Main"_s, true);
        BottleTree::makeBottle(rig.home.paths.home, u"Manual"_s);
        QDir().mkpath(rig.bottles + u"/elsewhere"_s);
        LauncherModel &model = rig.start();
        if (answer != u"-"_s)
            rig.panels.answers.append(rig.bottles + u'/' + answer);
        model.chooseBottle();

        QCOMPARE(rig.panels.requests.size(), 1);
        QCOMPARE(rig.panels.requests.first().title, u"Choose a CrossOver bottle"_s);
        QCOMPARE(rig.bottleNames(), expectedBottles);
        QCOMPARE(Bottle{model.selectedBottlePath()}.name(), expectedSelection);
        QCOMPARE(model.logText().endsWith(u"ERROR: The selected folder is not a CrossOver bottle.\n"_s), errorLogged);
        QCOMPARE(rig.home.defaults->string(u"selectedBottlePath"_s).value_or(QString()), model.selectedBottlePath());
    }

    void manualGameDirectorySurvivesBottleChanges()
    {
        LauncherRig rig;
        const QString first = BottleTree::makeBottle(rig.bottles, u"First"_s, true);
        const QString second = BottleTree::makeBottle(rig.bottles, u"Second"_s, true);
        LauncherModel &model = rig.start();
        QCOMPARE(model.gameDirectory(), BottleTree::steamLibrary(first) + u"/Euro Truck Simulator 2"_s);

        const QString custom = BottleTree::installGameAt(rig.home.root() + u"/Games/ETS2"_s, GameKind::ets2);
        rig.panels.answers.append(custom);
        model.chooseGameDirectory();
        QCOMPARE(rig.panels.requests.last().title, u"Choose the Euro Truck Simulator 2 folder"_s);
        QCOMPARE(model.gameDirectory(), custom);
        QCOMPARE(model.profiles().profile(GameKind::ets2)->directory, custom);

        model.setSelectedBottlePath(second);
        QCOMPARE(model.gameDirectory(), custom);

        model.resetGameDirectory();
        QCOMPARE(model.gameDirectory(), BottleTree::steamLibrary(second) + u"/Euro Truck Simulator 2"_s);
        QCOMPARE(model.profiles().profile(GameKind::ets2)->directory, QString());
        model.setSelectedBottlePath(first);
        QCOMPARE(model.gameDirectory(), BottleTree::steamLibrary(first) + u"/Euro Truck Simulator 2"_s);

        // The same bottle again runs no observer: nothing stored, nothing derived anew.
        rig.home.defaults->remove(u"selectedBottlePath"_s);
        model.setGameDirectory(u"/elsewhere"_s);
        model.setSelectedBottlePath(first);
        QVERIFY(!rig.home.defaults->contains(u"selectedBottlePath"_s));
        QCOMPARE(model.gameDirectory(), u"/elsewhere"_s);
    }

    void construction_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("game");
        QTest::addColumn<QVariant>("backendAfter"); // the stored "backend" after start
        const int ets2 = GameKind::ets2;
        QTest::newRow("ATS stored") << u"game"_s << u"American Truck Simulator"_s << int(GameKind::ats) << QVariant();
        QTest::newRow("unknown game") << u"game"_s << u"Euro Truck Simulator 3"_s << ets2 << QVariant();
        QTest::newRow("gl migrates to dx11") << u"backend"_s << u"gl"_s << ets2 << QVariant(u"dx11"_s);
        QTest::newRow("unknown backend left alone") << u"backend"_s << u"vulkan"_s << ets2 << QVariant(u"vulkan"_s);
        // The profile's size wins at load.
        QTest::newRow("stored desktop size") << u"desktopSize"_s << u"1600x900"_s << ets2 << QVariant();
    }
    void construction()
    {
        QFETCH(QString, key);
        QFETCH(QString, stored);
        QFETCH(int, game);
        QFETCH(QVariant, backendAfter);
        LauncherRig rig;
        rig.home.defaults->setString(key, stored);
        LauncherModel &model = rig.start();
        QCOMPARE(int(model.game()), game);
        QCOMPARE(model.backend(), RenderingBackend::dx11);
        QCOMPARE(rig.home.defaults->object(u"backend"_s), backendAfter);
        QCOMPARE(rig.home.defaults->string(u"desktopSize"_s), std::optional<QString>(u"1920x1080"_s));
        QVERIFY(model.profiles().profile(GameKind(GameKind::Value(game))).has_value());
        // Without a bottle the game directory waits, relative, for one to be chosen.
        QCOMPARE(model.selectedBottlePath(), QString());
        QCOMPARE(model.gameDirectory(), u"drive_c/Program Files (x86)/Steam/steamapps/common/"_s + model.game().rawValue());
    }

    void gameChangeSavesTheOldProfileBeforeLoadingTheNew()
    {
        LauncherRig rig;
        const QString bottle = BottleTree::makeBottle(rig.bottles, u"Main"_s, true);
        LauncherModel &model = rig.start();
        model.setDesktopSize(u"1600x900"_s);
        model.setSkipIntro(false);
        // Window preferences change without a profile save; only the game change keeps them.
        model.windowPreferences().setHideOnLaunch(true);
        model.windowPreferences().setRestoreOnExit(false);

        model.setGame(GameKind::ats);
        QCOMPARE(*model.profiles().profile(GameKind::ets2),
                 (GameProfile{bottle, QString(), false, u"1600x900"_s, true, false}));
        // A new profile for ATS: the current bottle and window preferences, the defaults otherwise,
        // stored at once.
        QCOMPARE(*model.profiles().profile(GameKind::ats), (GameProfile{bottle, QString(), true, u"1920x1080"_s, true, false}));
        QCOMPARE(model.desktopSize(), u"1920x1080"_s);
        QCOMPARE(model.gameDirectory(), BottleTree::steamLibrary(bottle) + u"/American Truck Simulator"_s);
        QCOMPARE(rig.home.defaults->string(u"game"_s), std::optional<QString>(u"American Truck Simulator"_s));

        model.windowPreferences().setHideOnLaunch(false);
        model.setGame(GameKind::ets2);
        QCOMPARE(model.desktopSize(), u"1600x900"_s);
        QCOMPARE(model.skipIntro(), false);
        QCOMPARE(model.windowPreferences().hideOnLaunch(), true);
        QCOMPARE(model.profiles().profile(GameKind::ats)->hide, false);
    }

    void stoppingBringsBackAHiddenLauncher_data()
    {
        QTest::addColumn<bool>("from");
        QTest::addColumn<bool>("to");
        QTest::addColumn<bool>("hidden");
        QTest::addColumn<bool>("restore");
        QTest::addColumn<int>("unhides");
        QTest::newRow("stopped, hidden, restore on") << true << false << true << true << 1;
        QTest::newRow("stopped, hidden, restore off") << true << false << true << false << 0;
        QTest::newRow("stopped, not hidden") << true << false << false << true << 0;
        QTest::newRow("false to false") << false << false << true << true << 0;
        QTest::newRow("true to true") << true << true << true << true << 0;
    }
    void stoppingBringsBackAHiddenLauncher()
    {
        QFETCH(bool, from);
        QFETCH(bool, to);
        QFETCH(bool, hidden);
        QFETCH(bool, restore);
        QFETCH(int, unhides);
        LauncherRig rig;
        LauncherModel &model = rig.start();
        model.setIsRunning(from);
        model.windowPreferences().setRestoreOnExit(restore);
        model.windowPreferences().setHideOnLaunch(hidden);
        model.didLoadGame();
        QCOMPARE(rig.desktop.hides, hidden ? 1 : 0);
        model.didLoadGame(); // already hidden for this game
        QCOMPARE(rig.desktop.hides, hidden ? 1 : 0);
        model.setIsRunning(to);
        QCOMPARE(rig.desktop.unhides, unhides);
        QCOMPARE(model.hiddenForGame(), hidden && unhides == 0 && !(from && !to));
    }

    void checklist_data()
    {
        QTest::addColumn<QString>("wine"); // absent, plain (not executable), executable
        QTest::addColumn<QString>("present"); // of bottle, steam, game, launcher, injector
        QTest::addColumn<QString>("oks");
        QTest::addColumn<QString>("missing");
        QTest::addColumn<QString>("status");
        const QString install = u"A játék telepítése szükséges"_s, setup = u"Beállítás szükséges"_s, all = u"bottle steam game launcher injector"_s;
        QTest::newRow("nothing") << u"absent"_s << QString() << u"00000"_s << u"crossover"_s << install;
        QTest::newRow("all present") << u"executable"_s << all << u"11111"_s << u"unexpected"_s << u"Indításra kész"_s;
        QTest::newRow("wine not executable") << u"plain"_s << all << u"01111"_s << u"crossover"_s << setup;
        QTest::newRow("client damaged") << u"executable"_s << u"bottle steam game launcher"_s << u"11110"_s << u"cli"_s << setup;
        QTest::newRow("client launcher missing") << u"executable"_s << u"bottle steam game injector"_s << u"11110"_s << u"cli"_s << setup;
        QTest::newRow("no Steam, game present") << u"executable"_s << u"bottle game launcher injector"_s << u"11011"_s << u"steam"_s << setup;
        QTest::newRow("game missing") << u"executable"_s << u"bottle steam launcher injector"_s << u"11101"_s << u"game"_s << install;
    }
    void checklist()
    {
        QFETCH(QString, wine);
        QFETCH(QString, present);
        QFETCH(QString, oks);
        QFETCH(QString, missing);
        QFETCH(QString, status);
        LauncherRig rig;
        const QStringList parts = present.split(u' ');
        if (wine != u"absent"_s)
            BottleTree::installCrossOver(rig.cxRoot, wine == u"executable"_s);
        if (parts.contains(u"bottle"_s)) {
            const QString path = BottleTree::makeBottle(rig.bottles, u"Main"_s, parts.contains(u"steam"_s));
            if (parts.contains(u"game"_s))
                BottleTree::installGame(path, GameKind::ets2);
        }
        BottleTree::installClient(rig.resources, parts.contains(u"launcher"_s), parts.contains(u"injector"_s));
        LauncherModel &model = rig.start();

        const QList<EnvironmentCheck> rows = model.checks();
        QString actual;
        for (const EnvironmentCheck &row : rows)
            actual += row.ok ? u'1' : u'0';
        QCOMPARE(actual, oks);
        QCOMPARE(model.isReady(), oks == u"11111"_s);
        QCOMPARE(model.missingRequirement().rawValue(), missing);
        QCOMPARE(model.statusMessage().key, status);
        QCOMPARE(rows.at(0).detail, wine == u"absent"_s ? u"CrossOver not found"_s : u"Available"_s);
        QCOMPARE(rows.at(1).detail, parts.contains(u"bottle"_s) ? u"Main"_s : u"Not selected"_s);
        QCOMPARE(rows.at(3).title, u"Euro Truck Simulator 2"_s);
    }

    void classify_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("issue"); // empty: none
        QTest::newRow("unsupported version, any case") << u"ERROR: Unsupported Game Version 1.2"_s << u"version"_s;
        QTest::newRow("version mismatch") << u"[korvane] Game version mismatch: 1.53 != 1.54\n"_s << u"version"_s;
        QTest::newRow("no Steam user") << u"Unable to find logged in Steam user, retrying"_s << u"steamLogin"_s;
        QTest::newRow("waiting for Steam") << u"Waiting for Steam to start up..."_s << u"steamLogin"_s;
        QTest::newRow("waiting alone") << u"waiting"_s << QString();
        QTest::newRow("connection error") << u"ConnectionError: reset"_s << u"network"_s;
        QTest::newRow("connection error with a space") << u"Connection error"_s << QString();
        QTest::newRow("download") << u"Failed to download mod files"_s << u"network"_s;
        QTest::newRow("TLS") << u"requests.exceptions.SSLError: bad handshake"_s << u"network"_s;
        QTest::newRow("HTTP") << u"HTTP Error 503: Service Unavailable"_s << u"network"_s;
        QTest::newRow("permission") << u"OSError: [Errno 13] Permission denied: 'C:\\\\mods'"_s << u"storage"_s;
        QTest::newRow("disk full") << u"No space left on device"_s << u"storage"_s;
        QTest::newRow("version beats storage") << u"permission denied\ngame version mismatch"_s << u"version"_s;
        QTest::newRow("ordinary output") << u"Starting game...\nInjecting"_s << QString();
    }
    void classify()
    {
        QFETCH(QString, text);
        QFETCH(QString, issue);
        const auto found = LaunchIssue::classify(text);
        QCOMPARE(found ? found->rawValue() : QString(), issue);
    }

    void whileRunning()
    {
        LauncherRig rig;
        LauncherModel &model = rig.start();
        QSignalSpy status(&model, &LauncherModel::statusChanged);
        model.refreshStatus();
        model.refreshStatus();
        QCOMPARE(status.size(), 2);
        model.appendLog(u"HTTP Error 500\n"_s);
        QCOMPARE(model.issue(), std::nullopt); // not running
        model.setIsRunning(true);
        model.refreshStatus();
        QCOMPARE(model.statusMessage().key, u"Korvane fut"_s); // over what the checklist says
        QCOMPARE(model.statusText(), u"Korvane is running"_s);
        model.appendLog(u"more output\n"_s);
        QCOMPARE(model.issue()->rawValue(), u"network"_s);
        model.appendLog(u"Permission denied\n"_s); // the tail still holds the HTTP error, which ranks first
        QCOMPARE(model.issue()->rawValue(), u"network"_s);
        model.activity().begin(GameKind::ets2);
        model.appendLog(u"Starting game\n"_s); // the session follows the console
        QCOMPARE(model.activity().current()->stage, LaunchStage::starting);
        model.setGameStartupDetected(true);
        model.appendLog(u"game version mismatch\n"_s);
        QCOMPARE(model.issue()->rawValue(), u"network"_s);

        model.appendLog(QString(ConsoleLog::limit - 1, u'x'));
        QCOMPARE(model.logText().size(), ConsoleLog::keptLength);
    }
};

QTEST_GUILESS_MAIN(TestLauncherModel)
#include "tst_launchermodel.moc"
