#pragma once

#include <QGuiApplication>
#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <chrono>

class QAbstractButton;
class QVBoxLayout;
class QWidget;
class ServerListModel;

// Small pieces every view is built from.
namespace ViewKit {

// A word-wrapped label; `role` styles headings and captions alike in every view.
enum class Role { body, heading, title, caption, warning };
QLabel *label(Role role = Role::body, QWidget *parent = nullptr);
// Gives `button` its text and the same accessible name, so that a screen reader reads it.
void setText(QAbstractButton *button, const QString &text);
// Deletes the rows of a list that is rebuilt from its model.
void clear(QVBoxLayout *layout);
// "✓" or "✗" before a readiness row's title.
QString checkMark(bool ok);
// A moment shown relative to now ("5 minutes ago"), in the interface language.
QString relativeTime(const QDateTime &moment, const QDateTime &now);

} // namespace ViewKit

// Keeps the server list fresh while a view shows it: one refresh whenever the view appears or
// the application becomes active again, then one per interval, and nothing while the view is
// hidden or the application is in the background. The list's own throttle drops the calls that
// come too soon, so two views showing it at once do not double the traffic.
class ServerRefreshLoop : public QObject {
    Q_OBJECT
public:
    ServerRefreshLoop(ServerListModel &list, QWidget &view);

    // Tests shorten the minute between refreshes.
    void setInterval(std::chrono::milliseconds interval) { m_timer.setInterval(interval); }
    bool running() const { return m_timer.isActive(); }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void restart();

    ServerListModel &m_list;
    QWidget &m_view;
    QTimer m_timer;
    bool m_active;
};
