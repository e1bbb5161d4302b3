#include "KorvaneMacLauncher/views/viewkit.h"

#include "preferences/l10n.h"
#include "servers/serverlistmodel.h"

#include <QAbstractButton>
#include <QEvent>
#include <QPainter>
#include <QStyleOptionFocusRect>
#include <QStylePainter>
#include <QVBoxLayout>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace ViewKit {

QLabel *label(Role role, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QFont font = label->font();
    switch (role) {
    case Role::title:
        font.setPointSizeF(font.pointSizeF() * 1.5);
        font.setBold(true);
        break;
    case Role::heading:
        font.setBold(true);
        break;
    case Role::caption:
        font.setPointSizeF(font.pointSizeF() * 0.9);
        label->setForegroundRole(QPalette::PlaceholderText);
        break;
    case Role::warning:
        setTextColor(label, QColor(0xb4, 0x53, 0x09));
        break;
    case Role::body:
        break;
    }
    label->setFont(font);
    return label;
}

void setText(QAbstractButton *button, const QString &text)
{
    button->setText(text);
    button->setAccessibleName(text);
}

void clear(QVBoxLayout *layout)
{
    while (QLayoutItem *item = layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
}

QString checkMark(bool ok)
{
    return ok ? u"✓"_s : u"✗"_s;
}

QString relativeTime(const QDateTime &moment, const QDateTime &now)
{
    const qint64 seconds = qMax<qint64>(0, moment.secsTo(now));
    const QLocale locale(L10n::currentLanguage().rawValue());
    // Qt has no relative date style: minutes for the last hour, then the clock time, and the
    // date only for older lists.
    if (seconds < 60)
        return L("servers.justNow");
    if (seconds < 3600)
        return L("servers.minutesAgo", seconds / 60);
    if (moment.date() == now.date())
        return locale.toString(moment.time(), QLocale::ShortFormat);
    return locale.toString(moment, QLocale::ShortFormat);
}

void setFontStyle(QWidget *widget, int pixelSize, QFont::Weight weight)
{
    QFont font = widget->font();
    if (pixelSize > 0)
        font.setPixelSize(pixelSize);
    font.setWeight(weight);
    widget->setFont(font);
}

void setTextColor(QWidget *widget, const QColor &colour)
{
    QPalette palette = widget->palette();
    for (QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, colour);
    widget->setPalette(palette);
}

void paintOutline(QWidget &widget, const Outline &outline)
{
    QPainter painter(&widget);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor border = outline.border.isValid() ? outline.border : widget.palette().color(QPalette::Mid);
    painter.setPen(QPen(border, 1));
    painter.setBrush(outline.fill);
    painter.drawRoundedRect(QRectF(widget.rect()).adjusted(0.5, 0.5, -0.5, -0.5), outline.radius, outline.radius);
}

OutlinedFrame::OutlinedFrame(const Outline &outline, QWidget *parent) : QFrame(parent), m_outline(outline) {}

void OutlinedFrame::paintEvent(QPaintEvent *)
{
    paintOutline(*this, m_outline);
}

OutlinedLabel::OutlinedLabel(QWidget *parent) : QLabel(parent) {}

void OutlinedLabel::setOutline(const Outline &outline, const QMargins &padding, const QColor &text)
{
    m_outline = outline;
    setContentsMargins(padding);
    setTextColor(this, text);
    update();
}

void OutlinedLabel::paintEvent(QPaintEvent *event)
{
    paintOutline(*this, m_outline);
    QLabel::paintEvent(event);
}

SidebarButton::SidebarButton(QWidget *parent) : QAbstractButton(parent)
{
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize SidebarButton::sizeHint() const
{
    const QFontMetrics metrics(font());
    return {metrics.horizontalAdvance(text()) + 24, metrics.height() + 16};
}

void SidebarButton::paintEvent(QPaintEvent *)
{
    QStylePainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (isChecked() || isDown()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette().color(QPalette::Highlight));
        painter.drawRoundedRect(QRectF(rect()), 6, 6);
    }
    painter.setPen(palette().color(isChecked() || isDown() ? QPalette::HighlightedText : QPalette::ButtonText));
    painter.drawText(rect().adjusted(12, 0, -12, 0), Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine, text());
    if (hasFocus()) {
        QStyleOptionFocusRect focus;
        focus.initFrom(this);
        focus.rect = rect().adjusted(1, 1, -1, -1);
        painter.drawPrimitive(QStyle::PE_FrameFocusRect, focus);
    }
}

} // namespace ViewKit

ServerRefreshLoop::ServerRefreshLoop(ServerListModel &list, QWidget &view)
    : QObject(&view), m_list(list), m_view(view),
      m_active(QGuiApplication::applicationState() == Qt::ApplicationActive)
{
    m_timer.setInterval(std::chrono::seconds(60));
    connect(&m_timer, &QTimer::timeout, this, [this] { m_list.refresh(); });
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        m_active = state == Qt::ApplicationActive;
        restart();
    });
    view.installEventFilter(this);
}

bool ServerRefreshLoop::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == &m_view && (event->type() == QEvent::Show || event->type() == QEvent::Hide))
        restart();
    return QObject::eventFilter(watched, event);
}

void ServerRefreshLoop::restart()
{
    m_timer.stop();
    if (!m_active || !m_view.isVisible())
        return;
    m_list.refresh();
    m_timer.start();
}
