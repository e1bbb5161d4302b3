#include "platform/clock_fake.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "sessions/sessionactivity.h"
#include "support/bottletree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
// What korvanectl prints for a key in English, from the tables it reads itself.
QString english(const char *key)
{
    static const StringTables tables = StringTables::load(QStringLiteral(KVN_SOURCE_DIR "/resources"));
    return L10n::text(QString::fromUtf8(key), AppLanguage::english, {}, &tables);
}

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

// korvanectl as a user runs it, in a home of its own with no CrossOver installed.
class Machine {
public:
    Machine()
    {
        QDir().mkpath(home());
        QDir().mkpath(bottles());
    }

    QString home() const { return m_dir.path() + u"/home"_s; }
    QString bottles() const { return home() + u"/.cxoffice"_s; }
    QString config() const { return home() + u"/.config/korvane-launcher/defaults.json"_s; }

    void setLanguage(const QString &code)
    {
        BottleTree::touch(config(), false, "{\"appLanguage\": \"" + code.toUtf8() + "\"}");
    }

    Result run(const QStringList &arguments) const
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOME"_s, home());
        environment.insert(u"XDG_CONFIG_HOME"_s, home() + u"/.config"_s);
        environment.insert(u"XDG_DATA_HOME"_s, home() + u"/.local/share"_s);
        environment.insert(u"CX_ROOT"_s, m_dir.path() + u"/no-crossover"_s);
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(m_dir.path());
        process.start(qEnvironmentVariable("KVN_KORVANECTL", QStringLiteral(KVN_BINARY_DIR "/bin/korvanectl")), arguments);
        if (!process.waitForFinished(60'000))
            qFatal("korvanectl did not finish");
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QJsonObject status() const
    {
        const Result result = run({u"status"_s, u"--json"_s});
        return QJsonDocument::fromJson(result.out.toUtf8()).object();
    }

private:
    QTemporaryDir m_dir;
};

} // namespace

class TestKorvanectlModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void statusWithoutCrossOver_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("statusText");
        QTest::addColumn<QString>("bottleTitle");
        QTest::newRow("Hungarian") << u"hu"_s << u"A játék telepítése szükséges"_s << u"CrossOver-palack"_s;
        QTest::newRow("German") << u"de"_s << u"Das Spiel muss installiert werden"_s << u"CrossOver-Flasche"_s;
        QTest::newRow("English") << u"en"_s << u"The game needs to be installed"_s << u"CrossOver bottle"_s;
    }
    void statusWithoutCrossOver()
    {
        QFETCH(QString, language);
        QFETCH(QString, statusText);
        QFETCH(QString, bottleTitle);
        Machine machine;
        machine.setLanguage(language);

        const QJsonObject status = machine.status();
        const QJsonArray checks = status.value(u"checks"_s).toArray();
        QCOMPARE(checks.size(), 5);
        QCOMPARE(checks.at(0).toObject().value(u"ok"_s), QJsonValue(false));
        QCOMPARE(checks.at(1).toObject().value(u"ok"_s), QJsonValue(false));
        QCOMPARE(checks.at(1).toObject().value(u"title"_s).toString(), bottleTitle);
        QCOMPARE(status.value(u"isReady"_s), QJsonValue(false));
        QCOMPARE(status.value(u"missingRequirement"_s).toString(), u"crossover"_s);
        QCOMPARE(status.value(u"status"_s).toObject().value(u"key"_s).toString(), u"A játék telepítése szükséges"_s);
        QCOMPARE(status.value(u"status"_s).toObject().value(u"text"_s).toString(), statusText);
        QCOMPARE(status.value(u"bottles"_s).toArray().size(), 0);

        const Result table = machine.run({u"status"_s});
        QCOMPARE(table.exitCode, 0);
        QCOMPARE(table.out.count(u"[--]"_s), 5);
        QVERIFY(table.out.contains(statusText));
    }

    void leavesTheRunningLauncherSessionAlone()
    {
        Machine machine;
        QDir().mkpath(QFileInfo(machine.config()).absolutePath());
        JsonUserDefaults store(machine.config());
        FakeClock clock;
        SessionActivity launcher(store, clock, {machine.home(), {}, {}});
        launcher.begin(GameKind::ets2);
        const QVariant open = store.object(SessionActivity::activeKey);
        QVERIFY(open.isValid());

        QCOMPARE(machine.run({u"status"_s}).exitCode, 0);
        QCOMPARE(JsonUserDefaults(machine.config()).object(SessionActivity::activeKey), open);
    }

    void selectPerformsTheModelOperations()
    {
        Machine machine;
        const QString main = BottleTree::makeBottle(machine.bottles(), u"Main"_s, true);
        const QString other = BottleTree::makeBottle(machine.home(), u"Other"_s);
        QDir().mkpath(machine.home() + u"/NotABottle"_s);

        Result result = machine.run({u"select"_s, u"--bottle"_s, machine.home() + u"/NotABottle"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.err, u"ERROR: The selected folder is not a CrossOver bottle.\n"_s);
        QCOMPARE(machine.status().value(u"selectedBottlePath"_s).toString(), main);

        QCOMPARE(machine.run({u"select"_s, u"--bottle"_s, other}).exitCode, 0);
        QCOMPARE(machine.run({u"select"_s, u"--game"_s, u"ats"_s}).exitCode, 0);
        const QString manual = machine.home() + u"/Games/ATS"_s;
        QDir().mkpath(manual);
        QCOMPARE(machine.run({u"select"_s, u"--game-dir"_s, manual}).exitCode, 0);
        QJsonObject status = machine.status();
        QCOMPARE(status.value(u"game"_s).toString(), u"American Truck Simulator"_s);
        QCOMPARE(status.value(u"gameDirectory"_s).toString(), manual);
        QCOMPARE(status.value(u"manualGameDirectory"_s), QJsonValue(true));

        // Back to ETS2, which remembered the bottle chosen by hand; then the automatic directory.
        QCOMPARE(machine.run({u"select"_s, u"--game"_s, u"ets2"_s}).exitCode, 0);
        QCOMPARE(machine.run({u"select"_s, u"--auto-game-dir"_s}).exitCode, 0);
        status = machine.status();
        QCOMPARE(status.value(u"selectedBottlePath"_s).toString(), other);
        QCOMPARE(status.value(u"gameDirectory"_s).toString(), BottleTree::steamLibrary(other) + u"/Euro Truck Simulator 2"_s);
        QCOMPARE(status.value(u"bottles"_s).toArray(), (QJsonArray{main, other}));

        QCOMPARE(machine.run({u"select"_s, u"--game"_s, u"ets3"_s}).exitCode, 2);
    }

    void settingsExportAndImport()
    {
        Machine machine;
        const QString bottle = BottleTree::makeBottle(machine.bottles(), u"Main"_s, true);
        const QString file = machine.home() + u"/Korvane-Settings.json"_s;
        QCOMPARE(machine.run({u"settings"_s, u"export"_s, file}).out, english("transfer.saved") + u'\n');

        // The bottle goes away and the game changes: the import names what is missing and, without
        // --yes, changes nothing.
        QVERIFY(QDir(bottle).removeRecursively());
        QCOMPARE(machine.run({u"select"_s, u"--game"_s, u"ats"_s}).exitCode, 0);
        Result result = machine.run({u"settings"_s, u"import"_s, file});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.out.contains(u"Euro Truck Simulator 2: CrossOver bottle"_s), qPrintable(result.out));
        QCOMPARE(machine.status().value(u"game"_s).toString(), u"American Truck Simulator"_s);

        result = machine.run({u"settings"_s, u"import"_s, file, u"--yes"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains(english("transfer.applied.missing")));
        QCOMPARE(machine.status().value(u"game"_s).toString(), u"Euro Truck Simulator 2"_s);

        BottleTree::touch(file, false, "{}");
        result = machine.run({u"settings"_s, u"import"_s, file, u"--yes"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.err.startsWith(english("transfer.failed") + u'\n'));
    }
};

QTEST_GUILESS_MAIN(TestKorvanectlModel)
#include "tst_korvanectl_model.moc"
