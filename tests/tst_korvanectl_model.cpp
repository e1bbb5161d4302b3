#include "games/gameprofile.h"
#include "platform/clock_fake.h"
#include "sessions/sessionactivity.h"
#include "support/bottletree.h"
#include "support/korvanectl.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
// What korvanectl prints for a key in English, from the tables it reads itself.
QString english(const char *key)
{
    static const StringTables tables = StringTables::load(QStringLiteral(KVN_SOURCE_DIR "/resources"));
    return L10n::text(QString::fromUtf8(key), AppLanguage::english, {}, &tables);
}

// korvanectl as a user runs it, on a machine with no CrossOver installed.
CliResult run(const TestHome &home, const QStringList &arguments)
{
    QProcessEnvironment extra;
    extra.insert(u"CX_ROOT"_s, home.root() + u"/no-crossover"_s);
    return runKorvanectl(home, arguments, {}, extra);
}

QJsonObject status(const TestHome &home)
{
    return QJsonDocument::fromJson(run(home, {u"status"_s, u"--json"_s}).out.toUtf8()).object();
}

QString bottlesOf(const TestHome &home)
{
    return home.paths.home + u"/.cxoffice"_s;
}
} // namespace

class TestKorvanectlModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // In the stored language, with the status key (a Hungarian sentence) beside its text.
    void statusWithoutCrossOver()
    {
        TestHome home;
        JsonUserDefaults(korvanectlDefaultsPath(home)).setString(u"appLanguage"_s, u"de"_s);
        const QString statusText = u"Das Spiel muss installiert werden"_s;

        const QJsonObject state = status(home);
        const QJsonArray checks = state.value(u"checks"_s).toArray();
        QCOMPARE(checks.size(), 5);
        QCOMPARE(checks.at(0).toObject().value(u"ok"_s), QJsonValue(false));
        QCOMPARE(checks.at(1).toObject().value(u"ok"_s), QJsonValue(false));
        QCOMPARE(checks.at(1).toObject().value(u"title"_s).toString(), u"CrossOver-Flasche"_s);
        QCOMPARE(state.value(u"isReady"_s), QJsonValue(false));
        QCOMPARE(state.value(u"missingRequirement"_s).toString(), u"crossover"_s);
        QCOMPARE(state.value(u"status"_s).toObject().value(u"key"_s).toString(), u"A játék telepítése szükséges"_s);
        QCOMPARE(state.value(u"status"_s).toObject().value(u"text"_s).toString(), statusText);
        QCOMPARE(state.value(u"bottles"_s).toArray().size(), 0);

        const CliResult table = run(home, {u"status"_s});
        QCOMPARE(table.exitCode, 0);
        QCOMPARE(table.out.count(u"[--]"_s), 5);
        QVERIFY(table.out.contains(statusText));
    }

    void leavesTheRunningLauncherSessionAlone()
    {
        TestHome home;
        JsonUserDefaults store(korvanectlDefaultsPath(home));
        FakeClock clock;
        SessionActivity launcher(store, clock, {home.paths.home, {}, {}});
        launcher.begin(GameKind::ets2);
        const QVariant open = store.object(SessionActivity::activeKey);
        QVERIFY(open.isValid());

        QCOMPARE(run(home, {u"status"_s}).exitCode, 0);
        QCOMPARE(JsonUserDefaults(korvanectlDefaultsPath(home)).object(SessionActivity::activeKey), open);
    }

    void selectPerformsTheModelOperations()
    {
        TestHome home;
        const QString main = BottleTree::makeBottle(bottlesOf(home), u"Main"_s, true);
        const QString other = BottleTree::makeBottle(home.paths.home, u"Other"_s);
        QDir().mkpath(home.paths.home + u"/NotABottle"_s);

        CliResult result = run(home, {u"select"_s, u"--bottle"_s, home.paths.home + u"/NotABottle"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.err, u"ERROR: The selected folder is not a CrossOver bottle.\n"_s);
        QCOMPARE(status(home).value(u"selectedBottlePath"_s).toString(), main);

        QCOMPARE(run(home, {u"select"_s, u"--bottle"_s, other}).exitCode, 0);
        QCOMPARE(run(home, {u"select"_s, u"--game"_s, u"ats"_s}).exitCode, 0);
        const QString manual = home.paths.home + u"/Games/ATS"_s;
        QDir().mkpath(manual);
        QCOMPARE(run(home, {u"select"_s, u"--game-dir"_s, manual}).exitCode, 0);
        QJsonObject state = status(home);
        QCOMPARE(state.value(u"game"_s).toString(), u"American Truck Simulator"_s);
        QCOMPARE(state.value(u"gameDirectory"_s).toString(), manual);
        QCOMPARE(state.value(u"manualGameDirectory"_s), QJsonValue(true));

        // Back to ETS2, which remembered the bottle chosen by hand; then the automatic directory.
        QCOMPARE(run(home, {u"select"_s, u"--game"_s, u"ets2"_s}).exitCode, 0);
        QCOMPARE(run(home, {u"select"_s, u"--auto-game-dir"_s}).exitCode, 0);
        state = status(home);
        QCOMPARE(state.value(u"selectedBottlePath"_s).toString(), other);
        QCOMPARE(state.value(u"gameDirectory"_s).toString(), BottleTree::steamLibrary(other) + u"/Euro Truck Simulator 2"_s);
        QCOMPARE(state.value(u"bottles"_s).toArray(), (QJsonArray{main, other}));

        QCOMPARE(run(home, {u"select"_s, u"--game"_s, u"ets3"_s}).exitCode, 2);
    }

    // Each korvanectl run is a start of the launcher: the bottle chosen by hand for a game must
    // be the one every later start finds, though discovery would pick another.
    void aHandChosenBottleIsKeptAcrossRuns_data()
    {
        QTest::addColumn<QString>("game");
        QTest::addColumn<QString>("rawValue");
        QTest::newRow("ETS2") << u"ets2"_s << u"Euro Truck Simulator 2"_s;
        QTest::newRow("ATS") << u"ats"_s << u"American Truck Simulator"_s;
    }
    void aHandChosenBottleIsKeptAcrossRuns()
    {
        QFETCH(QString, game);
        QFETCH(QString, rawValue);
        TestHome home;
        BottleTree::makeBottle(bottlesOf(home), u"Discovered"_s, true);
        const QString chosen = BottleTree::makeBottle(home.paths.home + u"/Elsewhere"_s, u"Chosen"_s);

        QCOMPARE(run(home, {u"select"_s, u"--game"_s, game}).exitCode, 0);
        QCOMPARE(run(home, {u"select"_s, u"--bottle"_s, chosen}).exitCode, 0);
        for (int start = 0; start < 2; ++start) {
            const QJsonObject state = status(home);
            QCOMPARE(state.value(u"game"_s).toString(), rawValue);
            QCOMPARE(state.value(u"selectedBottlePath"_s).toString(), chosen);
        }
        JsonUserDefaults stored(korvanectlDefaultsPath(home));
        QCOMPARE(GameProfiles(stored).profile(*GameKind::fromRawValue(rawValue)).value_or(GameProfile()).bottle, chosen);
    }

    void settingsExportAndImport()
    {
        TestHome home;
        const QString bottle = BottleTree::makeBottle(bottlesOf(home), u"Main"_s, true);
        const QString file = home.paths.home + u"/Korvane-Settings.json"_s;
        QCOMPARE(run(home, {u"settings"_s, u"export"_s, file}).out, english("transfer.saved") + u'\n');

        // The bottle goes away and the game changes: the import names what is missing and, without
        // --yes, changes nothing.
        QVERIFY(QDir(bottle).removeRecursively());
        QCOMPARE(run(home, {u"select"_s, u"--game"_s, u"ats"_s}).exitCode, 0);
        CliResult result = run(home, {u"settings"_s, u"import"_s, file});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.out.contains(u"Euro Truck Simulator 2: CrossOver bottle"_s), qPrintable(result.out));
        QCOMPARE(status(home).value(u"game"_s).toString(), u"American Truck Simulator"_s);

        result = run(home, {u"settings"_s, u"import"_s, file, u"--yes"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains(english("transfer.applied.missing")));
        // Every folder made on the way to the settings and the backup is the user's alone.
        for (const QString &folder : {u"/config"_s, u"/config/korvane-launcher"_s, u"/data"_s,
                                      u"/data/Korvane Mac Launcher"_s, u"/data/Korvane Mac Launcher/SettingsBackups"_s})
            QVERIFY2((QFile(home.root() + folder).permissions() & 0x0077) == QFileDevice::Permissions(), qPrintable(folder));
        QCOMPARE(status(home).value(u"game"_s).toString(), u"Euro Truck Simulator 2"_s);

        BottleTree::touch(file, false, "{}");
        result = run(home, {u"settings"_s, u"import"_s, file, u"--yes"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.err.startsWith(english("transfer.failed") + u'\n'));
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlModel)
#include "tst_korvanectl_model.moc"
