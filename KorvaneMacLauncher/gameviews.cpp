#include "KorvaneMacLauncher/gameviews.h"

#include "core/launchermodel.h"
#include "preferences/l10n.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

// --- GameArtwork ---------------------------------------------------------------------------------

GameArtwork::GameArtwork(GameKind game, QWidget *parent) : QWidget(parent), m_game(game)
{
    setMinimumHeight(110);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void GameArtwork::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = rect();
    const qreal w = area.width();
    const qreal h = area.height();
    const bool europe = m_game == GameKind::ets2;
    const qreal horizon = h * 0.58;

    QLinearGradient sky(0, 0, 0, horizon);
    sky.setColorAt(0, europe ? QColor(0x23, 0x2f, 0x5c) : QColor(0x3b, 0x8e, 0xd0));
    sky.setColorAt(1, europe ? QColor(0xf0, 0x8a, 0x4b) : QColor(0xf6, 0xd9, 0x9b));
    painter.fillRect(QRectF(0, 0, w, horizon), sky);
    // The sun, low over Europe, high over the desert.
    painter.setPen(Qt::NoPen);
    painter.setBrush(europe ? QColor(0xff, 0xc8, 0x6b) : QColor(0xff, 0xf4, 0xd0));
    const qreal sun = h * 0.16;
    painter.drawEllipse(QPointF(europe ? w * 0.72 : w * 0.22, europe ? horizon - sun * 0.4 : h * 0.2), sun, sun);
    // Hills or mesas on the horizon.
    QPainterPath land;
    land.moveTo(0, horizon);
    if (europe) {
        for (int i = 0; i <= 8; ++i)
            land.quadTo(w * (i + 0.5) / 8, horizon - h * (i % 2 ? 0.10 : 0.05), w * (i + 1) / 8, horizon);
    } else {
        land.lineTo(w * 0.55, horizon);
        land.lineTo(w * 0.58, horizon - h * 0.16);
        land.lineTo(w * 0.74, horizon - h * 0.16);
        land.lineTo(w * 0.77, horizon);
    }
    land.lineTo(w, horizon);
    land.closeSubpath();
    painter.setBrush(europe ? QColor(0x3f, 0x5d, 0x3a) : QColor(0xb8, 0x62, 0x34));
    painter.drawPath(land);
    painter.fillRect(QRectF(0, horizon, w, h - horizon), europe ? QColor(0x4f, 0x7a, 0x45) : QColor(0xd9, 0xa0, 0x5b));
    // The road, narrowing to the horizon, with its centre line.
    QPolygonF road{QPointF(w * 0.48, horizon), QPointF(w * 0.52, horizon), QPointF(w * 0.9, h), QPointF(w * 0.1, h)};
    painter.setBrush(QColor(0x34, 0x37, 0x3d));
    painter.drawPolygon(road);
    painter.setPen(QPen(QColor(0xf2, 0xf2, 0xe9), 2, Qt::DashLine));
    painter.drawLine(QPointF(w * 0.5, horizon + 2), QPointF(w * 0.5, h));
    // The truck: a box trailer behind a cab, flat-fronted in Europe, with a bonnet in America.
    painter.setPen(Qt::NoPen);
    const qreal base = h * 0.9;
    const qreal unit = h * 0.06;
    const qreal left = w * 0.12;
    painter.setBrush(QColor(0xee, 0xee, 0xee));
    painter.drawRoundedRect(QRectF(left, base - unit * 5.5, unit * 11, unit * 4.6), 3, 3);
    painter.setBrush(europe ? QColor(0x1f, 0x6f, 0xd1) : QColor(0xc8, 0x2a, 0x2a));
    const qreal cab = left + unit * 11.4;
    if (europe) {
        painter.drawRoundedRect(QRectF(cab, base - unit * 6, unit * 3.4, unit * 5.1), 4, 4);
    } else {
        painter.drawRoundedRect(QRectF(cab, base - unit * 6.2, unit * 2.6, unit * 5.3), 4, 4);
        painter.drawRoundedRect(QRectF(cab + unit * 2.4, base - unit * 3.4, unit * 2.6, unit * 2.5), 3, 3);
    }
    painter.setBrush(QColor(0x1b, 0x1d, 0x21));
    for (qreal x : {left + unit * 1.5, left + unit * 3.2, left + unit * 9.2, cab + unit * 1.3})
        painter.drawEllipse(QPointF(x, base), unit * 0.85, unit * 0.85);
    painter.setBrush(QColor(0xbf, 0xe4, 0xff, 200));
    painter.drawRect(QRectF(cab + unit * 0.4, base - unit * 5.4, unit * 1.6, unit * 1.4));
}

// --- GameSelectionCard -----------------------------------------------------------------------------

GameSelectionCard::GameSelectionCard(GameKind game, QWidget *parent)
    : QAbstractButton(parent), m_game(game), m_artwork(new GameArtwork(game, this)), m_name(new QLabel(this)),
      m_state(new QLabel(this))
{
    setCheckable(false);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(220, 190);
    m_name->setText(game.rawValue());
    ViewKit::setFontStyle(m_name, 14, QFont::Bold);
    m_name->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_state->setAttribute(Qt::WA_TransparentForMouseEvents);
    retranslate();
}

QSize GameSelectionCard::sizeHint() const
{
    return {320, 220};
}

void GameSelectionCard::resizeEvent(QResizeEvent *)
{
    const int margin = 8;
    const int textHeight = 44;
    m_artwork->setGeometry(margin, margin, width() - 2 * margin, height() - 2 * margin - textHeight);
    m_name->setGeometry(margin + 4, height() - margin - textHeight + 2, width() - 2 * margin - 8, 22);
    m_state->setGeometry(margin + 4, height() - margin - 20, width() - 2 * margin - 8, 18);
}

void GameSelectionCard::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    retranslate();
    update();
}

void GameSelectionCard::setInstalled(bool installed)
{
    if (m_installed == installed)
        return;
    m_installed = installed;
    retranslate();
}

void GameSelectionCard::retranslate()
{
    const QString state = m_installed ? L("Telepítve") : L("Telepítés szükséges");
    m_state->setText(m_selected ? L("window.selected") + u" · "_s + state : state);
    ViewKit::setTextColor(m_state, m_installed ? QColor(0x2e, 0x9d, 0x57) : QColor(0xc7, 0x77, 0x00));
    setAccessibleName(m_game.rawValue() + u", "_s + m_state->text());
}

void GameSelectionCard::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = palette().color(QPalette::Highlight);
    QColor fill = palette().color(QPalette::Base);
    if (m_hover)
        fill = fill.darker(104);
    painter.setBrush(fill);
    painter.setPen(QPen(m_selected ? accent : palette().color(QPalette::Mid), m_selected ? 3 : 1));
    painter.drawRoundedRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5), 10, 10);
    if (hasFocus()) {
        painter.setPen(QPen(accent, 1, Qt::DotLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(rect()).adjusted(4, 4, -4, -4), 8, 8);
    }
}

void GameSelectionCard::enterEvent(QEnterEvent *event)
{
    m_hover = true;
    update();
    QAbstractButton::enterEvent(event);
}

void GameSelectionCard::leaveEvent(QEvent *event)
{
    m_hover = false;
    update();
    QAbstractButton::leaveEvent(event);
}

// --- CompatibilityBadge ------------------------------------------------------------------------

CompatibilityBadge::CompatibilityBadge(QWidget *parent) : ViewKit::OutlinedLabel(parent)
{
    setWordWrap(true);
    hide();
}

void CompatibilityBadge::setResult(const std::optional<CompatibilityResult> &result)
{
    setVisible(result.has_value());
    if (!result)
        return;
    using State = CompatibilityResult::State;
    const char *key = result->state == State::compatible ? "compat.ok"
                      : result->state == State::mismatch ? "compat.mismatch"
                                                         : "compat.unknown";
    const QColor colour = result->state == State::compatible ? QColor(0x2e, 0x9d, 0x57)
                          : result->state == State::mismatch ? QColor(0xd1, 0x3a, 0x30)
                                                             : QColor(0xc7, 0x77, 0x00);
    QStringList lines{L(key)};
    lines.append(L("compat.installed", result->installed.value_or(L("ismeretlen"))));
    lines.append(L("compat.supported", result->supported.value_or(L("ismeretlen"))));
    setText(lines.join(u'\n'));
    setOutline({colour, Qt::transparent, 6}, {6, 6, 6, 6}, colour);
    setAccessibleName(lines.join(u". "_s));
}

// --- CompatibilityPrompt -------------------------------------------------------------------------

CompatibilityPrompt::CompatibilityPrompt(LauncherModel &model, QWidget *parent)
    : QDialog(parent), m_model(model), m_anyway(new QPushButton(this)), m_cancel(new QPushButton(this))
{
    setWindowModality(Qt::WindowModal);
    setWindowTitle(L("compat.title"));
    auto *layout = new QVBoxLayout(this);
    auto *badge = new CompatibilityBadge(this);
    badge->setResult(model.pendingCompatibility());
    const bool mismatch
        = model.pendingCompatibility() && model.pendingCompatibility()->state == CompatibilityResult::State::mismatch;
    auto *help = new QLabel(L(mismatch ? "compat.mismatch.help" : "compat.unknown.help"), this);
    help->setWordWrap(true);
    layout->addWidget(badge);
    layout->addWidget(help);
    auto *buttons = new QHBoxLayout;
    m_cancel->setText(L("compat.cancel"));
    m_anyway->setText(L("compat.anyway"));
    m_anyway->setAccessibleName(m_anyway->text());
    m_cancel->setAccessibleName(m_cancel->text());
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_anyway);
    layout->addLayout(buttons);
    setMinimumWidth(440);
    m_cancel->setDefault(true);

    connect(m_anyway, &QPushButton::clicked, this, [this] {
        m_decided = true;
        m_model.confirmCompatibilityLaunch();
        accept();
    });
    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(this, &QDialog::finished, this, [this] {
        if (!m_decided)
            m_model.cancelCompatibilityLaunch(true);
        m_decided = true;
    });
}

// --- AssistanceCard --------------------------------------------------------------------------------

AssistanceCard::AssistanceCard(QWidget *parent)
    : ViewKit::OutlinedFrame({QColor(0xd1, 0x3a, 0x30), QColor(209, 58, 48, 20), 8}, parent), m_title(new QLabel(this)), m_detail(new QLabel(this)), m_microphone(new QPushButton(this)),
      m_settings(new QPushButton(this)), m_diagnostics(new QPushButton(this))
{

    auto *layout = new QVBoxLayout(this);
    ViewKit::setFontStyle(m_title, 0, QFont::Bold);
    m_detail->setWordWrap(true);
    layout->addWidget(m_title);
    layout->addWidget(m_detail);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_microphone);
    buttons->addWidget(m_settings);
    buttons->addWidget(m_diagnostics);
    buttons->addStretch();
    layout->addLayout(buttons);
    connect(m_microphone, &QPushButton::clicked, this, [] {
        QDesktopServices::openUrl(
            QUrl(u"x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone"_s));
    });
    connect(m_settings, &QPushButton::clicked, this, &AssistanceCard::settingsRequested);
    connect(m_diagnostics, &QPushButton::clicked, this, &AssistanceCard::diagnosticsRequested);
    hide();
}

void AssistanceCard::setIssue(const std::optional<LaunchIssue> &issue)
{
    m_issue = issue;
    setVisible(issue.has_value());
    retranslate();
}

void AssistanceCard::retranslate()
{
    if (m_issue) {
        m_title->setText(m_issue->title());
        m_detail->setText(m_issue->detail());
        setAccessibleName(m_issue->title());
    }
    // The system's microphone page exists on macOS only.
#ifdef Q_OS_MACOS
    m_microphone->setVisible(m_issue == LaunchIssue::microphone);
#else
    m_microphone->setVisible(false);
#endif
    m_microphone->setText(L("help.microphone.open"));
    m_settings->setText(L("Beállítások megnyitása"));
    m_diagnostics->setText(L("diagnostics.open"));
    for (QPushButton *button : {m_microphone, m_settings, m_diagnostics})
        button->setAccessibleName(button->text());
}
