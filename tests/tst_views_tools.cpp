// The activity panel with its report sheet, the update settings, the game profile panel and the
// update centre, driven by clicks.
#include "KorvaneMacLauncher/views/reportviews.h"
#include "KorvaneMacLauncher/views/toolviews.h"
#include "KorvaneMacLauncher/views/updateviews.h"
#include "platform/bundleinfo.h"
#include "platform/updaterengine_fake.h"
#include "platform/recordcoding.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"
#include "sessions/diagnosticsmodel.h"
#include "support/httpsserver.h"
#include "support/launcherrig.h"
#include "support/viewprobe.h"
#include "updates/appupdates.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ViewProbe;

namespace {

// A click on the box itself: only the box and its text take clicks, not the row's whole width.
void tick(QCheckBox *box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(4, box->height() / 2));
}

FailureReport storedReport()
{
    return {QUuid::createUuid(), QDateTime(QDate(2026, 1, 1), QTime(11, 0), Qt::UTC), u"Euro Truck Simulator 2"_s,
            LaunchStage::starting, u"exit_1"_s, u"the earlier report"_s};
}

struct Rig {
    LauncherRig launcher;
    LanguageSettings language{*launcher.home.defaults};
    FakeConfirmationDialog confirmation;
    ReportDestination destination{LauncherRig::service(), {}, launcher.home.paths.temporary};

    LauncherModel &start() { return launcher.start(); }
};

} // namespace

class TestToolViews : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void captureWithoutSessions_data()
    {
        QTest::addColumn<bool>("earlier");
        QTest::newRow("earlier report") << true;
        QTest::newRow("no report") << false;
    }
    void captureWithoutSessions()
    {
        QFETCH(bool, earlier);
        Rig rig;
        const FailureReport report = storedReport();
        if (earlier)
            rig.launcher.home.defaults->setObject(SessionActivity::failureKey, *report.toJson());
        SessionActivity &activity = rig.start().activity();
        ActivityPanel panel(activity, rig.language, rig.confirmation, rig.launcher.panels, rig.destination);
        QVERIFY(shows(panel, L("activity.empty")));
        QCOMPARE(button(panel, L("report.last")) != nullptr, earlier);
        QTest::mouseClick(button(panel, L("report.capture")), Qt::LeftButton);
        QCOMPARE(activity.failure(), earlier ? std::optional(report) : std::nullopt);
        QCOMPARE(panel.reportView() != nullptr, earlier);
        if (earlier)
            QCOMPARE(panel.reportView()->findChild<QPlainTextEdit *>()->toPlainText(), u"the earlier report"_s);
    }

    void clearAsksFirst_data()
    {
        QTest::addColumn<bool>("confirmed");
        QTest::newRow("declined") << false;
        QTest::newRow("confirmed") << true;
    }
    void clearAsksFirst()
    {
        QFETCH(bool, confirmed);
        Rig rig;
        SessionActivity &activity = rig.start().activity();
        ActivityPanel panel(activity, rig.language, rig.confirmation, rig.launcher.panels, rig.destination);
        panel.show();
        tick(panel.findChild<QCheckBox *>());
        QVERIFY(activity.keepHistory());
        for (int attempt = 0; attempt < 2; ++attempt) {
            activity.begin(GameKind::ets2);
            activity.finish(LaunchStage::failed, u"exit_1"_s);
        }
        QCOMPARE(activity.history().size(), 2);
        QCOMPARE(panel.findChildren<QLabel *>(u"session"_s).size(), 2);
        rig.confirmation.answer = confirmed;
        QTest::mouseClick(button(panel, L("activity.clear")), Qt::LeftButton);
        QCOMPARE(rig.confirmation.questions.size(), 1);
        QCOMPARE(rig.confirmation.questions.first().message, L("activity.clear.help"));
        QCOMPARE(activity.history().size(), confirmed ? 0 : 2);
        QCOMPARE(activity.failure().has_value(), !confirmed);
        QCOMPARE(panel.findChildren<QLabel *>(u"session"_s).size(), confirmed ? 0 : 2);
    }

    void reportSendsOnceWithConsent()
    {
        Rig rig;
        LocalHttpsServer service;
        const FailureReport report = storedReport();
        const QString id = RecordCoding::uuidText(report.id);
        auto receipt = [&](const QString &status) {
            return ScriptedResponse::json(QJsonDocument(QJsonObject{{u"status"_s, status}, {u"id"_s, id}}).toJson());
        };
        service.respond(u"/korvane/api/reports"_s, ScriptedResponse::json("{}", 500));
        ReportDestination destination{service.configuration(), {{BundleInfo::reportDeliveryEnabledKey, true}},
                                      rig.launcher.home.paths.temporary};
        FailureReportView view(report, rig.language, rig.confirmation, rig.launcher.panels, destination);
        view.show();
        QPushButton *send = button(view, L("report.send"));
        auto *consent = view.findChild<QCheckBox *>();
        QVERIFY(!send->isEnabled());
        tick(consent);
        QVERIFY(send->isEnabled());
        tick(consent);
        QVERIFY(!send->isEnabled());
        tick(consent);

        // Declined confirmation: nothing leaves.
        rig.confirmation.answer = false;
        QTest::mouseClick(send, Qt::LeftButton);
        QCOMPARE(service.requestCount(u"/korvane/api/reports"_s), 0);
        rig.confirmation.answer = true;

        QTest::mouseClick(send, Qt::LeftButton);
        QVERIFY(view.busy());
        QVERIFY(!send->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(!view.busy(), 20'000);
        QCOMPARE(view.result(), LocalizedMessage("report.failed", {id}));
        QVERIFY(send->isEnabled());

        service.respond(u"/korvane/api/reports"_s, receipt(u"accepted"_s));
        view.findChild<QPlainTextEdit *>()->setPlainText(u"edited text"_s);
        QTest::mouseClick(send, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!view.busy(), 20'000);
        QCOMPARE(view.result(), LocalizedMessage("report.sent", {id}));
        QVERIFY(shows(view, L("report.sent", id)));
        QVERIFY(service.requests().last().body.contains("edited text"));
        QVERIFY(!send->isEnabled());
        QTest::mouseClick(send, Qt::LeftButton);
        QCOMPARE(service.requestCount(u"/korvane/api/reports"_s), 2);
    }

    void reportWithoutDeliveryOnlySaves()
    {
        Rig rig;
        FailureReportView view(storedReport(), rig.language, rig.confirmation, rig.launcher.panels, rig.destination);
        QVERIFY(!button(view, L("report.send")));
        QVERIFY(shows(view, L("report.unconfigured")));
        const QString zip = rig.launcher.home.root() + u"/out.zip"_s;
        rig.launcher.panels.answers = {zip};
        QTest::mouseClick(button(view, L("diagnostics.save")), Qt::LeftButton);
        QCOMPARE(rig.launcher.panels.saveRequests(), QStringList{u"Korvane-Failure.zip|zip"_s});
        QVERIFY(QFile::exists(zip));
        QCOMPARE(view.result()->key, u"diagnostics.saved"_s);
    }

    void diagnosticsPreparedWhenShown()
    {
        Rig rig;
        LauncherModel &model = rig.start();
        DiagnosticsView view(model, rig.language, rig.launcher.panels, &rig.launcher.desktop,
                             rig.launcher.home.paths.temporary);
        QSignalSpy closed(&view, &DiagnosticsView::closeRequested);
        QVERIFY(view.diagnostics().preview().isEmpty());
        QVERIFY(!button(view, L("diagnostics.save"))->isEnabled());
        view.show();
        QTRY_VERIFY_WITH_TIMEOUT(!view.diagnostics().preview().isEmpty(), 20'000);
        QCOMPARE(view.findChild<QPlainTextEdit *>()->toPlainText(), view.diagnostics().preview());
        QTRY_VERIFY(button(view, L("diagnostics.save"))->isEnabled());
        QTest::mouseClick(button(view, L("diagnostics.save")), Qt::LeftButton);
        QCOMPARE(rig.launcher.panels.saveRequests(), QStringList{u"Korvane-Diagnostics.zip|zip"_s});
        QTest::mouseClick(button(view, L("tools.close")), Qt::LeftButton);
        QCOMPARE(closed.size(), 1);
    }

    void transferExportsAndWaitsForIdle()
    {
        Rig rig;
        LauncherModel &model = rig.start();
        ServerListModel servers(*rig.launcher.home.defaults, rig.launcher.clock, LauncherRig::service());
        SettingsTransferView view(model, rig.language, servers, rig.confirmation, rig.launcher.panels);
        const QString file = rig.launcher.home.root() + u"/Korvane-Settings.json"_s;
        rig.launcher.panels.answers = {file};
        QTest::mouseClick(button(view, L("transfer.export")), Qt::LeftButton);
        QVERIFY(QFile::exists(file));
        QVERIFY(shows(view, L("transfer.saved")));
        model.setIsRunning(true);
        QVERIFY(!button(view, L("transfer.import"))->isEnabled());
        QVERIFY(!button(view, L("transfer.export"))->isEnabled());
    }

    void betaNeedsConfirmation_data()
    {
        QTest::addColumn<bool>("confirmed");
        QTest::newRow("declined") << false;
        QTest::newRow("confirmed") << true;
    }
    void betaNeedsConfirmation()
    {
        QFETCH(bool, confirmed);
        Rig rig;
        LauncherModel &model = rig.start();
        AppUpdates updates(AppUpdatesContext{*rig.launcher.home.defaults, rig.launcher.clock});
        updates.attach(model);
        MaintenanceView view(model, updates, rig.language, rig.confirmation);
        QVERIFY(shows(view, L("update.unconfigured")));
        auto *channel = view.findChild<QComboBox *>();
        QCOMPARE(channel->currentText(), L("channel.stable"));
        rig.confirmation.answer = confirmed;
        QTest::keyClick(channel, Qt::Key_Down);
        QCOMPARE(rig.confirmation.questions.size(), 1);
        QCOMPARE(rig.confirmation.questions.first().confirmButton, L("channel.enable"));
        QCOMPARE(updates.channel(), confirmed ? UpdateChannel::beta : UpdateChannel::stable);
        QCOMPARE(rig.launcher.home.defaults->object(UpdateChannel::defaultsKey),
                 confirmed ? QVariant(u"beta"_s) : QVariant());
        QCOMPARE(channel->currentText(), L(confirmed ? "channel.beta" : "channel.stable"));
        // Back to stable needs no question.
        QTest::keyClick(channel, Qt::Key_Up);
        QCOMPARE(updates.channel(), UpdateChannel::stable);
        QCOMPARE(rig.confirmation.questions.size(), 1);
    }

    // A release the Linux updater found waits for the install button; a tree the package
    // manager installed says where its updates come from instead.
    void installButtonAndSystemUpdates_data()
    {
        QTest::addColumn<bool>("systemManaged");
        QTest::newRow("own tree") << false;
        QTest::newRow("package manager") << true;
    }
    void installButtonAndSystemUpdates()
    {
        QFETCH(bool, systemManaged);
        Rig rig;
        LauncherModel &model = rig.start();
        AppUpdatesContext context{*rig.launcher.home.defaults, rig.launcher.clock,
                                  {{BundleInfo::feedURLKey, u"https://updates.korvane.example/appcast.xml"_s},
                                   {BundleInfo::publicEDKeyKey, QString::fromLatin1(QByteArray(32, 'k').toBase64())}}};
        FakeUpdaterEngine *engine = nullptr;
        context.engines = [&engine](UpdaterDelegate &delegate, const QVariantMap &) {
            auto made = std::make_unique<FakeUpdaterEngine>(delegate);
            engine = made.get();
            return made;
        };
        context.systemManaged = systemManaged;
        AppUpdates updates(context);
        updates.attach(model);
        MaintenanceView view(model, updates, rig.language, rig.confirmation);
        view.show();
        QCOMPARE(shows(view, L("update.system")), systemManaged);
        QCOMPARE(shows(view, L("update.unconfigured")), false);
        if (systemManaged) {
            QVERIFY(!engine);
            return;
        }
        const QString install = L("update.install", u"1.1.0"_s);
        QVERIFY(!button(view, L("update.install", QString())));
        engine->found = true;
        updates.didFindValidUpdate(u"1.1.0"_s);
        QVERIFY(button(view, install));
        QTest::mouseClick(button(view, install), Qt::LeftButton);
        QCOMPARE(engine->installs, 1);
    }

    void profilePanelEditsAndLocks()
    {
        Rig rig;
        LauncherModel &model = rig.start();
        GameProfileView view(model, model.windowPreferences(), rig.language);
        view.show();
        auto *skip = view.findChild<QCheckBox *>();
        QCOMPARE(skip->text(), L("profiles.skipIntro"));
        const bool before = model.skipIntro();
        tick(skip);
        QCOMPARE(model.skipIntro(), !before);
        QCOMPARE(model.profiles().profile(GameKind::ets2)->skipIntro, !before);
        model.setIsRunning(true);
        QVERIFY(!view.isEnabled());
        model.setIsRunning(false);
        QVERIFY(view.isEnabled());
    }

    void updateCentreNotesFollowLanguage()
    {
        Rig rig;
        const QString resources = rig.launcher.home.root() + u"/notes"_s;
        QDir().mkpath(resources);
        auto write = [&](const QString &name, const QByteArray &text) {
            QFile file(resources + u'/' + name);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(text);
        };
        write(u"CHANGELOG.md"_s, "# Changes\n## 1.2\n- **Faster** start\n## 1.1\n- old\n");
        write(u"CHANGELOG.de.md"_s, "## 1.2\n- Schneller\n");
        AppUpdates updates(AppUpdatesContext{*rig.launcher.home.defaults, rig.launcher.clock});
        UpdateCenterView view(updates, rig.language, resources);
        QCOMPARE(view.notes(), u"## 1.2\n- **Faster** start"_s);
        QVERIFY(shows(view, u"<b>Faster</b>"_s));
        QVERIFY(!shows(view, u"old"_s));
        rig.language.setLanguage(AppLanguage::german);
        QVERIFY(shows(view, u"Schneller"_s));
        rig.language.setLanguage(AppLanguage::hungarian);
        QCOMPARE(view.notes(), L("center.notes.unavailable"));
    }
};

QTEST_MAIN(TestToolViews)
#include "tst_views_tools.moc"
