#include "core/diagnosticsinput.h"
#include "platform/desktop_fake.h"
#include "platform/microphone_fake.h"
#include "platform/filepanels_fake.h"
#include "sessions/diagnosticsmodel.h"
#include "support/launcherrig.h"
#include "support/testhome.h"

#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
void writeFile(const QString &path, const QByteArray &content, const QDateTime &modified = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    if (modified.isValid())
        file.setFileTime(modified, QFileDevice::FileModificationTime);
}

const QString note = u"\n\nOnly bounded launcher/game/client logs are included. No chat logs, saves, credentials, "
                     u"screenshots or raw configuration. Review before sharing; automatic redaction cannot guarantee "
                     u"removal of every personal detail.\n"_s;
} // namespace

class TestDiagnosticsModel : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TestHome> m_home;
    FakeFilePanels m_panels;
    FakeDesktop m_desktop;

    DiagnosticsInput input() const
    {
        DiagnosticsInput input;
        input.bundleInfo = {{u"CFBundleShortVersionString"_s, u"1.2.0"_s}, {u"CFBundleVersion"_s, u"42"_s}};
        input.operatingSystem = u"Version 14.4 (Build 23E214)"_s;
        input.crossOverVersion = u"24.0.1"_s;
        input.game = GameKind::ets2;
        input.microphoneStatus = 3;
        input.checks = {{u"CrossOver Wine"_s, true}, {u"Windows Steam"_s, false}};
        input.gameLogPath = m_home->paths.home + u"/Documents/Euro Truck Simulator 2/game.log.txt"_s;
        input.multiplayerLogDirectory = m_home->paths.home + u"/Documents/ETS2KVN/logs"_s;
        input.logText = u"Launcher ready\n"_s;
        input.home = m_home->paths.home;
        return input;
    }

    QString prepared(DiagnosticsModel &model, const DiagnosticsInput &input)
    {
        model.prepare(input);
        if (!model.busy())
            return u"busy never set"_s;
        if (!QTest::qWaitFor([&] { return !model.busy(); }, 30000))
            return u"preparation never ended"_s;
        return model.preview();
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        m_home->installLocalization();
        m_panels = FakeFilePanels();
        m_desktop = FakeDesktop();
    }
    void cleanup() { m_home.reset(); }

    void summary_data()
    {
        QTest::addColumn<QVariantMap>("bundle");
        QTest::addColumn<std::optional<QString>>("crossOver");
        QTest::addColumn<QString>("expectedStart");
        QTest::newRow("everything known")
            << QVariantMap{{u"CFBundleShortVersionString"_s, u"1.2.0"_s}, {u"CFBundleVersion"_s, u"42"_s}}
            << std::optional<QString>(u"24.0.1"_s) << u"Version: 1.2.0 (42)\nmacOS: X\nCrossOver: 24.0.1\n"_s;
        QTest::newRow("versions missing or not text")
            << QVariantMap{{u"CFBundleVersion"_s, 42}} << std::optional<QString>()
            << u"Version: ? (?)\nmacOS: X\nCrossOver: unavailable\n"_s;
    }

    void summary()
    {
        QFETCH(QVariantMap, bundle);
        QFETCH(std::optional<QString>, crossOver);
        QFETCH(QString, expectedStart);
        DiagnosticsInput in = input();
        in.bundleInfo = bundle;
        in.crossOverVersion = crossOver;
        in.operatingSystem = u"X"_s;
        in.game = GameKind::ats;
        in.microphoneStatus = 2;
        QCOMPARE(DiagnosticsModel::summary(in),
                 u"Korvane Mac Launcher diagnostics\n"_s + expectedStart
                     + u"Game: American Truck Simulator\nProfile: D3DMetal + MSync / DX11\nMicrophone: 2\n"
                       u"CrossOver Wine: OK\nWindows Steam: MISSING"_s + note);
    }

    void previewHoldsRedactedTails()
    {
        DiagnosticsInput in = input();
        const QString filler(DiagnosticsModel::launcherLogCharacters - 8, u'x');
        in.logText = u"FIRST"_s + filler + u"LAST"_s; // one character over the bound
        const QDateTime base(QDate(2026, 2, 1), QTime(10, 0), Qt::UTC);
        writeFile(in.gameLogPath, "00:00:01.000 : Loading " + in.home.toUtf8() + "/Documents/profile.sii\n"
                                  "00:00:02 : [sys] Game started\n");
        writeFile(in.multiplayerLogDirectory + u"/client_old.txt"_s, "old client log\n", base);
        writeFile(in.multiplayerLogDirectory + u"/client_new.txt"_s, "Connected to 10.1.2.3:443\n", base.addSecs(60));
        // Newer, but no client log: wrong extension, wrong case, wrong prefix.
        for (const QString &name : {u"/client_newest.log"_s, u"/Client_upper.txt"_s, u"/server_x.txt"_s})
            writeFile(in.multiplayerLogDirectory + name, "not the client log\n", base.addSecs(120));

        DiagnosticsModel model(m_panels, &m_desktop, m_home->paths.temporary);
        QSignalSpy previewChanged(&model, &DiagnosticsModel::previewChanged);
        const QString preview = prepared(model, in);
        QCOMPARE(previewChanged.count(), 1);
        QCOMPARE(preview, DiagnosticsModel::summary(in)
                              + u"\n\n--- Launcher ---\nIRST"_s + filler + u"LAST"
                                u"\n\n--- Game ---\n[REDACTED: potentially identifying line]\n[IP] : [sys] Game started\n"
                                u"\n\n--- Multiplayer client ---\nConnected to [IP]\n"_s);
    }

    void missingLogsAreUnavailable()
    {
        DiagnosticsInput in = input();
        in.logText.clear();
        QDir().mkpath(in.multiplayerLogDirectory + u"/client_dir.txt"_s); // a folder that looks like a log
        DiagnosticsModel model(m_panels, &m_desktop, m_home->paths.temporary);
        const QString preview = prepared(model, in);
        QVERIFY2(preview.endsWith(u"\n\n--- Launcher ---\n\n\n--- Game ---\n[unavailable]\n\n--- Multiplayer client ---\n[unavailable]"_s),
                 qPrintable(preview.right(200)));
    }

    // What the screen shows of a real model: its game, its checklist in order, its log
    // locations, its console, and the machine as the model's context describes it.
    void preparedFromTheLauncherModel()
    {
        LauncherRig rig;
        rig.microphone.status = MicrophoneAuthorization::denied;
        rig.system.info = {{u"CFBundleShortVersionString"_s, u"3.1.4"_s}, {u"CFBundleVersion"_s, u"159"_s}};
        rig.system.operatingSystem = u"Version 15.0 (Build 24A335)"_s;
        rig.system.crossOver = u"25.1"_s;
        LauncherModel &launcher = rig.start();
        launcher.appendLog(u"client said hello from "_s + rig.home.paths.home + u"/x\n"_s);

        const DiagnosticsInput input = diagnosticsInput(launcher);
        QCOMPARE(input.game, launcher.game());
        QCOMPARE(input.checks.size(), launcher.checks().size());
        for (qsizetype i = 0; i < input.checks.size(); ++i) {
            QCOMPARE(input.checks.at(i).title, launcher.checks().at(i).title);
            QCOMPARE(input.checks.at(i).ok, launcher.checks().at(i).ok);
        }
        QCOMPARE(input.gameLogPath, launcher.gameLogPath());
        QCOMPARE(input.multiplayerLogDirectory, launcher.multiplayerLogDirectory());
        QCOMPARE(input.home, rig.home.paths.home);

        DiagnosticsModel model(m_panels, &m_desktop, rig.home.paths.temporary);
        model.prepare(input);
        QTRY_VERIFY_WITH_TIMEOUT(!model.busy(), 30000);
        QVERIFY(model.preview().startsWith(u"Korvane Mac Launcher diagnostics\nVersion: 3.1.4 (159)\n"
                                           u"macOS: Version 15.0 (Build 24A335)\nCrossOver: 25.1\n"_s));
        QVERIFY(model.preview().contains(u"\nMicrophone: 2\n"_s));
        QVERIFY(model.preview().contains(u"client said hello from [PATH]\n"_s));
        QVERIFY(!model.preview().contains(rig.home.paths.home + u"/x"_s));
    }

    void exportRefusedWithoutPreviewOrWhileBusy()
    {
        m_panels.answers = {m_home->root() + u"/never.zip"_s};
        DiagnosticsModel model(m_panels, &m_desktop, m_home->paths.temporary);
        model.exportArchive(); // no preview yet
        model.prepare(input());
        QVERIFY(model.busy());
        model.exportArchive(); // still preparing
        QVERIFY(m_panels.requests.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!model.busy(), 30000);
    }

    void exportSavesThePreview_data()
    {
        QTest::addColumn<std::optional<QString>>("destination");
        QTest::addColumn<std::optional<QString>>("resultKey");
        QTest::addColumn<bool>("revealed");
        using Text = std::optional<QString>;
        QTest::newRow("saved") << Text(u"out/Korvane-Diagnostics.zip"_s) << Text(u"diagnostics.saved"_s) << true;
        QTest::newRow("destination cannot be written") << Text(u"missing/folder/x.zip"_s) << Text(u"diagnostics.failed"_s) << false;
        QTest::newRow("cancelled") << Text() << Text() << false;
    }

    void exportSavesThePreview()
    {
        QFETCH(std::optional<QString>, destination);
        QFETCH(std::optional<QString>, resultKey);
        QFETCH(bool, revealed);
        QDir().mkpath(m_home->root() + u"/out"_s);
        const QString chosen = destination ? m_home->root() + u'/' + *destination : QString();
        if (destination)
            m_panels.answers = {chosen};
        DiagnosticsModel model(m_panels, &m_desktop, m_home->paths.temporary);
        prepared(model, input());
        QSignalSpy resultChanged(&model, &DiagnosticsModel::resultChanged);

        model.exportArchive();
        QCOMPARE(m_panels.saveRequests(), QStringList{u"Korvane-Diagnostics.zip|zip"_s});
        QCOMPARE(model.busy(), destination.has_value());
        QTRY_VERIFY_WITH_TIMEOUT(!model.busy(), 30000);

        QCOMPARE(model.result().has_value(), resultKey.has_value());
        if (resultKey) {
            QCOMPARE(model.result()->key, *resultKey);
            QCOMPARE(resultChanged.count(), 1);
        }
        QCOMPARE(m_desktop.revealed, revealed ? QStringList{chosen} : QStringList());
        if (revealed) {
            QProcess unzip;
            unzip.start(u"unzip"_s, {u"-p"_s, chosen, u"Diagnostics/report.txt"_s});
            QVERIFY(unzip.waitForFinished(60000));
            QCOMPARE(QString::fromUtf8(unzip.readAllStandardOutput()), model.preview());
        }
        QVERIFY(QDir(m_home->paths.temporary).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());

        // A new preparation clears the result of the last save.
        prepared(model, input());
        QVERIFY(!model.result().has_value());
    }

    void newerPreparationWins()
    {
        DiagnosticsModel model(m_panels, &m_desktop, m_home->paths.temporary);
        DiagnosticsInput first = input();
        first.logText = u"first run\n"_s;
        DiagnosticsInput second = input();
        second.logText = u"second run\n"_s;
        model.prepare(first);
        model.prepare(second);
        QTRY_VERIFY_WITH_TIMEOUT(!model.busy(), 30000);
        // Both results have been delivered; the first must not have replaced the second.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QVERIFY(model.preview().contains(u"second run"_s));
    }
};

QTEST_GUILESS_MAIN(TestDiagnosticsModel)
#include "tst_diagnosticsmodel.moc"
