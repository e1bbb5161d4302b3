#pragma once

#include "platform/serviceconfiguration.h"
#include "sessions/failurereport.h"
#include "preferences/l10n.h"

#include <QPointer>
#include <QVariantMap>
#include <QWidget>

#include <optional>

class ConfirmationDialog;
class FilePanels;
class LanguageSettings;
class QCheckBox;
class QDialog;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;
class SessionActivity;

// Where a failure report may go: the report service, whether this build sends at all (the
// information dictionary's "KVNReportDeliveryEnabled"), and where the export zip is built.
struct ReportDestination {
    ServiceConfiguration service;
    QVariantMap bundleInfo;
    QString temporaryDirectory;
};

// One failure report to read, edit, save as a zip or, with consent and confirmation, send.
class FailureReportView : public QWidget {
    Q_OBJECT
public:
    // Shows `report`'s text for editing; saving asks `panels`, sending asks `confirmation`.
    FailureReportView(const FailureReport &report, LanguageSettings &language, ConfirmationDialog &confirmation,
                      FilePanels &panels, ReportDestination destination, QWidget *parent = nullptr);

    bool busy() const { return m_busy; }
    bool sent() const { return m_sent; }
    std::optional<LocalizedMessage> result() const { return m_result; }

Q_SIGNALS:
    void closeRequested();

private:
    void send();
    void save();
    void refresh();

    FailureReport m_report;
    ConfirmationDialog &m_confirmation;
    FilePanels &m_panels;
    ReportDestination m_destination;
    bool m_deliveryEnabled;
    bool m_busy = false;
    bool m_sent = false;
    std::optional<LocalizedMessage> m_result;

    QLabel *m_privacy, *m_destinationLabel, *m_unconfigured, *m_resultLabel;
    QPlainTextEdit *m_text;
    QCheckBox *m_consent;
    QPushButton *m_send, *m_save, *m_close;
};

// The play sessions: the one under way, the last one, the history when it is kept, and the
// failure report behind them, which opens in a sheet.
class ActivityPanel : public QWidget {
    Q_OBJECT
public:
    // Shows `activity`; the report sheet gets `confirmation`, `panels` and `destination`.
    ActivityPanel(SessionActivity &activity, LanguageSettings &language, ConfirmationDialog &confirmation,
                  FilePanels &panels, ReportDestination destination, QWidget *parent = nullptr);

    // The report sheet while it is open.
    FailureReportView *reportView() const;

private:
    void openReport(const FailureReport &report);
    void clearAll();
    void refresh();

    SessionActivity &m_activity;
    LanguageSettings &m_language;
    ConfirmationDialog &m_confirmation;
    FilePanels &m_panels;
    ReportDestination m_destination;
    QPointer<QDialog> m_sheet;

    QLabel *m_title, *m_summary, *m_current, *m_latest, *m_empty, *m_privacy;
    QVBoxLayout *m_history;
    QCheckBox *m_keepHistory;
    QPushButton *m_capture, *m_last, *m_clear;
};
