#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QTimer>
#include <QWidget>

class QCheckBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;
class LauncherModel;

// The console page: the launch log as it is written, with copy, clear and stop. A client that
// prints megabytes a second must not freeze the window, so pieces are gathered and added on a
// short timer, a backlog larger than the log keeps is replaced by the log itself, and the view
// holds at most as many lines as the log can.
class ConsoleView : public QWidget {
    Q_OBJECT

public:
    static constexpr int batchMilliseconds = 25;
    // More pending text than this is not worth inserting piece by piece: the log kept only its
    // tail, so the view takes the log's text instead.
    static constexpr qsizetype backlogLimit = 150'000;

    explicit ConsoleView(LauncherModel &model, QWidget *parent = nullptr);

    QPlainTextEdit *log() const { return m_log; }
    QCheckBox *followCheck() const { return m_follow; }
    QPushButton *stopButton() const { return m_stop; }
    // Where a panel below the log goes (the activity).
    QVBoxLayout *extraArea() const { return m_extra; }
    bool followLog() const;
    void retranslate();
    // Adds what is pending now (the timer does this on its own).
    void flush();

private:
    void pieceAppended(const QString &piece);
    void scheduleFlush();
    void reload();
    void scrollToEnd();

    LauncherModel &m_model;
    QLabel *m_heading;
    QLabel *m_subtitle;
    QLabel *m_status;
    QPlainTextEdit *m_log;
    QCheckBox *m_follow;
    QPushButton *m_copy;
    QPushButton *m_clear;
    QPushButton *m_stop;
    QVBoxLayout *m_extra;
    QTimer m_batch;
    // Since the last flush began: the next one is due a batch interval after it, whatever the
    // flush itself took, so a flood repaints at the batch rate rather than the rate plus the work.
    QElapsedTimer m_sinceFlush;
    QString m_pending;
    bool m_reloadPending = false;
    qsizetype m_shown = 0;
};
