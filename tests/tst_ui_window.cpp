// The main window and the application delegate on real widgets: the quick-launch menu and when
// it may act, the first-run sheets, the launch button's paths, the fix beside every red
// checklist row, the console's batching, and the texts of every screen in every language.
#include "KorvaneMacLauncher/appnotifications.h"
#include "KorvaneMacLauncher/views/checkfixrow.h"
#include "KorvaneMacLauncher/consoleview.h"
#include "KorvaneMacLauncher/contentview.h"
#include "KorvaneMacLauncher/gamespage.h"
#include "KorvaneMacLauncher/gameviews.h"
#include "KorvaneMacLauncher/launcherappdelegate.h"
#include "KorvaneMacLauncher/settingspage.h"
#include "KorvaneMacLauncher/windowservices_fake.h"
#include "core/consolelog.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"
#include "support/crossoversandbox.h"
#include "support/launcherrig.h"
#include "updates/appupdates.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDirIterator>
#include <QGroupBox>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(MicrophoneAuthorization)

namespace {

// The window over a rig: no CrossOver unless `ready`, in which case a sandboxed CrossOver with a
// bottle that holds Steam and the game.
struct Window {
    LauncherRig rig;
    std::optional<CrossOverSandbox> sandbox;
    LauncherModel *model = nullptr;
    std::unique_ptr<LanguageSettings> language;
    std::unique_ptr<AppUpdates> updates;
    std::unique_ptr<ServerListModel> servers;
    AppNotifications notifications;
    FakeWindowServices services;
    FakeConfirmationDialog confirmation;
    std::unique_ptr<LauncherAppDelegate> delegate;
    std::unique_ptr<ContentView> view;
    int demoStarts = 0;

    explicit Window(bool ready = false, int setupCompleted = 1, bool onboardingShown = true)
    {
        if (ready) {
            sandbox.emplace(rig.home);
            sandbox->addBottle();
        }
        rig.home.defaults->setInteger(ContentView::setupCompletedVersionKey, setupCompleted);
        rig.home.defaults->setBool(ContentView::microphoneOnboardingShownKey, onboardingShown);
        rig.microphone.status = MicrophoneAuthorization::authorized;
        model = &rig.start();
        language = std::make_unique<LanguageSettings>(*rig.home.defaults);
        updates = std::make_unique<AppUpdates>(AppUpdatesContext{*rig.home.defaults, rig.clock});
        servers = std::make_unique<ServerListModel>(*rig.home.defaults, rig.clock, LauncherRig::service());
        delegate = std::make_unique<LauncherAppDelegate>(services, notifications);
        view = std::make_unique<ContentView>(
            *model, *updates, *servers, model->windowPreferences(), *language, notifications,
            ContentView::Services{*rig.home.defaults, rig.desktop, rig.panels, confirmation, {}, false,
                                  [this] { ++demoStarts; }});
        delegate->setWindow(view.get());
        QObject::connect(view.get(), &ContentView::firstAppeared, view.get(),
                         [this] { delegate->setModel(model); });
    }
    ~Window() { view.reset(); }

    void show()
    {
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    }
    QList<bool> dockItems() const
    {
        QList<bool> enabled;
        delegate->dockMenu()->aboutToShow();
        for (QAction *item : delegate->dockMenu()->actions())
            if (item->data().isValid())
                enabled.append(item->isEnabled());
        return enabled;
    }
    // Every text a user can read or hear on the window and its open sheets.
    QStringList texts() const
    {
        QStringList found;
        QWidgetList widgets = view->findChildren<QWidget *>();
        widgets.append(view.get());
        for (QWidget *widget : std::as_const(widgets)) {
            if (auto *label = qobject_cast<QLabel *>(widget))
                found.append(label->text());
            if (auto *button = qobject_cast<QAbstractButton *>(widget))
                found.append(button->text());
            if (auto *box = qobject_cast<QGroupBox *>(widget))
                found.append(box->title());
            if (auto *edit = qobject_cast<QPlainTextEdit *>(widget))
                found.append(edit->placeholderText());
            found.append(widget->accessibleName());
            found.append(widget->toolTip());
        }
        for (QAction *item : delegate->dockMenu()->actions())
            found.append(item->text());
        found.removeAll(QString());
        return found;
    }
};

} // namespace

class TestWindow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The quick-launch items are on only once the window has appeared and while the model is
    // idle; a quick launch that still arrives when they are off does nothing.
    void dockMenu_data()
    {
        QTest::addColumn<bool>("appeared");
        QTest::addColumn<QString>("busy");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("before the window appears") << false << QString() << false;
        QTest::newRow("idle") << true << QString() << true;
        QTest::newRow("a launch runs") << true << u"running"_s << false;
        QTest::newRow("an update session") << true << u"update"_s << false;
        QTest::newRow("the setup wizard") << true << u"setup"_s << false;
        QTest::newRow("a version prompt pending") << true << u"compatibility"_s << false;
    }
    void dockMenu()
    {
        QFETCH(bool, appeared);
        QFETCH(QString, busy);
        QFETCH(bool, enabled);
        Window window;
        if (appeared)
            window.show();
        if (busy == "running"_L1)
            window.model->setIsRunning(true);
        if (busy == "update"_L1)
            window.model->setUpdateSessionActive(true);
        if (busy == "setup"_L1)
            window.model->setSetupActive(true);
        if (busy == "compatibility"_L1)
            window.model->setPendingCompatibility(CompatibilityResult{});
        QCOMPARE(window.dockItems(), (QList<bool>{enabled, enabled}));

        QSignalSpy posted(&window.notifications, &AppNotifications::launcherQuickLaunch);
        window.delegate->dockMenu()->actions().at(1)->trigger();
        QCOMPARE(posted.size(), enabled ? 1 : 0);
        if (enabled) {
            QCOMPARE(posted.at(0).at(0).value<GameKind>(), GameKind(GameKind::ats));
            QCOMPARE(window.services.activations, 1);
        }
    }

    void quickLaunchTags_data()
    {
        QTest::addColumn<int>("tag");
        QTest::addColumn<int>("posted");
        QTest::newRow("ets2") << 0 << 1;
        QTest::newRow("ats") << 1 << 1;
        QTest::newRow("tag 2, out of range") << 2 << 0;
        QTest::newRow("negative tag") << -1 << 0;
    }
    void quickLaunchTags()
    {
        QFETCH(int, tag);
        QFETCH(int, posted);
        Window window;
        window.show();
        QSignalSpy spy(&window.notifications, &AppNotifications::launcherQuickLaunch);
        window.delegate->quickLaunch(tag);
        QCOMPARE(spy.size(), posted);
        QCOMPARE(window.services.unhides, posted);
    }

    // First start: the wizard, and while it is up the model counts as busy; afterwards the
    // microphone introduction only while the permission is undecided.
    void firstRun_data()
    {
        QTest::addColumn<int>("setupCompleted");
        QTest::addColumn<bool>("onboardingShown");
        QTest::addColumn<MicrophoneAuthorization>("microphone");
        QTest::addColumn<bool>("setup");
        QTest::addColumn<bool>("intro");
        const auto undecided = MicrophoneAuthorization::notDetermined;
        QTest::newRow("very first start") << 0 << false << undecided << true << false;
        QTest::newRow("set up, microphone undecided") << 1 << false << undecided << false << true;
        QTest::newRow("set up, microphone denied") << 1 << false << MicrophoneAuthorization::denied << false << false;
        QTest::newRow("set up, introduction seen") << 1 << true << undecided << false << false;
    }
    void firstRun()
    {
        QFETCH(int, setupCompleted);
        QFETCH(bool, onboardingShown);
        QFETCH(MicrophoneAuthorization, microphone);
        QFETCH(bool, setup);
        QFETCH(bool, intro);
        Window window(false, setupCompleted, onboardingShown);
        window.rig.microphone.status = microphone;
        window.show();
        QTest::qWait(50);
        QCOMPARE(window.view->showSetup(), setup);
        QCOMPARE(window.model->setupActive(), setup);
        QCOMPARE(window.view->showMicrophoneIntro(), intro);
        if (setup) {
            QCOMPARE(window.dockItems(), (QList<bool>{false, false}));
            window.view->setupSheet()->reject();
            QTRY_VERIFY(!window.view->showSetup());
            QVERIFY(!window.model->setupActive());
        }
        if (intro) {
            window.view->microphoneIntroSheet()->reject();
            QTRY_VERIFY(window.rig.home.defaults->boolValue(ContentView::microphoneOnboardingShownKey));
        }
    }

    // Ctrl+Return with a red checklist: the first missing requirement, the settings page and a
    // session closed as "missing_requirement".
    void launchWithChecklistIncomplete()
    {
        Window window;
        window.show();
        QTest::keyClick(window.view.get(), Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(window.view->page(), LauncherPage::settings);
        QCOMPARE(window.model->issue(), std::optional<LaunchIssue>(LaunchIssue::crossover));
        const auto session = window.model->activity().latest();
        QVERIFY(session);
        QCOMPARE(session->stage, LaunchStage::failed);
        const auto failure = window.model->activity().failure();
        QVERIFY(failure);
        QCOMPARE(failure->reason, u"missing_requirement"_s);
    }

    // Without CrossOver the window says so and offers the demo in one click; with it, neither.
    void demoOffer_data()
    {
        QTest::addColumn<bool>("crossOver");
        QTest::newRow("no CrossOver") << false;
        QTest::newRow("CrossOver installed") << true;
    }
    void demoOffer()
    {
        QFETCH(bool, crossOver);
        Window window(crossOver);
        window.show();
        QPushButton *offer = nullptr;
        for (QPushButton *button : window.view->findChildren<QPushButton *>())
            if (button->text() == L("demo.start"))
                offer = button;
        QVERIFY(offer);
        QCOMPARE(offer->isVisible(), !crossOver);
        if (!crossOver) {
            QTest::mouseClick(offer, Qt::LeftButton);
            QCOMPARE(window.demoStarts, 1);
        }
    }

    // An undecided microphone: the introduction instead of a launch; the launch follows only
    // when the introduction ends with the permission.
    void microphoneGate_data()
    {
        QTest::addColumn<bool>("granted");
        QTest::newRow("granted in the introduction") << true;
        QTest::newRow("still undecided") << false;
    }
    void microphoneGate()
    {
        QFETCH(bool, granted);
        Window window(true);
        window.rig.microphone.status = MicrophoneAuthorization::notDetermined;
        window.show();
        QVERIFY(window.model->isReady());
        window.view->gamesPage()->launchButton()->click();
        QVERIFY(window.view->showMicrophoneIntro());
        QVERIFY(window.view->launchAfterPermission());
        QVERIFY(!window.model->activity().current());

        if (granted)
            window.rig.microphone.status = MicrophoneAuthorization::authorized;
        window.view->microphoneIntroSheet()->accept();
        QTRY_VERIFY(!window.view->showMicrophoneIntro());
        QVERIFY(!window.view->launchAfterPermission());
        QCOMPARE(bool(window.model->activity().current()), granted);
        window.model->stopBottle();
    }

    // A quick launch is ignored while a sheet is up, and so is a notification without a game.
    void quickLaunchIgnored_data()
    {
        QTest::addColumn<bool>("diagnostics");
        QTest::addColumn<QVariant>("object");
        QTest::newRow("diagnostics sheet open") << true << QVariant::fromValue(GameKind(GameKind::ats));
        QTest::newRow("object is not a game") << false << QVariant(u"American Truck Simulator"_s);
        QTest::newRow("accepted") << false << QVariant::fromValue(GameKind(GameKind::ats));
    }
    void quickLaunchIgnored()
    {
        QFETCH(bool, diagnostics);
        QFETCH(QVariant, object);
        Window window;
        window.show();
        window.view->setPage(LauncherPage::console);
        if (diagnostics)
            window.view->presentDiagnostics();
        Q_EMIT window.notifications.launcherQuickLaunch(object);
        const bool accepted = qstrcmp(QTest::currentDataTag(), "accepted") == 0;
        QCOMPARE(window.model->game(), accepted ? GameKind(GameKind::ats) : GameKind(GameKind::ets2));
        QCOMPARE(window.view->page(), accepted ? LauncherPage::games : LauncherPage::console);
    }

    void keyboard()
    {
        Window window;
        window.show();
        const LauncherPage order[] = {LauncherPage::settings, LauncherPage::console, LauncherPage::servers,
                                      LauncherPage::updates, LauncherPage::games};
        const Qt::Key keys[] = {Qt::Key_2, Qt::Key_3, Qt::Key_4, Qt::Key_5, Qt::Key_1};
        for (int index = 0; index < 5; ++index) {
            QTest::keyClick(window.view.get(), keys[index], Qt::ControlModifier);
            QCOMPARE(window.view->page(), order[index]);
        }
        QSignalSpy advanced(&window.notifications, &AppNotifications::showLauncherAdvanced);
        QTest::keyClick(window.view.get(), Qt::Key_Comma, Qt::ControlModifier);
        QCOMPARE(advanced.size(), 1);
        QCOMPARE(window.view->page(), LauncherPage::settings);
    }

    // Every red row carries its own action; a passing row none.
    void checklistFixes()
    {
        Window window;
        window.show();
        window.view->setPage(LauncherPage::settings);
        const auto rows = window.view->settingsPage()->checklist()->findChildren<CheckFixRow *>();
        QCOMPARE(rows.size(), 5);
        using Fix = CheckFixRow::Fix;
        const QList<Fix> expected{Fix::getCrossOver, Fix::chooseBottle, Fix::openSteam, Fix::chooseGameDirectory,
                                  Fix::reinstallLauncher};
        for (qsizetype index = 0; index < rows.size(); ++index) {
            QCOMPARE(rows.at(index)->fix(), expected.at(index));
            QVERIFY(rows.at(index)->fixButton()->isVisibleTo(rows.at(index)));
        }
        // The bottle row asks for a bottle folder, the game row for the game's folder.
        QTest::mouseClick(rows.at(1)->fixButton(), Qt::LeftButton);
        QTest::mouseClick(rows.at(3)->fixButton(), Qt::LeftButton);
        QCOMPARE(window.rig.panels.requests.size(), 2);
        QCOMPARE(window.rig.panels.requests.at(0).title, L("CrossOver-palack kiválasztása"));
        QCOMPARE(window.rig.panels.requests.at(1).title, L("%@ mappájának kiválasztása", u"Euro Truck Simulator 2"_s));

        Window ready(true);
        ready.show();
        for (CheckFixRow *row : ready.view->settingsPage()->checklist()->findChildren<CheckFixRow *>()) {
            QCOMPARE(row->fix(), Fix::none);
            QVERIFY(!row->fixButton()->isVisibleTo(row));
        }
    }

    // Pieces arrive in batches; a flood larger than the log keeps ends as exactly the log.
    void consoleBatches()
    {
        Window window;
        window.show();
        window.view->setPage(LauncherPage::console);
        ConsoleView *console = window.view->consoleView();
        window.model->clearLog();
        QTRY_COMPARE(console->log()->toPlainText(), window.model->console().text());
        window.model->appendLog(u"first line\n"_s);
        window.model->appendLog(u"progress 50%\rprogress 100%\r\n"_s);
        QVERIFY(!console->log()->toPlainText().contains(u"first line"_s));
        QTRY_VERIFY(console->log()->toPlainText().endsWith(u"first line\nprogress 50%\nprogress 100%\n"_s));

        QString flood;
        for (int line = 0; line < 20000; ++line)
            flood += u"flood line %1\n"_s.arg(line);
        window.model->appendLog(flood);
        QTRY_COMPARE(console->log()->toPlainText(), window.model->console().text());
        QScrollBar *bar = console->log()->verticalScrollBar();
        QCOMPARE(bar->value(), bar->maximum());

        console->followCheck()->setChecked(false);
        bar->setValue(0);
        window.model->appendLog(u"more\n"_s);
        QTRY_VERIFY(console->log()->toPlainText().endsWith(u"more\n"_s));
        QCOMPARE(bar->value(), 0);
    }

    // No screen shows a key instead of its text, in any language, and every key the window's
    // code looks up exists in all three tables.
    void texts_data()
    {
        QTest::addColumn<AppLanguage>("language");
        for (AppLanguage language : AppLanguage::allCases())
            QTest::newRow(qPrintable(language.rawValue())) << language;
    }
    void texts()
    {
        QFETCH(AppLanguage, language);
        Window window(false, 0, false);
        window.language->setLanguage(language);
        window.model->setIssue(LaunchIssue::steam);
        window.show();
        for (int page = 0; page < 5; ++page)
            window.view->pageWidget(LauncherPage(page));
        window.view->presentDiagnostics();
        const StringTables &tables = L10n::installedTables();
        const auto table = tables.table(language.rawValue());
        QSet<QString> keys;
        for (const QString &code : {u"en"_s, u"de"_s, u"hu"_s})
            for (const QString &key : tables.table(code).keys())
                keys.insert(key);
        const QRegularExpression dotted(u"^[a-z]+(\\.[a-zA-Z]+)+$"_s);
        for (QString text : window.texts()) {
            const QString raw = text;
            QVERIFY2(!dotted.match(text).hasMatch(), qPrintable(text));
            // A text that is a key shows as such only when the language's table has it.
            if (keys.contains(raw))
                QVERIFY2(table.contains(raw), qPrintable(raw));
        }

        const QRegularExpression lookup(u"\\bL\\(\"((?:[^\"\\\\]|\\\\.)+)\""_s);
        QDirIterator sources(QStringLiteral(KVN_SOURCE_DIR "/KorvaneMacLauncher"), {u"*.cpp"_s, u"*.mm"_s},
                             QDir::Files, QDirIterator::Subdirectories);
        int looked = 0;
        while (sources.hasNext()) {
            QFile file(sources.next());
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QString code = QString::fromUtf8(file.readAll());
            for (const QRegularExpressionMatch &match : lookup.globalMatch(code)) {
                const QString key = match.captured(1).replace(u"\\n"_s, u"\n"_s);
                QVERIFY2(table.contains(key), qPrintable(file.fileName() + u": "_s + key));
                ++looked;
            }
        }
        QVERIFY(looked > 50);
    }

    // Switching the language changes the window at once.
    void liveLanguage()
    {
        Window window;
        window.show();
        QPushButton *launch = window.view->gamesPage()->launchButton();
        window.language->setLanguage(AppLanguage::english);
        QCOMPARE(launch->text(), u"Launch Korvane"_s);
        window.language->setLanguage(AppLanguage::german);
        QCOMPARE(launch->text(), u"Korvane starten"_s);
        QCOMPARE(window.view->locale().language(), QLocale::German);
    }

    // Both window sizes the launcher promises keep every page reachable: the page scrolls
    // instead of squeezing its controls.
    void smallWindow()
    {
        Window window;
        window.show();
        window.view->resize(900, 640);
        QTest::qWait(20);
        QCOMPARE(window.view->size(), QSize(900, 640));
        for (int page = 0; page < 2; ++page) {
            auto *area = qobject_cast<QScrollArea *>(window.view->pageWidget(LauncherPage(page)));
            QVERIFY(area);
            QVERIFY2(area->widget()->minimumSizeHint().width() <= area->viewport()->width() + 1,
                     qPrintable(u"page %1: %2 > %3"_s.arg(page).arg(area->widget()->minimumSizeHint().width())
                                    .arg(area->viewport()->width())));
        }
    }
};

QTEST_MAIN(TestWindow)
#include "tst_ui_window.moc"
