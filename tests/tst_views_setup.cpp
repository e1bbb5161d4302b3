// The setup assistant, the microphone introduction and the tools panel, driven by clicks.
#include "KorvaneMacLauncher/views/checkfixrow.h"
#include "KorvaneMacLauncher/views/microphoneonboarding.h"
#include "KorvaneMacLauncher/views/setupsupportview.h"
#include "KorvaneMacLauncher/views/setupwizard.h"
#include "preferences/languagesettings.h"
#include "support/bottletree.h"
#include "support/launcherrig.h"
#include "support/viewprobe.h"
#include "updates/appupdates.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ViewProbe;

namespace {

// Everything a launch needs, in the rig's sandbox.
void makeReady(LauncherRig &rig)
{
    BottleTree::installCrossOver(rig.cxRoot);
    BottleTree::installGame(BottleTree::makeBottle(rig.bottles, u"Steam"_s, true), GameKind::ets2);
    BottleTree::installClient(rig.resources);
}

} // namespace

class TestSetupViews : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void wizardLastStep_data()
    {
        QTest::addColumn<bool>("ready");
        QTest::addColumn<MicrophoneAuthorization>("microphone");
        QTest::addColumn<bool>("finishes");
        QTest::newRow("ready, microphone allowed") << true << MicrophoneAuthorization::authorized << true;
        QTest::newRow("ready, microphone undecided") << true << MicrophoneAuthorization::notDetermined << false;
        QTest::newRow("ready, microphone denied") << true << MicrophoneAuthorization::denied << false;
        QTest::newRow("no bottle, microphone allowed") << false << MicrophoneAuthorization::authorized << false;
    }
    void wizardLastStep()
    {
        QFETCH(bool, ready);
        QFETCH(MicrophoneAuthorization, microphone);
        QFETCH(bool, finishes);
        LauncherRig rig;
        if (ready)
            makeReady(rig);
        rig.microphone.status = microphone;
        LauncherModel &model = rig.start();
        LanguageSettings language(*rig.home.defaults);
        SetupWizard wizard(model, language, *rig.home.defaults);
        QSignalSpy closed(&wizard, &SetupWizard::closeRequested);

        QVERIFY(!button(wizard, L("setup.back")));
        QVERIFY(shows(wizard, u"1 / 4"_s));
        for (int step = 1; step <= 3; ++step) {
            QTest::mouseClick(button(wizard, L("setup.next")), Qt::LeftButton);
            QCOMPARE(wizard.step(), step);
            QVERIFY(button(wizard, L("setup.back")));
            if (step == 2)
                continue;
            // The checklist steps: every red row with its own fix, a green one with none.
            QList<CheckFixRow *> rows;
            for (CheckFixRow *row : wizard.findChildren<CheckFixRow *>())
                if (row->isVisibleTo(&wizard))
                    rows.append(row);
            const QList<EnvironmentCheck> checks = model.checks();
            QCOMPARE(rows.size(), checks.size());
            for (qsizetype index = 0; index < rows.size(); ++index)
                QCOMPARE(rows.at(index)->fixButton()->isVisibleTo(rows.at(index)), !checks.at(index).ok);
            if (!ready && step == 1) {
                QTest::mouseClick(rows.at(1)->fixButton(), Qt::LeftButton);
                QCOMPARE(rig.panels.requests.size(), 1);
                QCOMPARE(rig.panels.requests.at(0).title, L("CrossOver-palack kiválasztása"));
            }
        }
        QVERIFY(shows(wizard, u"4 / 4"_s));
        QVERIFY(!button(wizard, L("setup.next")));
        QVERIFY(shows(wizard, L(finishes ? "setup.ready" : "setup.incomplete")));
        QPushButton *last = button(wizard, L(finishes ? "setup.finish" : "setup.recheck"));
        QVERIFY(last);
        QTest::mouseClick(last, Qt::LeftButton);
        QCOMPARE(closed.size(), finishes ? 1 : 0);
        QCOMPARE(wizard.step(), finishes ? 3 : 1);
        QCOMPARE(rig.home.defaults->object(SetupWizard::completedKey), finishes ? QVariant(1) : QVariant());
    }

    void wizardLaterStoresNothingAndBackGoesBack()
    {
        LauncherRig rig;
        LauncherModel &model = rig.start();
        LanguageSettings language(*rig.home.defaults);
        SetupWizard wizard(model, language, *rig.home.defaults);
        QSignalSpy closed(&wizard, &SetupWizard::closeRequested);
        QTest::mouseClick(button(wizard, L("setup.next")), Qt::LeftButton);
        QTest::mouseClick(button(wizard, L("setup.next")), Qt::LeftButton);
        QTest::mouseClick(button(wizard, L("setup.back")), Qt::LeftButton);
        QCOMPARE(wizard.step(), 1);
        QVERIFY(shows(wizard, L("Nincs palack")));
        QTest::mouseClick(button(wizard, L("setup.later")), Qt::LeftButton);
        QCOMPARE(closed.size(), 1);
        QVERIFY(!rig.home.defaults->contains(SetupWizard::completedKey));
    }

    void wizardFollowsLanguageAndPermission()
    {
        LauncherRig rig;
        makeReady(rig);
        LauncherModel &model = rig.start();
        LanguageSettings language(*rig.home.defaults);
        SetupWizard wizard(model, language, *rig.home.defaults);
        const QString english = L("setup.next");
        language.setLanguage(AppLanguage::german);
        QVERIFY(L("setup.next") != english);
        QVERIFY(button(wizard, L("setup.next")));
        for (int step = 1; step <= 3; ++step)
            QTest::mouseClick(button(wizard, L("setup.next")), Qt::LeftButton);
        QVERIFY(button(wizard, L("setup.recheck")));
        // Allowed in System Settings, then back in the launcher.
        rig.microphone.status = MicrophoneAuthorization::authorized;
        becomeActive();
        QVERIFY(button(wizard, L("setup.finish")));
    }

    void onboardingPrimaryAction_data()
    {
        QTest::addColumn<MicrophoneAuthorization>("status");
        QTest::addColumn<QString>("primary");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("authorised") << MicrophoneAuthorization::authorized << u"Kész"_s << u"finished"_s;
        QTest::newRow("denied") << MicrophoneAuthorization::denied << u"Rendszerbeállítások"_s << u"settings"_s;
        QTest::newRow("restricted") << MicrophoneAuthorization::restricted << u"Rendszerbeállítások"_s << u"settings"_s;
        QTest::newRow("undecided, granted") << MicrophoneAuthorization::notDetermined << u"Mikrofon engedélyezése"_s
                                            << u"granted"_s;
        QTest::newRow("undecided, refused") << MicrophoneAuthorization::notDetermined << u"Mikrofon engedélyezése"_s
                                            << u"refused"_s;
    }
    void onboardingPrimaryAction()
    {
        QFETCH(MicrophoneAuthorization, status);
        QFETCH(QString, primary);
        QFETCH(QString, outcome);
        TestHome home;
        home.installLocalization();
        LanguageSettings language(*home.defaults);
        FakeMicrophone microphone;
        microphone.status = status;
        QList<QUrl> opened;
        MicrophoneOnboarding onboarding(language, microphone, [&](const QUrl &url) { opened.append(url); });
        QSignalSpy finished(&onboarding, &MicrophoneOnboarding::finished);

        QTest::mouseClick(button(onboarding, L(primary)), Qt::LeftButton);
        const bool asked = outcome == u"granted"_s || outcome == u"refused"_s;
        QCOMPARE(microphone.questions.size(), asked ? 1 : 0);
        QCOMPARE(opened, outcome == u"settings"_s ? QList<QUrl>{MicrophoneOnboarding::privacySettingsURL} : QList<QUrl>{});
        if (asked) {
            QVERIFY(onboarding.requesting());
            QVERIFY(!button(onboarding, L(primary))->isEnabled());
            microphone.answer(outcome == u"granted"_s);
            QVERIFY(!onboarding.requesting());
        }
        QCOMPARE(finished.size(), outcome == u"finished"_s || outcome == u"granted"_s ? 1 : 0);
        if (outcome == u"refused"_s)
            QVERIFY(button(onboarding, L("Rendszerbeállítások")));
    }

    void onboardingRereadsWhenActiveAndLaterIsOffered()
    {
        TestHome home;
        home.installLocalization();
        LanguageSettings language(*home.defaults);
        FakeMicrophone microphone;
        microphone.status = MicrophoneAuthorization::denied;
        MicrophoneOnboarding onboarding(language, microphone, [](const QUrl &) {});
        QSignalSpy later(&onboarding, &MicrophoneOnboarding::later);
        QVERIFY(!shows(onboarding, L("A mikrofon készen áll.")));
        microphone.status = MicrophoneAuthorization::authorized;
        becomeActive();
        QVERIFY(shows(onboarding, L("A mikrofon készen áll.")));
        QTest::mouseClick(button(onboarding, L("Most nem")), Qt::LeftButton);
        QCOMPARE(later.size(), 1);
        QVERIFY(microphone.questions.isEmpty());
    }

    void supportPanelOffersSetupOnlyWhenIdle()
    {
        LauncherRig rig;
        LauncherModel &model = rig.start();
        LanguageSettings language(*rig.home.defaults);
        AppUpdates updates(AppUpdatesContext{*rig.home.defaults, rig.clock});
        SetupSupportView panel(model, updates, language);
        QSignalSpy setup(&panel, &SetupSupportView::setupRequested);
        QSignalSpy diagnostics(&panel, &SetupSupportView::diagnosticsRequested);
        QTest::mouseClick(button(panel, L("setup.open")), Qt::LeftButton);
        QTest::mouseClick(button(panel, L("diagnostics.open")), Qt::LeftButton);
        QCOMPARE(setup.size(), 1);
        QCOMPARE(diagnostics.size(), 1);
        model.setIsRunning(true);
        QVERIFY(!button(panel, L("setup.open"))->isEnabled());
        QTest::mouseClick(button(panel, L("setup.open")), Qt::LeftButton);
        QCOMPARE(setup.size(), 1);
    }
};

QTEST_MAIN(TestSetupViews)
#include "tst_views_setup.moc"
