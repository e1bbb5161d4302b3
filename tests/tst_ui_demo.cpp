// The demo as a newcomer meets it: the whole application over the demo sandbox, one launch
// started from the keyboard, through the version prompt an offline demo shows, to a finished
// session whose client output is on the console page.
#include "KorvaneMacLauncher/consoleview.h"
#include "KorvaneMacLauncher/gameviews.h"
#include "KorvaneMacLauncher/launcherapp.h"
#include "core/demosandbox.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestDemo : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void launchFromTheKeyboard()
    {
        if (!QFileInfo(u"/bin/zsh"_s).isExecutable())
            QSKIP("the launch script needs /bin/zsh");
        QString error;
        const auto demo = DemoSandbox::prepare(QStringLiteral(KVN_BINARY_DIR "/bin/simcrossover"),
                                               QStringLiteral(KVN_SOURCE_DIR "/resources"), &error);
        QVERIFY2(demo, qPrintable(error));
        const auto cleanup = qScopeGuard([&] { QDir(demo->root).removeRecursively(); });
        QCOMPARE(QDir::homePath(), demo->home);
        // A short client instead of the demo's freeze and retry, which take seconds.
        QFile scenario(demo->root + u"/cxoffice/simulator/scenario.json"_s);
        QVERIFY(scenario.open(QIODevice::WriteOnly));
        const QJsonArray steps{QJsonObject{{u"print"_s, u"Demo client says hello\r\n"_s}},
                               QJsonObject{{u"gameLog"_s, u"[sys] Map loaded\n"_s}}};
        scenario.write(QJsonDocument(QJsonObject{{u"cli"_s, QJsonObject{{u"steps"_s, steps}}}}).toJson());
        scenario.close();
        JsonUserDefaults(JsonUserDefaults::standardLocation()).setInteger(u"setupCompletedVersion"_s, 1);

        KorvaneMacLauncherApp app(true);
        ContentView &window = app.window();
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(app.model().isReady());
        // The window says plainly that this is a demo.
        bool banner = false;
        for (QLabel *label : window.findChildren<QLabel *>())
            banner = banner || (label->isVisible() && label->text() == L("demo.banner"));
        QVERIFY(banner);

        QTest::keyClick(&window, Qt::Key_Return, Qt::ControlModifier);
        // Offline, the version cannot be confirmed: the user decides.
        QTRY_VERIFY_WITH_TIMEOUT(window.compatibilityPrompt(), 20000);
        auto *prompt = qobject_cast<CompatibilityPrompt *>(window.compatibilityPrompt());
        QVERIFY(prompt);
        QTest::keyClick(prompt->launchAnywayButton(), Qt::Key_Space);

        QTRY_VERIFY_WITH_TIMEOUT(app.model().activity().latest() && !app.model().activity().current(), 30000);
        QCOMPARE(app.model().activity().latest()->stage, LaunchStage::finished);
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QTest::keyClick(&window, Qt::Key_3, Qt::ControlModifier);
        QCOMPARE(window.page(), LauncherPage::console);
        QTRY_VERIFY(window.consoleView()->log()->toPlainText().contains(u"Demo client says hello"_s));
    }
};

QTEST_MAIN(TestDemo)
#include "tst_ui_demo.moc"
