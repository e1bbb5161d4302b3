#include "KorvaneMacLauncher/consoleview.h"
#include "KorvaneMacLauncher/views/viewkit.h"

#include "core/consolelog.h"
#include "core/launchermodel.h"
#include "preferences/l10n.h"

#include <QCheckBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QTextCursor>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
// Progress bars redraw a line with a bare carriage return; in the view each state is a line.
// The terminal turns the client's "\r\n" into "\r\r\n", which is still one line end.
QString displayed(QString text)
{
    static const QRegularExpression lineEnd(u"\r+\n"_s);
    text.replace(lineEnd, u"\n"_s);
    text.replace(u'\r', u'\n');
    return text;
}
} // namespace

ConsoleView::ConsoleView(LauncherModel &model, QWidget *parent)
    : QWidget(parent), m_model(model), m_heading(new QLabel(this)), m_subtitle(new QLabel(this)),
      m_status(new QLabel(this)), m_log(new QPlainTextEdit(this)), m_follow(new QCheckBox(this)),
      m_copy(new QPushButton(this)), m_clear(new QPushButton(this)), m_stop(new QPushButton(this)),
      m_extra(new QVBoxLayout)
{
    auto *layout = new QVBoxLayout(this);
    ViewKit::setFontStyle(m_heading, 22, QFont::Bold);
    m_subtitle->setWordWrap(true);
    layout->addWidget(m_heading);
    layout->addWidget(m_subtitle);
    layout->addWidget(m_status);
    m_log->setReadOnly(true);
    m_log->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    m_log->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    // Every line the log keeps fits: it keeps at most ConsoleLog::limit characters.
    m_log->setMaximumBlockCount(int(ConsoleLog::limit));
    m_log->setUndoRedoEnabled(false);
    m_log->setMinimumHeight(220);
    layout->addWidget(m_log, 1);
    auto *buttons = new QHBoxLayout;
    m_follow->setChecked(true);
    buttons->addWidget(m_follow);
    buttons->addStretch();
    buttons->addWidget(m_copy);
    buttons->addWidget(m_clear);
    buttons->addWidget(m_stop);
    layout->addLayout(buttons);
    layout->addLayout(m_extra);

    m_batch.setSingleShot(true);
    m_batch.setInterval(batchMilliseconds);
    connect(&m_batch, &QTimer::timeout, this, &ConsoleView::flush);
    connect(&model.console(), &ConsoleLog::appended, this,
            [this](const QString &piece, qsizetype) { pieceAppended(piece); });
    connect(&model.console(), &ConsoleLog::replaced, this, [this] {
        m_pending.clear();
        m_reloadPending = true;
        scheduleFlush();
    });
    connect(&model, &LauncherModel::statusChanged, this, [this] { m_status->setText(m_model.statusText()); });
    connect(&model, &LauncherModel::isRunningChanged, this, [this] { m_stop->setEnabled(m_model.isRunning()); });
    connect(m_follow, &QCheckBox::toggled, this, [this](bool on) {
        if (on)
            scrollToEnd();
    });
    connect(m_copy, &QPushButton::clicked, &model, &LauncherModel::copyLog);
    connect(m_clear, &QPushButton::clicked, &model, &LauncherModel::clearLog);
    connect(m_stop, &QPushButton::clicked, &model, &LauncherModel::stopBottle);
    m_stop->setEnabled(model.isRunning());
    reload();
    retranslate();
}

bool ConsoleView::followLog() const
{
    return m_follow->isChecked();
}

void ConsoleView::retranslate()
{
    m_heading->setText(L("Indítási napló"));
    m_subtitle->setText(L("A beépített konzol élő kimenete és a launcher üzenetei."));
    m_status->setText(m_model.statusText());
    m_log->setPlaceholderText(L("Nincs naplóbejegyzés."));
    m_log->setAccessibleName(L("Indítási napló"));
    m_follow->setText(L("console.follow"));
    m_copy->setText(L("console.copy"));
    m_clear->setText(L("console.clear"));
    m_stop->setText(L("Játék leállítása"));
    m_stop->setToolTip(L("Leállítja a játékot és a Steamet ebben a CrossOver-palackban"));
    for (QWidget *control : std::initializer_list<QWidget *>{m_follow, m_copy, m_clear, m_stop})
        control->setAccessibleName(static_cast<QAbstractButton *>(control)->text());
    m_stop->setAccessibleDescription(m_stop->toolTip());
}

void ConsoleView::pieceAppended(const QString &piece)
{
    if (m_reloadPending)
        return; // the reload takes the whole log anyway
    m_pending += piece;
    if (m_pending.size() > backlogLimit) {
        m_pending.clear();
        m_reloadPending = true;
    }
    scheduleFlush();
}

void ConsoleView::scheduleFlush()
{
    if (m_batch.isActive())
        return;
    const qint64 since = m_sinceFlush.isValid() ? m_sinceFlush.elapsed() : 0;
    m_batch.start(int(std::clamp<qint64>(batchMilliseconds - since, 0, batchMilliseconds)));
}

void ConsoleView::flush()
{
    m_sinceFlush.start();
    if (m_reloadPending) {
        reload();
        return;
    }
    if (m_pending.isEmpty())
        return;
    // Carriage returns at the end may belong to a line end still on its way.
    qsizetype cut = m_pending.size();
    while (cut > 0 && m_pending.at(cut - 1) == u'\r')
        --cut;
    if (cut == 0)
        return;
    const QString text = displayed(m_pending.left(cut));
    m_pending.remove(0, cut);
    QTextCursor end(m_log->document());
    end.movePosition(QTextCursor::End);
    end.insertText(text);
    m_shown += text.size();
    // The view never holds much more than the log: past twice its bound it starts over from it.
    if (m_shown > 2 * ConsoleLog::limit) {
        reload();
        return;
    }
    if (followLog())
        scrollToEnd();
}

void ConsoleView::reload()
{
    m_reloadPending = false;
    m_pending.clear();
    const QString text = displayed(m_model.console().text());
    m_log->setPlainText(text);
    m_shown = text.size();
    if (followLog())
        scrollToEnd();
}

void ConsoleView::scrollToEnd()
{
    QScrollBar *bar = m_log->verticalScrollBar();
    bar->setValue(bar->maximum());
}
