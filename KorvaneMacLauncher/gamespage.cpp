#include "KorvaneMacLauncher/gamespage.h"

#include "KorvaneMacLauncher/gameviews.h"
#include "core/launchermodel.h"
#include "platform/microphone.h"
#include "preferences/l10n.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

GamesPage::GamesPage(LauncherModel &model, QWidget *parent)
    : QWidget(parent), m_model(model), m_heading(new QLabel(this)), m_subtitle(new QLabel(this)),
      m_gameName(new QLabel(this)), m_multiplayer(new QLabel(this)), m_status(new QLabel(this)),
      m_readiness(new QLabel(this)), m_launch(new QPushButton(this)), m_settings(new QPushButton(this)),
      m_steam(new QPushButton(this)), m_badge(new CompatibilityBadge(this)), m_strip(new QGridLayout),
      m_details(new QPushButton(this)), m_assistance(new AssistanceCard(this)), m_extra(new QVBoxLayout),
      m_note(new QLabel(this))
{
    auto *layout = new QVBoxLayout(this);
    ViewKit::setFontStyle(m_heading, 24, QFont::Bold);
    m_subtitle->setWordWrap(true);
    layout->addWidget(m_heading);
    layout->addWidget(m_subtitle);

    auto *cards = new QHBoxLayout;
    for (GameKind game : GameKind::allCases()) {
        auto *card = new GameSelectionCard(game, this);
        connect(card, &GameSelectionCard::clicked, this, [this, game] { m_model.setGame(game); });
        cards->addWidget(card);
        m_cards.append(card);
    }
    layout->addLayout(cards);

    auto *panel = new ViewKit::OutlinedFrame({QColor(), Qt::transparent, 10}, this);
    auto *panelLayout = new QGridLayout(panel);
    ViewKit::setFontStyle(m_gameName, 18, QFont::ExtraBold);
    QFont spaced = m_gameName->font();
    spaced.setLetterSpacing(QFont::AbsoluteSpacing, 1);
    m_gameName->setFont(spaced);
    ViewKit::setTextColor(m_multiplayer, QColor(0x5f, 0x63, 0x68));
    ViewKit::setFontStyle(m_status, 0, QFont::DemiBold);
    m_readiness->setWordWrap(true);
    auto *texts = new QVBoxLayout;
    for (QLabel *label : {m_gameName, m_multiplayer, m_status, m_readiness})
        texts->addWidget(label);
    texts->addWidget(m_badge);
    panelLayout->addLayout(texts, 0, 0, 2, 1);
    m_launch->setDefault(true);
    m_launch->setMinimumHeight(40);
    ViewKit::setFontStyle(m_launch, 15, QFont::Bold);
    m_launch->setMinimumWidth(m_launch->fontMetrics().averageCharWidth() * 12 + 40);
    panelLayout->addWidget(m_launch, 0, 1);
    auto *secondary = new QHBoxLayout;
    secondary->addWidget(m_settings);
    secondary->addWidget(m_steam);
    panelLayout->addLayout(secondary, 1, 1);
    panelLayout->setColumnStretch(0, 1);
    layout->addWidget(panel);

    // Three badges a row, so the strip fits the narrow window too.
    m_strip->setSpacing(6);
    auto *stripRow = new QHBoxLayout;
    stripRow->addLayout(m_strip);
    stripRow->addStretch();
    layout->addLayout(stripRow);
    layout->addWidget(m_details, 0, Qt::AlignLeft);
    layout->addWidget(m_assistance);
    layout->addLayout(m_extra);
    m_note->setWordWrap(true);
    ViewKit::setTextColor(m_note, QColor(0x5f, 0x63, 0x68));
    layout->addWidget(m_note);
    layout->addStretch();

    connect(m_launch, &QPushButton::clicked, this, &GamesPage::launchClicked);
    connect(m_settings, &QPushButton::clicked, this, &GamesPage::settingsRequested);
    connect(m_details, &QPushButton::clicked, this, &GamesPage::settingsRequested);
    connect(m_steam, &QPushButton::clicked, &model, &LauncherModel::openSteam);
    connect(m_assistance, &AssistanceCard::settingsRequested, this, &GamesPage::settingsRequested);
    connect(m_assistance, &AssistanceCard::diagnosticsRequested, this, &GamesPage::diagnosticsRequested);
    connect(&model, &LauncherModel::compatibilityChanged, this, [this] { m_badge->setResult(m_model.compatibility()); });
    connect(&model, &LauncherModel::issueChanged, this, [this] { m_assistance->setIssue(m_model.issue()); });
    retranslate();
}

GameSelectionCard *GamesPage::card(GameKind game) const
{
    return m_cards.value(qsizetype(GameKind::Value(game)));
}

void GamesPage::refresh(const std::function<bool(GameKind)> &isInstalled)
{
    for (GameSelectionCard *card : std::as_const(m_cards)) {
        card->setSelected(card->game() == m_model.game());
        card->setInstalled(isInstalled(card->game()));
    }
    m_gameName->setText(m_model.game().rawValue().toUpper());
    m_status->setText(m_model.statusText());
    const bool granted = m_model.microphone().authorizationStatus() == MicrophoneAuthorization::authorized;
    m_readiness->setText(m_model.isRunning() ? m_model.statusText()
                         : m_model.isReady() ? (granted ? L("Minden készen áll az induláshoz.")
                                                        : L("Még egy mikrofonengedély szükséges."))
                                             : L("Az induláshoz fejezd be a beállítást."));
    m_launch->setEnabled(!m_model.isRunning());
    m_badge->setResult(m_model.compatibility());
    m_assistance->setIssue(m_model.issue());
    refreshStrip();
}

void GamesPage::refreshStrip()
{
    const QList<EnvironmentCheck> checks = m_model.checks();
    while (m_stripBadges.size() < checks.size()) {
        auto *badge = new ViewKit::OutlinedLabel(this);
        m_strip->addWidget(badge, int(m_stripBadges.size() / 3), int(m_stripBadges.size() % 3));
        m_stripBadges.append(badge);
    }
    for (qsizetype index = 0; index < m_stripBadges.size(); ++index) {
        ViewKit::OutlinedLabel *badge = m_stripBadges.at(index);
        badge->setVisible(index < checks.size());
        if (index >= checks.size())
            continue;
        const EnvironmentCheck &check = checks.at(index);
        badge->setText((check.ok ? u"✓ "_s : u"✕ "_s) + check.title);
        badge->setToolTip(check.detail);
        badge->setAccessibleName(check.title + u": "_s + check.detail);
        const QColor colour = check.ok ? QColor(0x2e, 0x9d, 0x57) : QColor(0xd1, 0x3a, 0x30);
        badge->setOutline({colour, colour, 9}, {8, 2, 8, 2}, Qt::white);
    }
}

void GamesPage::retranslate()
{
    m_heading->setText(L("A következő fuvarod."));
    m_subtitle->setText(L("Válassz játékot, és csatlakozz a Korvane közösségéhez."));
    m_multiplayer->setText(L("Korvane multiplayer"));
    m_launch->setText(L("Korvane indítása"));
    m_settings->setText(L("Beállítások megnyitása"));
    m_steam->setText(L("Steam megnyitása"));
    m_details->setText(L("Részletes rendszerellenőrzés"));
    m_note->setText(L("Nem hivatalos közösségi launcher.") + u' ' + L("A Korvane fájljai automatikusan frissülnek"));
    for (QPushButton *button : {m_launch, m_settings, m_steam, m_details})
        button->setAccessibleName(button->text());
    for (GameSelectionCard *card : std::as_const(m_cards))
        card->retranslate();
    m_assistance->retranslate();
    m_badge->setResult(m_model.compatibility());
}
