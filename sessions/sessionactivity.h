#pragma once

#include "games/gamekind.h"
#include "sessions/failurereport.h"
#include "sessions/launchstage.h"
#include "sessions/playsession.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

class Clock;
class UserDefaults;

// The observable store of play sessions: the attempt in progress, the last finished one, an
// optional history, the failure report of the last failed attempt, and bounded copies of the
// current attempt's console text. Everything but the console text is written to the user
// defaults after every change, so an attempt still open when the launcher died is found at
// the next start and closed as interrupted.
//
// Main thread only; callers from process and watchdog callbacks hop there first. No operation
// fails: unreadable stored data counts as absent.
class SessionActivity : public QObject {
    Q_OBJECT
    Q_PROPERTY(std::optional<PlaySession> current READ current NOTIFY currentChanged)
    Q_PROPERTY(std::optional<PlaySession> latest READ latest NOTIFY latestChanged)
    Q_PROPERTY(QList<PlaySession> history READ history NOTIFY historyChanged)
    Q_PROPERTY(std::optional<FailureReport> failure READ failure NOTIFY failureChanged)
    Q_PROPERTY(bool keepHistory READ keepHistory WRITE setKeepHistory NOTIFY keepHistoryChanged)

public:
    // Restores the stored records and closes a session a previous run left open.
    SessionActivity(UserDefaults &defaults, const Clock &clock,
                    FailureReport::Environment environment = FailureReport::Environment::current(),
                    QObject *parent = nullptr);

    std::optional<PlaySession> current() const { return m_current; }
    std::optional<PlaySession> latest() const { return m_latest; }
    QList<PlaySession> history() const { return m_history; }
    std::optional<FailureReport> failure() const { return m_failure; }
    bool keepHistory() const { return m_keepHistory; }
    // Switching history off forgets it at once; switching it on restores nothing.
    void setKeepHistory(bool keep);

    // A date left out means the clock's present moment.
    void begin(GameKind game, std::optional<QDateTime> at = std::nullopt);
    void transition(LaunchStage stage);
    // Console text of the current attempt; "Updating mod files" and "Starting game" in it move
    // the stage until the game has loaded.
    void append(const QString &text);
    void loaded(std::optional<QDateTime> at = std::nullopt);
    // An automatic retry: counts it as an error too and starts stage detection afresh.
    void retry();
    // Closes the current session with a terminal stage; a failure also captures a report with
    // `reason` ("unexpected" when none is given).
    void finish(LaunchStage stage, std::optional<QString> reason = std::nullopt,
                std::optional<QDateTime> at = std::nullopt);
    // Builds the failure report of the current session, or else of the latest one.
    void capture(const QString &reason);
    void clearHistory();
    void clearFailure();

    static constexpr qsizetype historyLimit = 30;
    // Both in user-perceived characters (grapheme clusters).
    static constexpr qsizetype recentLogLimit = 64000;
    static constexpr qsizetype stageLogLimit = 8192;

    static inline const QString keepHistoryKey = QStringLiteral("keepSessionHistory");
    static inline const QString activeKey = QStringLiteral("session.active");
    static inline const QString latestKey = QStringLiteral("session.latest");
    static inline const QString historyKey = QStringLiteral("session.history");
    static inline const QString failureKey = QStringLiteral("session.failure");

    // Larger stored values are not parsed; they count as damaged. A report carries up to
    // 64,000 characters of log, and one character can be several code points.
    static constexpr qsizetype maximumSessionBytes = 64 * 1024;
    static constexpr qsizetype maximumHistoryBytes = 2 * 1024 * 1024;
    static constexpr qsizetype maximumFailureBytes = 8 * 1024 * 1024;

    // What is stored, read without changing anything (korvanectl shows it as it stands).
    struct Stored {
        std::optional<PlaySession> active;
        std::optional<PlaySession> latest;
        QList<PlaySession> history;
        std::optional<FailureReport> failure;
        bool keepHistory = false;
    };
    static Stored readStored(const UserDefaults &defaults);

Q_SIGNALS:
    void currentChanged();
    void latestChanged();
    void historyChanged();
    void failureChanged();
    void keepHistoryChanged(bool keep);

private:
    QDateTime dateOrNow(const std::optional<QDateTime> &at) const;
    void persist();
    void setCurrent(std::optional<PlaySession> session);
    void setLatest(std::optional<PlaySession> session);
    void setHistory(QList<PlaySession> history);
    void setFailure(std::optional<FailureReport> report);
    void pushHistory(const PlaySession &session);
    // Views are told only about real changes.
    template <typename T>
    void assign(T &field, T value, void (SessionActivity::*changed)())
    {
        if (field == value)
            return;
        field = std::move(value);
        Q_EMIT(this->*changed)();
    }

    UserDefaults &m_defaults;
    const Clock &m_clock;
    FailureReport::Environment m_environment;
    std::optional<PlaySession> m_current;
    std::optional<PlaySession> m_latest;
    QList<PlaySession> m_history;
    std::optional<FailureReport> m_failure;
    bool m_keepHistory = false;
    // Holds at least the last recentLogLimit characters, and at most four times as many units.
    QString m_recentLog;
    QString m_stageLog;
};
