#include "core/settingstransferflow.h"
#include "preferences/languagesettings.h"
#include "preferences/settingstransfer.h"
#include "servers/serverlistmodel.h"
#include "support/bottletree.h"
#include "support/launcherrig.h"

#include <QJsonDocument>
#include <QtTest>

#include <sys/stat.h>

namespace {

const QByteArray defaultProfile =
    R"({"bottle":"","desktopSize":"1920x1080","directory":"","hide":false,"restore":true,"skipIntro":true})";

// A valid document as the launcher writes it: compact, members sorted.
QByteArray validDocument()
{
    return R"({"favorites":[3,7],"game":"American Truck Simulator","language":"de","profiles":{"American Truck Simulator":)"
           + QByteArray(defaultProfile).replace(R"("bottle":"")", R"("bottle":"/b")") + R"(,"Euro Truck Simulator 2":)"
           + defaultProfile + R"(},"schema":1})";
}

// The valid document with the first `from` replaced.
QByteArray edited(const QByteArray &from, const QByteArray &to)
{
    QByteArray document = validDocument();
    const qsizetype at = document.indexOf(from);
    if (at < 0)
        qFatal("no %s in the document", from.constData());
    return document.replace(at, from.size(), to);
}

int unixMode(const QString &path)
{
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

    std::optional<LocalizedMessage> importFile(const QByteArray &document)
    {
        panels.answers.append(BottleTree::touch(home.root() + u"/in.json"_s, false, document));
        return flow->importSettings();
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
        QByteArray hundred = "[1";
        for (int id = 2; id <= 100; ++id)
            hundred += ',' + QByteArray::number(id);
        const int corrupt = SettingsTransferError::fileReadCorruptFile, malformed = SettingsTransferError::dataCorrupted;
        QTest::newRow("valid") << validDocument() << -1;
        QTest::newRow("exactly 64,000 bytes") << validDocument().leftJustified(64000) << -1;
        QTest::newRow("64,001 bytes") << validDocument().leftJustified(64001) << int(SettingsTransferError::fileReadTooLarge);
        QTest::newRow("schema 2") << edited(R"("schema":1)", R"("schema":2)") << corrupt;
        QTest::newRow("unknown language") << edited(R"("de")", R"("fr")") << corrupt;
        QTest::newRow("language in capitals") << edited(R"("de")", R"("DE")") << corrupt;
        QTest::newRow("unknown game") << edited(R"("American Truck Simulator",)", R"("american truck simulator",)") << corrupt;
        QTest::newRow("a third profile")
            << edited(R"(},"schema")", R"(,"Euro Truck Simulator 3":)" + defaultProfile + R"(},"schema")") << corrupt;
        QTest::newRow("ATS profile under another name") << edited(R"("American Truck Simulator":{)", R"("Euro Truck Simulator 3":{)") << corrupt;
        QTest::newRow("an invalid profile") << edited(R"("/b")", R"("b")") << corrupt;
        QTest::newRow("favourites 5 and 5") << edited("[3,7]", "[5,5]") << corrupt;
        QTest::newRow("favourite 0") << edited("[3,7]", "[0]") << corrupt;
        QTest::newRow("100 favourites") << edited("[3,7]", hundred + ']') << -1;
        QTest::newRow("101 favourites") << edited("[3,7]", hundred + ",101]") << corrupt;
        QTest::newRow("favourite 1.5") << edited("[3,7]", "[1.5]") << malformed;
        QTest::newRow("schema as text") << edited(R"("schema":1)", R"("schema":"1")") << malformed;
        QTest::newRow("favourites missing") << edited(R"("favorites":[3,7],)", "") << malformed;
        QTest::newRow("profile without hide") << edited(R"("hide":false,)", "") << malformed;
        QTest::newRow("not JSON") << QByteArray("{\"schema\": 1,") << malformed;
        QTest::newRow("an array") << QByteArray("[]") << malformed;
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
        SettingsTransfer document = SettingsTransfer::decode(validDocument());
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
        const SettingsTransfer exported = SettingsTransfer::decode(contents(file));

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
        QCOMPARE(model.profiles().profile(GameKind::ets2), (GameProfile{first, manual, false, u"1600x900"_s, true, false}));

        // The settings as they were before the import were kept, privately.
        const QString backup = rig.flow->lastBackupPath();
        QCOMPARE(backup, model.applicationDataDirectory() + u"/SettingsBackups/"_s + rig.backups().value(0));
        QCOMPARE(rig.backups().size(), 1);
        QCOMPARE(unixMode(backup), 0600);
        QCOMPARE(unixMode(QFileInfo(backup).absolutePath()), 0700);
        QCOMPARE(unixMode(model.applicationDataDirectory()), 0700);
        QCOMPARE(SettingsTransfer::decode(contents(backup)), changed);
    }

    void aFreshInstallationExportsBothDefaultProfiles()
    {
        TransferRig rig;
        const SettingsTransfer snapshot = rig.model->settingsSnapshot({}, AppLanguage::english);
        QCOMPARE(snapshot.profiles.size(), 2);
        for (const GameProfile &profile : snapshot.profiles)
            QCOMPARE(profile, GameProfile());
        // Members in sorted order at every level, as an exported file has them.
        QCOMPARE(QJsonDocument::fromJson(snapshot.encoded(false)).toJson(QJsonDocument::Compact), snapshot.encoded(false));
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

        try {
            model.importSettings(SettingsTransfer::decode(validDocument()));
            QFAIL("the import was not refused");
        } catch (const SettingsTransferError &error) {
            QCOMPARE(error.code(), SettingsTransferError::userCancelled);
        }
        QCOMPARE(model.game(), GameKind::ets2);
        QCOMPARE(model.profiles().profile(GameKind::ats).value_or(GameProfile()).bottle, QString());
    }

    // The file is read one byte past the cap, so that a larger file is refused whole and never
    // parsed cut short, also when what lies past the cap is only white space.
    void importRefusesAFileOverTheCap_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<QString>("error"); // empty: applied
        const qsizetype cap = SettingsTransfer::maximumSize;
        QTest::newRow("exactly the cap") << validDocument().leftJustified(cap) << QString();
        QTest::newRow("one blank past the cap") << validDocument().leftJustified(cap + 1) << u"the settings file is too large"_s;
        QTest::newRow("a line break past the cap") << validDocument().leftJustified(cap, ' ') + '\n' << u"the settings file is too large"_s;
        QTest::newRow("a megabyte") << validDocument().leftJustified(1 << 20) << u"the settings file is too large"_s;
    }
    void importRefusesAFileOverTheCap()
    {
        QFETCH(QByteArray, document);
        QFETCH(QString, error);
        TransferRig rig;
        const auto message = rig.importFile(document);
        QCOMPARE(rig.flow->lastError(), error);
        QVERIFY(message);
        QCOMPARE(message->key, error.isEmpty() ? u"transfer.applied.missing"_s : u"transfer.failed"_s);
        QCOMPARE(rig.model->game(), error.isEmpty() ? GameKind::ats : GameKind::ets2);
    }

    void nothingChangesWithoutABackup()
    {
        TransferRig rig;
        // The data folder cannot be created: a file stands where it should be.
        BottleTree::touch(rig.model->applicationDataDirectory());
        QCOMPARE(rig.importFile(validDocument()), std::optional(LocalizedMessage("transfer.failed")));
        QCOMPARE(rig.model->game(), GameKind::ets2);
        QCOMPARE(rig.language->language(), AppLanguage::english);
        QVERIFY(rig.servers->favoriteList().isEmpty());
    }

    void declinedOrBrokenImportsApplyNothing()
    {
        TransferRig rig;
        const QByteArray document = edited("/b", rig.bottles.toUtf8() + "/Gone");

        rig.confirmation.answer = false;
        QCOMPARE(rig.importFile(document), std::nullopt);
        QCOMPARE(rig.confirmation.questions.first().message,
                 L("transfer.confirm.help") + u"\n\n"_s + L("transfer.missing") + u"\nAmerican Truck Simulator: CrossOver bottle"_s);
        QVERIFY(!rig.flow->candidate());
        QVERIFY(rig.backups().isEmpty());
        QCOMPARE(rig.model->game(), GameKind::ets2);

        rig.confirmation.answer = true;
        QCOMPARE(rig.importFile(document), std::optional(LocalizedMessage("transfer.applied.missing")));
        QCOMPARE(rig.model->game(), GameKind::ats);

        QCOMPARE(rig.importFile("{\"schema\": 2}"), std::optional(LocalizedMessage("transfer.failed")));
        QCOMPARE(rig.confirmation.questions.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestSettingsTransfer)
#include "tst_settingstransfer.moc"
