#pragma once

#include <QAbstractButton>
#include <QFrame>
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

// Fonts and colours are set on the widget itself, never through a style sheet: one style sheet
// sends the widget and everything inside it through the style-sheet engine, which cost the
// window's first picture more than its models did. `pixelSize` 0 keeps the size.
void setFontStyle(QWidget *widget, int pixelSize, QFont::Weight weight);
void setTextColor(QWidget *widget, const QColor &colour);

// A rounded outline with a fill, drawn behind what a widget shows. An invalid border colour
// takes the palette's mid tone.
struct Outline {
    QColor border;
    QColor fill = Qt::transparent;
    qreal radius = 8;
};
void paintOutline(QWidget &widget, const Outline &outline);

class OutlinedFrame : public QFrame {
public:
    explicit OutlinedFrame(const Outline &outline, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Outline m_outline;
};

class OutlinedLabel : public QLabel {
public:
    explicit OutlinedLabel(QWidget *parent = nullptr);
    // The outline, its padding and the text's colour.
    void setOutline(const Outline &outline, const QMargins &padding, const QColor &text);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Outline m_outline;
};

// A page's entry in a sidebar: left-aligned text, the highlight colour while checked, a focus
// frame for the keyboard.
class SidebarButton : public QAbstractButton {
public:
    explicit SidebarButton(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};

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
