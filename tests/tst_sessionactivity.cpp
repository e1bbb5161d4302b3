#include "platform/clock_fake.h"
#include "sessions/sessionactivity.h"
#include "support/testhome.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
const QString logHeading = u"--- Current attempt log (bounded, redacted) ---\n"_s;

// The console text a report carries: everything after its log heading.
QString reportLog(const SessionActivity &activity)
{
    const QString text = activity.failure() ? activity.failure()->text : QString();
    const qsizetype at = text.indexOf(logHeading);
    return at < 0 ? QString() : text.mid(at + logHeading.size());
}
} // namespace

class TestSessionActivity : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TestHome> m_home;
    FakeClock m_clock;

    std::unique_ptr<SessionActivity> makeActivity(UserDefaults *defaults = nullptr)
    {
        const FailureReport::Environment environment{m_home->paths.home, {{u"CFBundleShortVersionString"_s, u"1.0.0"_s}}, u"Test OS 1"_s};
        return std::make_unique<SessionActivity>(defaults ? *defaults : *m_home->defaults, m_clock, environment);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        m_clock.set(QDateTime(QDate(2026, 3, 1), QTime(20, 0), Qt::UTC));
    }
    void cleanup() { m_home.reset(); }

    void openSessionRecoveredAsInterrupted_data()
    {
        QTest::addColumn<bool>("keepHistory");
        QTest::newRow("history kept") << true;
        QTest::newRow("history off") << false;
    }

    void openSessionRecoveredAsInterrupted()
    {
        QFETCH(bool, keepHistory);
        QUuid id;
        {
            auto first = makeActivity();
            first->setKeepHistory(keepHistory);
            first->begin(GameKind::ats);
            first->loaded(m_clock.now().addSecs(45));
            id = first->current()->id;
            // The launcher dies here: no finish.
        }
        QVERIFY(m_home->defaults->contains(SessionActivity::activeKey));
        m_clock.advance(3600 * 1000);

        auto reopened = m_home->reopenDefaults();
        const auto second = makeActivity(reopened.get());
        QVERIFY(!second->current());
        QVERIFY(second->latest());
        QCOMPARE(second->latest()->id, id);
        QCOMPARE(second->latest()->stage, LaunchStage(LaunchStage::interrupted));
        QCOMPARE(second->latest()->ended, std::optional<QDateTime>(m_clock.now()));
        QVERIFY(!second->failure());
        QVERIFY(!reopened->contains(SessionActivity::activeKey));
        QCOMPARE(second->history().size(), keepHistory ? 1 : 0);
        if (keepHistory)
            QCOMPARE(second->history().first(), *second->latest());
        // Stored at once: quitting before the next launch must not lose the interrupted attempt.
        const auto stored = SessionActivity::readStored(*m_home->reopenDefaults());
        QCOMPARE(stored.latest, second->latest());
        QCOMPARE(stored.history, second->history());
    }

    // A history stored longer than the limit (by another version, or by hand) is cut on loading,
    // the interrupted session of the last run counted in.
    void storedHistoryIsCutToThirty_data()
    {
        QTest::addColumn<int>("stored");
        QTest::addColumn<bool>("leftOpen");
        QTest::newRow("31 stored") << 31 << false;
        QTest::newRow("45 stored") << 45 << false;
        QTest::newRow("30 stored and one left open") << 30 << true;
    }
    void storedHistoryIsCutToThirty()
    {
        QFETCH(int, stored);
        QFETCH(bool, leftOpen);
        QList<PlaySession> history;
        for (int i = 0; i < stored; ++i) {
            PlaySession session;
            session.id = QUuid::createUuid();
            session.game = u"Euro Truck Simulator 2"_s;
            session.started = m_clock.now().addSecs(-60 * (i + 1));
            session.ended = session.started.addSecs(30);
            session.stage = LaunchStage::finished;
            history.append(session);
        }
        m_home->defaults->setBool(SessionActivity::keepHistoryKey, true);
        m_home->defaults->setData(SessionActivity::historyKey, *PlaySession::listToJson(history));
        QUuid open;
        if (leftOpen) {
            const auto store = m_home->reopenDefaults();
            const auto previous = makeActivity(store.get());
            previous->begin(GameKind::ats);
            open = previous->current()->id;
        }

        const auto store = m_home->reopenDefaults();
        const auto activity = makeActivity(store.get());
        QCOMPARE(activity->history().size(), SessionActivity::historyLimit);
        const QList<PlaySession> kept = leftOpen ? activity->history().mid(1) : activity->history();
        QCOMPARE(kept, history.mid(0, kept.size()));
        if (leftOpen)
            QCOMPARE(activity->history().first().id, open);
    }

    void beginWhileOpenCancelsTheOldSession()
    {
        auto activity = makeActivity();
        activity->begin(GameKind::ets2);
        const QUuid first = activity->current()->id;
        m_clock.advance(5000);
        activity->begin(GameKind::ats);
        QVERIFY(activity->latest());
        QCOMPARE(activity->latest()->id, first);
        QCOMPARE(activity->latest()->stage, LaunchStage(LaunchStage::cancelled));
        QCOMPARE(activity->latest()->ended, std::optional<QDateTime>(activity->current()->started));
        QCOMPARE(activity->current()->game, u"American Truck Simulator"_s);
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::checking));
        QVERIFY(activity->current()->id != first);
        QVERIFY(!activity->failure());
    }

    void finishRecordsTheSession_data()
    {
        QTest::addColumn<LaunchStage>("stage");
        QTest::addColumn<std::optional<QString>>("reason");
        QTest::addColumn<std::optional<QString>>("reportedReason"); // none: no report
        using Text = std::optional<QString>;
        QTest::newRow("failed without a reason") << LaunchStage(LaunchStage::failed) << Text() << Text(u"unexpected"_s);
        QTest::newRow("failed: startup freeze") << LaunchStage(LaunchStage::failed) << Text(u"startup_freeze"_s) << Text(u"startup_freeze"_s);
        QTest::newRow("finished") << LaunchStage(LaunchStage::finished) << Text(u"ignored"_s) << Text();
        QTest::newRow("cancelled") << LaunchStage(LaunchStage::cancelled) << Text(u"ignored"_s) << Text();
    }

    void finishRecordsTheSession()
    {
        QFETCH(LaunchStage, stage);
        QFETCH(std::optional<QString>, reason);
        QFETCH(std::optional<QString>, reportedReason);
        auto activity = makeActivity();
        QSignalSpy failureChanged(activity.get(), &SessionActivity::failureChanged);
        activity->begin(GameKind::ets2);
        activity->transition(LaunchStage::steam);
        activity->retry();
        activity->append(u"Starting game\nLoading "_s + m_home->paths.home + u"/Documents/x.sii\n"_s);
        m_clock.advance(1000);
        activity->finish(stage, reason);

        QVERIFY(!activity->current());
        QCOMPARE(activity->latest()->stage, stage);
        QCOMPARE(activity->latest()->errors, reportedReason ? 2 : 1); // the retry, and the failure if any
        QCOMPARE(activity->latest()->retries, 1);
        QCOMPARE(failureChanged.count(), reportedReason ? 1 : 0);
        QCOMPARE(activity->failure().has_value(), reportedReason.has_value());
        if (reportedReason) {
            const FailureReport report = *activity->failure();
            QCOMPARE(report.reason, *reportedReason);
            QCOMPARE(report.stage, LaunchStage(LaunchStage::starting));
            QCOMPARE(report.game, u"Euro Truck Simulator 2"_s);
            QCOMPARE(report.date, m_clock.now());
            QCOMPARE(report.text,
                     u"Korvane Mac Launcher \u2014 failure report\nVersion: 1.0.0\nGame: Euro Truck Simulator 2\n"
                     u"Stage: starting\nReason: "_s + *reportedReason + u"\nRetries: 1\nmacOS: Test OS 1\n"
                     u"Graphics: D3DMetal + MSync / DX11\n\n"_s + logHeading + u"Starting game\nLoading [PATH]\n"_s);
        }

        // It survives a restart as stored.
        const auto reopened = m_home->reopenDefaults();
        const auto later = makeActivity(reopened.get());
        QCOMPARE(later->failure(), activity->failure());
        QCOMPARE(later->latest(), activity->latest());
    }

    void historyHoldsThirtyNewestFirst()
    {
        auto activity = makeActivity();
        activity->setKeepHistory(true);
        QList<QUuid> ids;
        for (int i = 0; i < 31; ++i) {
            activity->begin(GameKind::ets2);
            ids.prepend(activity->current()->id);
            m_clock.advance(1000);
            activity->finish(LaunchStage::finished);
        }
        QCOMPARE(activity->history().size(), 30);
        for (int i = 0; i < 30; ++i)
            QCOMPARE(activity->history().at(i).id, ids.at(i));
        const auto stored = SessionActivity::readStored(*m_home->reopenDefaults());
        QCOMPARE(stored.history, activity->history());
    }

    void forgettingRecords()
    {
        auto activity = makeActivity();
        activity->setKeepHistory(true);
        activity->begin(GameKind::ets2);
        activity->finish(LaunchStage::failed, u"launch"_s);
        activity->clearHistory();
        activity->clearFailure();
        QVERIFY(!activity->latest());
        QVERIFY(!activity->failure());
        QVERIFY(activity->history().isEmpty());
        QVERIFY(!m_home->defaults->contains(SessionActivity::latestKey));
        QVERIFY(!m_home->defaults->contains(SessionActivity::failureKey));
        QCOMPARE(m_home->defaults->data(SessionActivity::historyKey), QByteArray("[]"));

        // Turning history off forgets it too, but not the latest session.
        activity->begin(GameKind::ets2);
        activity->finish(LaunchStage::finished);
        QCOMPARE(activity->history().size(), 1);
        activity->setKeepHistory(false);
        QVERIFY(activity->history().isEmpty());
        QVERIFY(activity->latest());
        QCOMPARE(m_home->defaults->data(SessionActivity::historyKey), QByteArray("[]"));
        QCOMPARE(m_home->defaults->object(SessionActivity::keepHistoryKey), QVariant(false));
        // Switching it on again restores nothing.
        activity->setKeepHistory(true);
        QVERIFY(activity->history().isEmpty());
    }

    void stageFollowsConsoleText_data()
    {
        QTest::addColumn<QStringList>("pieces");
        QTest::addColumn<LaunchStage>("stage");
        QTest::newRow("updating") << QStringList{u"Updating mod files (3/9)"_s} << LaunchStage(LaunchStage::updating);
        QTest::newRow("marker split across appends") << QStringList{u"Updating mod "_s, u"files"_s} << LaunchStage(LaunchStage::updating);
        QTest::newRow("starting wins over updating") << QStringList{u"Starting game\n"_s, u"Updating mod files\n"_s}
                                                     << LaunchStage(LaunchStage::starting);
        QTest::newRow("case-sensitive") << QStringList{u"starting GAME"_s} << LaunchStage(LaunchStage::steam);
        // The window is 8,192 characters; each filler character is two UTF-16 units.
        const QString filler = u"e\u0301"_s;
        QTest::newRow("marker still inside the window")
            << QStringList{u"Updating mod files"_s + filler.repeated(8192 - 18)} << LaunchStage(LaunchStage::updating);
        QTest::newRow("marker's first character cut off")
            << QStringList{u"Updating mod files"_s + filler.repeated(8192 - 17)} << LaunchStage(LaunchStage::steam);
    }

    void stageFollowsConsoleText()
    {
        QFETCH(QStringList, pieces);
        QFETCH(LaunchStage, stage);
        auto activity = makeActivity();
        activity->begin(GameKind::ets2);
        activity->transition(LaunchStage::steam);
        for (const QString &piece : pieces)
            activity->append(piece);
        QCOMPARE(activity->current()->stage, stage);
    }

    void consoleTextAfterLoadKeepsPlaying()
    {
        auto activity = makeActivity();
        activity->begin(GameKind::ets2);
        activity->loaded();
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::playing));
        QCOMPARE(activity->current()->startupSeconds(), std::optional<qint64>(0));
        activity->append(u"Starting game\nUpdating mod files\n"_s);
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::playing));
        // A second load report keeps the first date.
        const auto first = activity->current()->loaded;
        m_clock.advance(9000);
        activity->loaded();
        QCOMPARE(activity->current()->loaded, first);
    }

    void retryForgetsTheOldStageText()
    {
        auto activity = makeActivity();
        activity->begin(GameKind::ets2);
        activity->append(u"Updating mod files\n"_s);
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::updating));
        activity->retry();
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::steam));
        activity->append(u"waiting\n"_s);
        QCOMPARE(activity->current()->stage, LaunchStage(LaunchStage::steam));
        QCOMPARE(activity->current()->retries, 1);
        QCOMPARE(activity->current()->errors, 1);
        // The full log keeps both attempts.
        activity->capture(u"user_reported_problem"_s);
        QCOMPARE(reportLog(*activity), u"Updating mod files\nwaiting\n"_s);
        QCOMPARE(activity->failure()->stage, LaunchStage(LaunchStage::steam));
    }

    void recentLogKeepsLast64000Characters()
    {
        auto activity = makeActivity();
        activity->begin(GameKind::ets2);
        activity->append(u"HEAD"_s);
        activity->append(QString(u"\U0001F69B"_s).repeated(63999)); // a truck: two UTF-16 units, one character
        activity->append(u"!"_s);
        activity->capture(u"user_reported_problem"_s);
        const QString log = reportLog(*activity);
        QCOMPARE(log.size(), 63999 * 2 + 1);
        QVERIFY(log.startsWith(u"\U0001F69B"_s));
        QVERIFY(log.endsWith(u"\U0001F69B!"_s));
    }

    void eventsWithoutSessionChangeNothing()
    {
        auto activity = makeActivity();
        QSignalSpy currentChanged(activity.get(), &SessionActivity::currentChanged);
        activity->append(u"dropped text"_s);
        activity->transition(LaunchStage::steam);
        activity->loaded();
        activity->retry();
        activity->finish(LaunchStage::failed, u"exit_1"_s);
        activity->capture(u"user_reported_problem"_s);
        QCOMPARE(currentChanged.count(), 0);
        QVERIFY(!activity->latest());
        QVERIFY(!activity->failure());

        // The dropped text never reaches the next session's log.
        activity->begin(GameKind::ets2);
        activity->finish(LaunchStage::finished);
        activity->capture(u"user_reported_problem"_s);
        QVERIFY(activity->failure());
        QCOMPARE(activity->failure()->stage, LaunchStage(LaunchStage::finished));
        QCOMPARE(reportLog(*activity), QString());
    }

    void damagedStoredValuesCountAsAbsent_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("nothing stored") << QString() << QVariant();
        QTest::newRow("latest not JSON") << SessionActivity::latestKey << QVariant(QByteArray("{nope"));
        QTest::newRow("latest of the wrong type") << SessionActivity::latestKey << QVariant(u"text"_s);
        QTest::newRow("failure with unknown stage")
            << SessionActivity::failureKey
            << QVariant(QByteArray(R"json({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","date":1,"game":"g","stage":"x","reason":"r","text":"t"})json"));
        QTest::newRow("active session too large")
            << SessionActivity::activeKey
            << QVariant(QByteArray(R"json({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","game":")json")
                        + QByteArray(SessionActivity::maximumSessionBytes, 'x')
                        + QByteArray(R"json(","started":1,"stage":"steam","retries":0,"errors":0})json"));
    }

    void damagedStoredValuesCountAsAbsent()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        if (!key.isEmpty())
            m_home->defaults->setObject(key, value);
        auto activity = makeActivity();
        if (key.isEmpty()) // opening an empty store writes nothing
            QVERIFY(m_home->defaults->keys().isEmpty());
        QVERIFY(activity->history().isEmpty());
        QVERIFY(!activity->current());
        QVERIFY(!activity->latest());
        QVERIFY(!activity->failure());
    }
};

QTEST_GUILESS_MAIN(TestSessionActivity)
#include "tst_sessionactivity.moc"
