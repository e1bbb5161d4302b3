#include "KorvaneMacLauncher/views/reportviews.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "platform/filepanels.h"
#include "platform/recordcoding.h"
#include "preferences/languagesettings.h"
#include "sessions/reportdelivery.h"
#include "sessions/sessionactivity.h"

#include <QCheckBox>
#include <QDialog>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using ViewKit::Role;

namespace {

QString duration(qint64 seconds)
{
    return u"%1:%2"_s.arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

// "Euro Truck Simulator 2 · Playing · 0:42 / 12:05": the game, the stage, then start-up and play
// time when there are any.
QString describe(const PlaySession &session, const QDateTime &now)
{
    QStringList parts{session.game, session.stage.title()};
    if (const auto startup = session.startupSeconds())
        parts.append(duration(*startup));
    if (const auto play = session.playSeconds(now))
        parts.append(duration(*play));
    return parts.join(u" · "_s);
}

} // namespace

FailureReportView::FailureReportView(const FailureReport &report, LanguageSettings &language,
                                     ConfirmationDialog &confirmation, FilePanels &panels,
                                     ReportDestination destination, QWidget *parent)
    : QWidget(parent), m_report(report), m_confirmation(confirmation), m_panels(panels),
      m_destination(std::move(destination)), m_deliveryEnabled(ReportDelivery::enabled(m_destination.bundleInfo))
{
    auto *layout = new QVBoxLayout(this);
    m_privacy = ViewKit::label(Role::caption);
    m_text = new QPlainTextEdit(report.text);
    m_text->setMinimumHeight(220);
    m_destinationLabel = ViewKit::label(Role::caption);
    m_unconfigured = ViewKit::label(Role::caption);
    m_consent = new QCheckBox;
    m_send = new QPushButton;
    m_save = new QPushButton;
    m_close = new QPushButton;
    m_resultLabel = ViewKit::label();
    layout->addWidget(m_privacy);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_destinationLabel);
    layout->addWidget(m_unconfigured);
    layout->addWidget(m_consent);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_save);
    buttons->addWidget(m_send);
    buttons->addStretch();
    buttons->addWidget(m_close);
    layout->addLayout(buttons);
    layout->addWidget(m_resultLabel);
    // Without delivery in this build there is nothing to consent to or send.
    m_consent->setVisible(m_deliveryEnabled);
    m_send->setVisible(m_deliveryEnabled);
    m_destinationLabel->setVisible(m_deliveryEnabled);
    m_unconfigured->setVisible(!m_deliveryEnabled);

    connect(m_consent, &QCheckBox::toggled, this, &FailureReportView::refresh);
    connect(m_send, &QPushButton::clicked, this, &FailureReportView::send);
    connect(m_save, &QPushButton::clicked, this, &FailureReportView::save);
    connect(m_close, &QPushButton::clicked, this, &FailureReportView::closeRequested);
    connect(&language, &LanguageSettings::languageChanged, this, &FailureReportView::refresh);
    refresh();
}

void FailureReportView::send()
{
    if (!m_deliveryEnabled || !m_consent->isChecked() || m_busy || m_sent)
        return;
    const QString recipient = ReportDelivery::recipient(m_destination.service);
    if (!m_confirmation.confirm(L("report.confirm"), L("report.confirm.detail", recipient), L("common.cancel"),
                                L("report.send")))
        return;
    m_busy = true;
    m_result.reset();
    refresh();
    const QString id = RecordCoding::uuidText(m_report.id);
    auto *watcher = new QFutureWatcher<void>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, id] {
        watcher->deleteLater();
        bool delivered = true;
        try {
            watcher->future().waitForFinished();
        } catch (...) {
            // Every cause reads the same to the user; the reference lets the maintainers match it.
            delivered = false;
        }
        m_busy = false;
        m_sent = delivered;
        m_result = LocalizedMessage(delivered ? "report.sent" : "report.failed", {id});
        refresh();
    });
    watcher->setFuture(ReportDelivery::send(m_report.id, m_text->toPlainText(), m_destination.service,
                                            m_destination.bundleInfo));
}

void FailureReportView::save()
{
    if (const auto message = FailureReport::exportText(m_text->toPlainText(), m_panels, m_destination.temporaryDirectory)) {
        m_result = *message;
        refresh();
    }
}

void FailureReportView::refresh()
{
    m_privacy->setText(L("report.privacy"));
    m_text->setAccessibleName(L("report.privacy"));
    m_destinationLabel->setText(L("report.destination", ReportDelivery::recipient(m_destination.service)));
    m_unconfigured->setText(L("report.unconfigured"));
    m_consent->setText(L("report.consent"));
    m_consent->setAccessibleName(L("report.consent"));
    m_consent->setEnabled(!m_busy && !m_sent);
    ViewKit::setText(m_send, L("report.send"));
    m_send->setEnabled(m_consent->isChecked() && !m_busy && !m_sent);
    ViewKit::setText(m_save, L("diagnostics.save"));
    ViewKit::setText(m_close, L("tools.close"));
    m_resultLabel->setVisible(m_result.has_value());
    m_resultLabel->setText(m_result ? m_result->text() : QString());
}

ActivityPanel::ActivityPanel(SessionActivity &activity, LanguageSettings &language, ConfirmationDialog &confirmation,
                             FilePanels &panels, ReportDestination destination, QWidget *parent)
    : QWidget(parent), m_activity(activity), m_language(language), m_confirmation(confirmation), m_panels(panels),
      m_destination(std::move(destination))
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::heading);
    m_summary = ViewKit::label(Role::caption);
    m_current = ViewKit::label();
    m_latest = ViewKit::label();
    m_empty = ViewKit::label(Role::caption);
    m_history = new QVBoxLayout;
    m_keepHistory = new QCheckBox;
    m_privacy = ViewKit::label(Role::caption);
    m_capture = new QPushButton;
    m_last = new QPushButton;
    m_clear = new QPushButton;
    for (QWidget *widget : {static_cast<QWidget *>(m_title), static_cast<QWidget *>(m_summary),
                            static_cast<QWidget *>(m_current), static_cast<QWidget *>(m_latest),
                            static_cast<QWidget *>(m_empty), static_cast<QWidget *>(m_keepHistory)})
        layout->addWidget(widget);
    layout->addLayout(m_history);
    layout->addWidget(m_privacy);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_capture);
    buttons->addWidget(m_last);
    buttons->addStretch();
    buttons->addWidget(m_clear);
    layout->addLayout(buttons);

    connect(m_keepHistory, &QCheckBox::toggled, &m_activity, &SessionActivity::setKeepHistory);
    connect(m_capture, &QPushButton::clicked, this, [this] {
        m_activity.capture(u"user_reported_problem"_s);
        if (const auto report = m_activity.failure())
            openReport(*report);
    });
    connect(m_last, &QPushButton::clicked, this, [this] {
        if (const auto report = m_activity.failure())
            openReport(*report);
    });
    connect(m_clear, &QPushButton::clicked, this, &ActivityPanel::clearAll);
    for (auto changed : {&SessionActivity::currentChanged, &SessionActivity::latestChanged,
                         &SessionActivity::historyChanged, &SessionActivity::failureChanged})
        connect(&m_activity, changed, this, &ActivityPanel::refresh);
    connect(&m_activity, &SessionActivity::keepHistoryChanged, this, &ActivityPanel::refresh);
    connect(&language, &LanguageSettings::languageChanged, this, &ActivityPanel::refresh);
    refresh();
}

FailureReportView *ActivityPanel::reportView() const
{
    return m_sheet ? m_sheet->findChild<FailureReportView *>() : nullptr;
}

void ActivityPanel::openReport(const FailureReport &report)
{
    if (m_sheet)
        m_sheet->deleteLater();
    m_sheet = new QDialog(this);
    m_sheet->setAttribute(Qt::WA_DeleteOnClose);
    m_sheet->setWindowTitle(L("activity.title"));
    m_sheet->resize(640, 520);
    auto *layout = new QVBoxLayout(m_sheet);
    auto *view = new FailureReportView(report, m_language, m_confirmation, m_panels, m_destination);
    layout->addWidget(view);
    connect(view, &FailureReportView::closeRequested, m_sheet, &QDialog::close);
    m_sheet->open();
}

void ActivityPanel::clearAll()
{
    if (!m_confirmation.confirm(L("activity.clear"), L("activity.clear.help"), L("common.cancel"), L("activity.clear")))
        return;
    m_activity.clearHistory();
    m_activity.clearFailure();
}

void ActivityPanel::refresh()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    m_title->setText(L("activity.title"));
    m_summary->setText(L("activity.summary"));
    const auto current = m_activity.current();
    const auto latest = m_activity.latest();
    m_current->setVisible(current.has_value());
    if (current)
        m_current->setText(current->stage.title() + u" · "_s + L("activity.elapsed") + u' '
                           + duration(qMax<qint64>(0, current->started.secsTo(now))));
    m_latest->setVisible(latest.has_value());
    if (latest)
        m_latest->setText(L("activity.previous") + u": "_s + describe(*latest, now));
    const QList<PlaySession> history = m_activity.keepHistory() ? m_activity.history() : QList<PlaySession>{};
    m_empty->setText(L("activity.empty"));
    m_empty->setVisible(!current && !latest && history.isEmpty());
    ViewKit::clear(m_history);
    for (const PlaySession &session : history) {
        auto *line = ViewKit::label(Role::caption);
        line->setObjectName(u"session"_s);
        line->setText(QLocale(L10n::currentLanguage().rawValue()).toString(session.started.toLocalTime(), QLocale::ShortFormat)
                      + u"  "_s + describe(session, now));
        m_history->addWidget(line);
    }
    {
        const QSignalBlocker quiet(m_keepHistory);
        m_keepHistory->setChecked(m_activity.keepHistory());
    }
    m_keepHistory->setText(L("activity.history"));
    m_keepHistory->setAccessibleName(L("activity.history"));
    m_privacy->setText(L("activity.privacy"));
    ViewKit::setText(m_capture, L("report.capture"));
    ViewKit::setText(m_last, L("report.last"));
    m_last->setVisible(m_activity.failure().has_value());
    ViewKit::setText(m_clear, L("activity.clear"));
    m_clear->setToolTip(L("activity.clear.help"));
}
