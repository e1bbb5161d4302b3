#include "sessions/sessionactivity.h"

#include "platform/clock.h"
#include "platform/userdefaults.h"
#include "sessions/diagnosticprivacy.h"

using namespace Qt::StringLiterals;

namespace {
// Stored values larger than their cap are not parsed: they count as damaged.
QByteArray cappedData(const UserDefaults &defaults, const QString &key, qsizetype cap)
{
    const QByteArray data = defaults.data(key);
    return data.size() > cap ? QByteArray() : data;
}

void store(UserDefaults &defaults, const QString &key, const std::optional<QByteArray> &json)
{
    // An absent value and one that cannot be encoded both remove the key, so a stale record
    // is never left behind.
    if (json)
        defaults.setData(key, *json);
    else
        defaults.remove(key);
}
} // namespace

SessionActivity::Stored SessionActivity::readStored(const UserDefaults &defaults)
{
    Stored stored;
    stored.keepHistory = defaults.boolValue(keepHistoryKey);
    stored.active = PlaySession::fromJson(cappedData(defaults, activeKey, maximumSessionBytes));
    stored.latest = PlaySession::fromJson(cappedData(defaults, latestKey, maximumSessionBytes));
    stored.history = PlaySession::listFromJson(cappedData(defaults, historyKey, maximumHistoryBytes))
                         .value_or(QList<PlaySession>());
    stored.failure = FailureReport::fromJson(cappedData(defaults, failureKey, maximumFailureBytes));
    return stored;
}

SessionActivity::SessionActivity(UserDefaults &defaults, const Clock &clock,
                                 FailureReport::Environment environment, QObject *parent)
    : QObject(parent), m_defaults(defaults), m_clock(clock), m_environment(std::move(environment))
{
    const Stored stored = readStored(defaults);
    m_keepHistory = stored.keepHistory;
    m_latest = stored.latest;
    m_failure = stored.failure;
    if (m_keepHistory)
        m_history = stored.history.mid(0, historyLimit);

    if (stored.active) {
        // Left open by a run that ended without finishing it: it ends now, at this start.
        PlaySession interrupted = *stored.active;
        interrupted.stage = LaunchStage::interrupted;
        interrupted.ended = m_clock.now();
        m_latest = interrupted;
        if (m_keepHistory)
            pushHistory(interrupted);
        m_defaults.remove(activeKey);
        persist();
    }
}

void SessionActivity::setKeepHistory(bool keep)
{
    m_defaults.setBool(keepHistoryKey, keep);
    const bool changed = keep != m_keepHistory;
    m_keepHistory = keep;
    if (changed)
        Q_EMIT keepHistoryChanged(keep);
    if (!keep) {
        setHistory({});
        persist();
    }
}

void SessionActivity::begin(GameKind game, std::optional<QDateTime> at)
{
    const QDateTime started = dateOrNow(at);
    if (m_current)
        finish(LaunchStage::cancelled, std::nullopt, started);
    m_recentLog.clear();
    m_stageLog.clear();
    PlaySession session;
    session.id = QUuid::createUuid();
    session.game = game.rawValue();
    session.started = started;
    session.stage = LaunchStage::checking;
    setCurrent(session);
    persist();
}

void SessionActivity::transition(LaunchStage stage)
{
    if (!m_current || m_current->stage == stage)
        return;
    PlaySession session = *m_current;
    session.stage = stage;
    setCurrent(session);
    persist();
}

void SessionActivity::append(const QString &text)
{
    if (!m_current)
        return;
    // A flooding client appends thousands of pieces a second; cutting the report's log back
    // after each would copy and count it whole every time. It is cut once it holds a few times
    // the limit, and a report takes exactly the last characters.
    m_recentLog += text;
    if (m_recentLog.size() > 4 * recentLogLimit)
        m_recentLog = DiagnosticPrivacy::lastCharacters(m_recentLog, recentLogLimit);
    m_stageLog = DiagnosticPrivacy::lastCharacters(m_stageLog + text, stageLogLimit);
    if (m_current->loaded)
        return;
    if (m_stageLog.contains(u"Starting game"_s))
        transition(LaunchStage::starting);
    else if (m_stageLog.contains(u"Updating mod files"_s))
        transition(LaunchStage::updating);
}

void SessionActivity::loaded(std::optional<QDateTime> at)
{
    if (!m_current || m_current->loaded)
        return;
    m_current->loaded = dateOrNow(at);
    if (m_current->stage == LaunchStage::playing) {
        // transition() would see no change and skip the write the new date needs.
        Q_EMIT currentChanged();
        persist();
        return;
    }
    transition(LaunchStage::playing);
}

void SessionActivity::retry()
{
    m_stageLog.clear();
    if (m_current) {
        PlaySession session = *m_current;
        session.retries += 1;
        session.errors += 1;
        setCurrent(session);
    }
    if (m_current && m_current->stage == LaunchStage::steam) {
        // Already in `steam`: the counters still have to be written.
        persist();
        return;
    }
    transition(LaunchStage::steam);
}

void SessionActivity::finish(LaunchStage stage, std::optional<QString> reason, std::optional<QDateTime> at)
{
    if (!m_current)
        return;
    const QDateTime ended = dateOrNow(at);
    if (stage == LaunchStage::failed) {
        // Counted and captured before the stage changes, so the report names the stage in which
        // the attempt failed.
        m_current->errors += 1;
        capture(reason.value_or(u"unexpected"_s));
    }
    PlaySession closed = *m_current;
    closed.ended = ended;
    closed.stage = stage;
    setLatest(closed);
    if (m_keepHistory)
        pushHistory(closed);
    setCurrent(std::nullopt);
    persist();
}

void SessionActivity::capture(const QString &reason)
{
    const std::optional<PlaySession> &session = m_current ? m_current : m_latest;
    if (!session)
        return;
    setFailure(FailureReport::make(*session, reason, DiagnosticPrivacy::lastCharacters(m_recentLog, recentLogLimit), m_environment, m_clock.now()));
    persist();
}

void SessionActivity::clearHistory()
{
    setHistory({});
    setLatest(std::nullopt);
    persist();
}

void SessionActivity::clearFailure()
{
    setFailure(std::nullopt);
    persist();
}

QDateTime SessionActivity::dateOrNow(const std::optional<QDateTime> &at) const
{
    return at ? *at : m_clock.now();
}

void SessionActivity::persist()
{
    store(m_defaults, activeKey, m_current ? m_current->toJson() : std::nullopt);
    store(m_defaults, latestKey, m_latest ? m_latest->toJson() : std::nullopt);
    store(m_defaults, historyKey, PlaySession::listToJson(m_history));
    store(m_defaults, failureKey, m_failure ? m_failure->toJson() : std::nullopt);
}

void SessionActivity::pushHistory(const PlaySession &session)
{
    QList<PlaySession> history = m_history;
    history.prepend(session);
    if (history.size() > historyLimit)
        history.resize(historyLimit);
    setHistory(std::move(history));
}

void SessionActivity::setCurrent(std::optional<PlaySession> session)
{
    assign(m_current, std::move(session), &SessionActivity::currentChanged);
}

void SessionActivity::setLatest(std::optional<PlaySession> session)
{
    assign(m_latest, std::move(session), &SessionActivity::latestChanged);
}

void SessionActivity::setHistory(QList<PlaySession> history)
{
    assign(m_history, std::move(history), &SessionActivity::historyChanged);
}

void SessionActivity::setFailure(std::optional<FailureReport> report)
{
    assign(m_failure, std::move(report), &SessionActivity::failureChanged);
}
