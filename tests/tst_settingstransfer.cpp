#include "preferences/languagesettings.h"
#include "preferences/settingstransfer.h"
#include "preferences/settingstransferflow.h"
#include "servers/serverlistmodel.h"
#include "support/bottletree.h"
#include "support/launcherrig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <sys/stat.h>

namespace {

QJsonObject profileJson(const QString &bottle = {}, const QString &size = u"1920x1080"_s)
{
    return GameProfile{bottle, {}, true, size, false, true}.toJson();
}

QJsonObject validDocument()
{
    return {{u"schema"_s, 1},
            {u"language"_s, u"de"_s},
            {u"game"_s, u"American Truck Simulator"_s},
            {u"profiles"_s, QJsonObject{{u"Euro Truck Simulator 2"_s, profileJson()},
                                        {u"American Truck Simulator"_s, profileJson(u"/b"_s)}}},
            {u"favorites"_s, QJsonArray{3, 7}}};
}

int unixMode(const QString &path)
{
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

QByteArray bytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QJsonArray sequence(int count)
{
    QJsonArray ids;
    for (int id = 1; id <= count; ++id)
        ids.append(id);
    return ids;
}

// A document padded with trailing blanks to exactly `size` bytes.
QByteArray padded(qsizetype size)
{
    QByteArray data = bytes(validDocument());
    data.append(QByteArray(size - data.size(), ' '));
    return data;
}

// The launcher, the server list's favourites and the language, with fake panels and dialog.
struct TransferRig : LauncherRig {
    std::unique_ptr<ServerListModel> servers;
    std::unique_ptr<LanguageSettings> language;
    FakeConfirmationDialog confirmation;
    std::unique_ptr<SettingsTransferFlow> flow;

    TransferRig()
    {
        start();
        servers = std::make_unique<ServerListModel>(*home.defaults, clock, service());
        language = std::make_unique<LanguageSettings>(*home.defaults);
        flow = std::make_unique<SettingsTransferFlow>(*model, *servers, *language, panels, confirmation);
    }

    QStringList backups() const
    {
        return QDir(model->applicationDataDirectory() + u"/SettingsBackups"_s).entryList(QDir::Files);
    }
};

} // namespace

class TestSettingsTransfer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decode_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("error"); // -1: accepted
        const auto with = [](const QString &key, const QJsonValue &value) {
            QJsonObject document = validDocument();
            document.insert(key, value);
            return bytes(document);
        };
        const auto withProfiles = [&with](const QJsonObject &ets2, std::optional<QJsonObject> ats, bool third = false) {
            QJsonObject profiles{{u"Euro Truck Simulator 2"_s, ets2}};
            if (ats)
                profiles.insert(u"American Truck Simulator"_s, *ats);
            if (third)
                profiles.insert(u"Euro Truck Simulator 3"_s, profileJson());
            return with(u"profiles"_s, profiles);
        };
        QJsonObject withoutHide = profileJson();
        withoutHide.remove(u"hide"_s);
        QJsonObject document = validDocument();
        document.remove(u"favorites"_s);
        const QByteArray withoutFavorites = bytes(document);

        const int corrupt = SettingsTransferError::fileReadCorruptFile, malformed = SettingsTransferError::dataCorrupted;
        QTest::newRow("valid") << bytes(validDocument()) << -1;
        QTest::newRow("exactly 64,000 bytes") << padded(64000) << -1;
        QTest::newRow("64,001 bytes") << padded(64001) << int(SettingsTransferError::fileReadTooLarge);
        QTest::newRow("schema 2") << with(u"schema"_s, 2) << corrupt;
        QTest::newRow("unknown language") << with(u"language"_s, u"fr"_s) << corrupt;
        QTest::newRow("language in capitals") << with(u"language"_s, u"DE"_s) << corrupt;
        QTest::newRow("unknown game") << with(u"game"_s, u"euro truck simulator 2"_s) << corrupt;
        QTest::newRow("a third profile") << withProfiles(profileJson(), profileJson(), true) << corrupt;
        QTest::newRow("ATS profile missing") << withProfiles(profileJson(), std::nullopt) << corrupt;
        QTest::newRow("desktop size 1920x1200") << withProfiles(profileJson({}, u"1920x1200"_s), profileJson()) << corrupt;
        QTest::newRow("relative bottle") << withProfiles(profileJson(u"Users/x"_s), profileJson()) << corrupt;
        QTest::newRow("bottle with a line feed") << withProfiles(profileJson(u"/a\nb"_s), profileJson()) << corrupt;
        QTest::newRow("favourites 5 and 5") << with(u"favorites"_s, QJsonArray{5, 5}) << corrupt;
        QTest::newRow("favourite 0") << with(u"favorites"_s, QJsonArray{0}) << corrupt;
        QTest::newRow("100 favourites") << with(u"favorites"_s, sequence(100)) << -1;
        QTest::newRow("101 favourites") << with(u"favorites"_s, sequence(101)) << corrupt;
        QTest::newRow("favourite 1.5") << with(u"favorites"_s, QJsonArray{1.5}) << malformed;
        QTest::newRow("schema as text") << with(u"schema"_s, u"1"_s) << malformed;
        QTest::newRow("favourites missing") << withoutFavorites << malformed;
        QTest::newRow("profile without hide") << withProfiles(withoutHide, profileJson()) << malformed;
        QTest::newRow("not JSON") << QByteArray("{\"schema\": 1,") << malformed;
        QTest::newRow("an array") << QByteArray("[]") << malformed;
        QTest::newRow("binary noise") << QByteArray("\xff\xfe\x00\x01garbage", 11) << malformed;
    }
    void decode()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, error);
        try {
            const SettingsTransfer document = SettingsTransfer::decode(data);
            QCOMPARE(error, -1);
            QCOMPARE(document.game, u"American Truck Simulator"_s);
            QCOMPARE(document.profiles.value(u"American Truck Simulator"_s).bottle, u"/b"_s);
        } catch (const SettingsTransferError &thrown) {
            QCOMPARE(int(thrown.code()), error);
        }
    }

    void missingPathsNameTheGameAndWhat()
    {
        LauncherRig rig;
        rig.home.defaults->setString(u"appLanguage"_s, u"de"_s);
        const QString bottle = BottleTree::makeBottle(rig.bottles, u"Present"_s);
        const QString game = BottleTree::installGameAt(rig.home.root() + u"/ATS"_s, GameKind::ats);
        SettingsTransfer document = SettingsTransfer::decode(bytes(validDocument()));
        document.profiles[u"Euro Truck Simulator 2"_s].bottle = rig.bottles + u"/Gone"_s;
        document.profiles[u"Euro Truck Simulator 2"_s].directory = game; // holds amtrucks.exe, not eurotrucks2.exe
        document.profiles[u"American Truck Simulator"_s].bottle = bottle;
        document.profiles[u"American Truck Simulator"_s].directory = game;
        QCOMPARE(document.missingPaths(),
                 (QStringList{u"Euro Truck Simulator 2: CrossOver-Flasche"_s, u"Euro Truck Simulator 2: Spielordner"_s}));
    }

    void roundTripReproducesEverySetting()
    {
        TransferRig rig;
        LauncherModel &model = *rig.model;
        const QString first = BottleTree::makeBottle(rig.bottles, u"First"_s, true);
        const QString second = BottleTree::makeBottle(rig.bottles, u"Second"_s, true);
        const QString manual = BottleTree::installGameAt(rig.home.root() + u"/Games/ETS2"_s, GameKind::ets2);
        model.discoverBottles();

        // ETS2: first bottle, a hand-chosen directory, intro shown, 1600x900, hide without restore.
        model.setSelectedBottlePath(first);
        rig.panels.answers.append(manual);
        model.chooseGameDirectory();
        model.setSkipIntro(false);
        model.setDesktopSize(u"1600x900"_s);
        model.windowPreferences().setHideOnLaunch(true);
        model.windowPreferences().setRestoreOnExit(false);
        // ATS: second bottle, 2560x1440; ATS stays selected.
        model.setGame(GameKind::ats);
        model.setSelectedBottlePath(second);
        model.setDesktopSize(u"2560x1440"_s);
        rig.language->setLanguage(AppLanguage::german);
        rig.servers->replaceFavorites({7, 3});

        const QString file = rig.home.root() + u"/Korvane-Settings.json"_s;
        rig.panels.answers.append(file);
        QCOMPARE(rig.flow->exportSettings(), std::optional(LocalizedMessage("transfer.saved")));
        QCOMPARE(rig.panels.requests.last().message, u"Korvane-Settings.json"_s);
        QCOMPARE(unixMode(file), 0600);
        const SettingsTransfer exported = SettingsTransfer::decode([&file] {
            QFile in(file);
            return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
        }());

        // Change everything, then bring it back.
        model.setDesktopSize(u"1280x720"_s);
        model.setGame(GameKind::ets2);
        model.resetGameDirectory();
        model.setSelectedBottlePath(second);
        rig.language->setLanguage(AppLanguage::hungarian);
        rig.servers->replaceFavorites({1});
        const SettingsTransfer changed = model.settingsSnapshot(rig.servers->favorites(), rig.language->language());

        rig.panels.answers.append(file);
        QCOMPARE(rig.flow->importSettings(), std::optional(LocalizedMessage("transfer.applied")));
        QCOMPARE(rig.confirmation.questions.size(), 1);
        // Asked in the language of the time, with nothing missing.
        QCOMPARE(rig.confirmation.questions.first().message, L10n::text(u"transfer.confirm.help"_s, AppLanguage::hungarian));

        QCOMPARE(model.settingsSnapshot(rig.servers->favorites(), rig.language->language()), exported);
        QCOMPARE(rig.language->language(), AppLanguage::german);
        QCOMPARE(rig.servers->favoriteList(), (QList<qint64>{3, 7}));
        QCOMPARE(model.game(), GameKind::ats);
        QCOMPARE(model.selectedBottlePath(), second);
        QCOMPARE(model.desktopSize(), u"2560x1440"_s);
        model.setGame(GameKind::ets2);
        QCOMPARE(model.gameDirectory(), manual);
        QCOMPARE(model.selectedBottlePath(), first);
        QCOMPARE(model.skipIntro(), false);
        QCOMPARE(model.windowPreferences().hideOnLaunch(), true);
        QCOMPARE(model.windowPreferences().restoreOnExit(), false);

        // The settings as they were before the import were kept, privately.
        const QStringList backups = rig.backups();
        QCOMPARE(backups.size(), 1);
        const QString backup = model.applicationDataDirectory() + u"/SettingsBackups/"_s + backups.first();
        QCOMPARE(rig.flow->lastBackupPath(), backup);
        QCOMPARE(unixMode(backup), 0600);
        QCOMPARE(unixMode(QFileInfo(backup).absolutePath()), 0700);
        QFile in(backup);
        QVERIFY(in.open(QIODevice::ReadOnly));
        QCOMPARE(SettingsTransfer::decode(in.readAll()), changed);
    }

    void aFreshInstallationExportsBothDefaultProfiles()
    {
        TransferRig rig;
        const SettingsTransfer snapshot = rig.model->settingsSnapshot({}, AppLanguage::english);
        QCOMPARE(snapshot.profiles.size(), 2);
        for (const GameProfile &profile : snapshot.profiles)
            QCOMPARE(profile, GameProfile());
        const QByteArray encoded = snapshot.encoded(true);
        // Members in sorted order at every level.
        QVERIFY(encoded.indexOf("favorites") < encoded.indexOf("\"game\""));
        QVERIFY(encoded.indexOf("\"language\"") < encoded.indexOf("profiles"));
        QVERIFY(encoded.indexOf("profiles") < encoded.indexOf("schema"));
        QVERIFY(encoded.indexOf("bottle") < encoded.indexOf("desktopSize"));
        QVERIFY(encoded.indexOf("desktopSize") < encoded.indexOf("directory"));
    }

    void refusedWhileBusy_data()
    {
        QTest::addColumn<QString>("busy");
        QTest::newRow("a game runs") << u"running"_s;
        QTest::newRow("an update session") << u"update"_s;
        QTest::newRow("the setup assistant") << u"setup"_s;
        QTest::newRow("a version question waits") << u"compatibility"_s;
    }
    void refusedWhileBusy()
    {
        QFETCH(QString, busy);
        TransferRig rig;
        LauncherModel &model = *rig.model;
        if (busy == u"running"_s)
            model.setIsRunning(true);
        else if (busy == u"update"_s)
            model.setUpdateSessionActive(true);
        else if (busy == u"setup"_s)
            model.setSetupActive(true);
        else
            model.setPendingCompatibility(CompatibilityResult{});

        rig.panels.answers = {rig.home.root() + u"/out.json"_s};
        QCOMPARE(rig.flow->exportSettings(), std::nullopt);
        QCOMPARE(rig.flow->importSettings(), std::nullopt);
        QVERIFY(rig.panels.requests.isEmpty());

        SettingsTransfer document = SettingsTransfer::decode(bytes(validDocument()));
        try {
            model.importSettings(document);
            QFAIL("the import was not refused");
        } catch (const SettingsTransferError &error) {
            QCOMPARE(error.code(), SettingsTransferError::userCancelled);
        }
        QCOMPARE(model.game(), GameKind::ets2);
        QVERIFY(!model.profiles().profile(GameKind::ats).has_value() || model.profiles().profile(GameKind::ats)->bottle.isEmpty());
    }

    void nothingChangesWithoutABackup()
    {
        TransferRig rig;
        // The data folder cannot be created: a file stands where it should be.
        BottleTree::touch(rig.model->applicationDataDirectory());
        const QString file = BottleTree::touch(rig.home.root() + u"/in.json"_s, false, bytes(validDocument()));
        rig.panels.answers.append(file);
        QCOMPARE(rig.flow->importSettings(), std::optional(LocalizedMessage("transfer.failed")));
        QCOMPARE(rig.model->game(), GameKind::ets2);
        QCOMPARE(rig.language->language(), AppLanguage::english);
        QVERIFY(rig.servers->favoriteList().isEmpty());
    }

    void declinedOrBrokenImportsApplyNothing()
    {
        TransferRig rig;
        QJsonObject document = validDocument();
        QJsonObject profiles = document.value(u"profiles"_s).toObject();
        profiles.insert(u"Euro Truck Simulator 2"_s, profileJson(rig.bottles + u"/Gone"_s));
        profiles.insert(u"American Truck Simulator"_s, profileJson());
        document.insert(u"profiles"_s, profiles);
        const QString file = BottleTree::touch(rig.home.root() + u"/in.json"_s, false, bytes(document));

        rig.confirmation.answer = false;
        rig.panels.answers.append(file);
        QCOMPARE(rig.flow->importSettings(), std::nullopt);
        QCOMPARE(rig.confirmation.questions.first().message,
                 L("transfer.confirm.help") + u"\n\n"_s + L("transfer.missing") + u"\nEuro Truck Simulator 2: CrossOver bottle"_s);
        QVERIFY(!rig.flow->candidate());
        QVERIFY(rig.backups().isEmpty());
        QCOMPARE(rig.model->game(), GameKind::ets2);

        rig.confirmation.answer = true;
        rig.panels.answers.append(file);
        QCOMPARE(rig.flow->importSettings(), std::optional(LocalizedMessage("transfer.applied.missing")));
        QCOMPARE(rig.model->game(), GameKind::ats);

        const QString broken = BottleTree::touch(rig.home.root() + u"/broken.json"_s, false, "{\"schema\": 2}");
        rig.panels.answers.append(broken);
        QCOMPARE(rig.flow->importSettings(), std::optional(LocalizedMessage("transfer.failed")));
        QCOMPARE(rig.confirmation.questions.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestSettingsTransfer)
#include "tst_settingstransfer.moc"
