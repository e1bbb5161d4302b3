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
    m_heading->setStyleSheet(u"font-size: 24px; font-weight: 700"_s);
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

    auto *panel = new QFrame(this);
    panel->setObjectName(u"launchPanel"_s);
    panel->setStyleSheet(u"QFrame#launchPanel { border: 1px solid palette(mid); border-radius: 10px }"_s);
    auto *panelLayout = new QGridLayout(panel);
    m_gameName->setStyleSheet(u"font-size: 18px; font-weight: 800; letter-spacing: 1px"_s);
    m_multiplayer->setStyleSheet(u"color: #5f6368"_s);
    m_status->setStyleSheet(u"font-weight: 600"_s);
    m_readiness->setWordWrap(true);
    auto *texts = new QVBoxLayout;
    for (QLabel *label : {m_gameName, m_multiplayer, m_status, m_readiness})
        texts->addWidget(label);
    texts->addWidget(m_badge);
    panelLayout->addLayout(texts, 0, 0, 2, 1);
    m_launch->setDefault(true);
    m_launch->setMinimumHeight(40);
    m_launch->setStyleSheet(u"QPushButton { font-size: 15px; font-weight: 700; padding: 6px 20px }"_s);
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
    m_note->setStyleSheet(u"color: #5f6368"_s);
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
        auto *badge = new QLabel(this);
        m_strip->addWidget(badge, int(m_stripBadges.size() / 3), int(m_stripBadges.size() % 3));
        m_stripBadges.append(badge);
    }
    for (qsizetype index = 0; index < m_stripBadges.size(); ++index) {
        QLabel *badge = m_stripBadges.at(index);
        badge->setVisible(index < checks.size());
        if (index >= checks.size())
            continue;
        const EnvironmentCheck &check = checks.at(index);
        badge->setText((check.ok ? u"✓ "_s : u"✕ "_s) + check.title);
        badge->setToolTip(check.detail);
        badge->setAccessibleName(check.title + u": "_s + check.detail);
        badge->setStyleSheet(u"QLabel { border-radius: 9px; padding: 2px 8px; color: white; background: %1 }"_s.arg(
            check.ok ? u"#2e9d57"_s : u"#d13a30"_s));
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
