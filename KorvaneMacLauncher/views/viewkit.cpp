#include "KorvaneMacLauncher/views/viewkit.h"

#include "preferences/l10n.h"
#include "servers/serverlistmodel.h"

#include <QAbstractButton>
#include <QEvent>
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
        label->setStyleSheet(u"color: #b45309;"_s);
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
