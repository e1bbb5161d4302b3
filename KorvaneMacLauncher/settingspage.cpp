#include "KorvaneMacLauncher/settingspage.h"

#include "KorvaneMacLauncher/views/checkfixrow.h"
#include "KorvaneMacLauncher/gameviews.h"
#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "platform/microphone.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SettingsPage::SettingsPage(LauncherModel &model, LanguageSettings &language, QWidget *parent)
    : QWidget(parent), m_model(model), m_language(language), m_heading(new QLabel(this)), m_subtitle(new QLabel(this)),
      m_languageBox(new QGroupBox(this)), m_languagePicker(new QComboBox(this)), m_languageNote(new QLabel(this)),
      m_gameBox(new QGroupBox(this)), m_gameLabel(new QLabel(this)), m_game(new QComboBox(this)),
      m_bottleLabel(new QLabel(this)), m_bottleNote(new QLabel(this)), m_bottle(new QComboBox(this)),
      m_chooseBottle(new QPushButton(this)), m_directoryLabel(new QLabel(this)), m_directory(new QLabel(this)),
      m_chooseDirectory(new QPushButton(this)), m_resetDirectory(new QPushButton(this)), m_compatNote(new QLabel(this)),
      m_checkBox(new QGroupBox(this)), m_checklist(new QWidget(this)), m_recheck(new QPushButton(this)),
      m_microphoneBox(new QGroupBox(this)), m_microphone(new QLabel(this)), m_dataBox(new QGroupBox(this)),
      m_dataFolder(new QPushButton(this)), m_assistance(new AssistanceCard(this)), m_extra(new QVBoxLayout)
{
    auto *layout = new QVBoxLayout(this);
    ViewKit::setFontStyle(m_heading, 22, QFont::Bold);
    m_subtitle->setWordWrap(true);
    layout->addWidget(m_heading);
    layout->addWidget(m_subtitle);
    layout->addWidget(m_assistance);

    auto *languageLayout = new QVBoxLayout(m_languageBox);
    for (AppLanguage option : AppLanguage::allCases())
        m_languagePicker->addItem(option.nativeName());
    m_languageNote->setWordWrap(true);
    languageLayout->addWidget(m_languagePicker);
    languageLayout->addWidget(m_languageNote);
    layout->addWidget(m_languageBox);

    auto *gameLayout = new QGridLayout(m_gameBox);
    for (GameKind game : GameKind::allCases())
        m_game->addItem(game.rawValue());
    gameLayout->addWidget(m_gameLabel, 0, 0);
    gameLayout->addWidget(m_game, 0, 1, 1, 2);
    gameLayout->addWidget(m_bottleLabel, 1, 0);
    gameLayout->addWidget(m_bottle, 1, 1);
    gameLayout->addWidget(m_chooseBottle, 1, 2);
    m_bottleNote->setWordWrap(true);
    gameLayout->addWidget(m_bottleNote, 2, 1, 1, 2);
    gameLayout->addWidget(m_directoryLabel, 3, 0);
    m_directory->setWordWrap(true);
    m_directory->setTextInteractionFlags(Qt::TextSelectableByMouse);
    gameLayout->addWidget(m_directory, 3, 1);
    gameLayout->addWidget(m_chooseDirectory, 3, 2);
    gameLayout->addWidget(m_resetDirectory, 4, 1, 1, 2, Qt::AlignLeft);
    m_compatNote->setWordWrap(true);
    gameLayout->addWidget(m_compatNote, 5, 0, 1, 3);
    gameLayout->setColumnStretch(1, 1);
    layout->addWidget(m_gameBox);

    auto *checkLayout = new QVBoxLayout(m_checkBox);
    new QVBoxLayout(m_checklist);
    m_checklist->layout()->setContentsMargins(0, 0, 0, 0);
    checkLayout->addWidget(m_checklist);
    checkLayout->addWidget(m_recheck, 0, Qt::AlignLeft);
    layout->addWidget(m_checkBox);

    auto *microphoneLayout = new QVBoxLayout(m_microphoneBox);
    m_microphone->setWordWrap(true);
    microphoneLayout->addWidget(m_microphone);
    layout->addWidget(m_microphoneBox);

    layout->addLayout(m_extra);

    auto *dataLayout = new QVBoxLayout(m_dataBox);
    dataLayout->addWidget(m_dataFolder, 0, Qt::AlignLeft);
    layout->addWidget(m_dataBox);
    layout->addStretch();

    connect(m_languagePicker, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!m_filling && index >= 0)
            m_language.setLanguage(AppLanguage::allCases().at(std::size_t(index)));
    });
    connect(m_game, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!m_filling && index >= 0)
            m_model.setGame(GameKind::allCases().at(std::size_t(index)));
    });
    connect(m_bottle, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!m_filling && index >= 0)
            m_model.setSelectedBottlePath(m_bottle->itemData(index).toString());
    });
    connect(m_chooseBottle, &QPushButton::clicked, &model, &LauncherModel::chooseBottle);
    connect(m_chooseDirectory, &QPushButton::clicked, &model, &LauncherModel::chooseGameDirectory);
    connect(m_resetDirectory, &QPushButton::clicked, &model, &LauncherModel::resetGameDirectory);
    connect(m_recheck, &QPushButton::clicked, this, [this] {
        m_model.discoverBottles();
        m_model.refreshStatus();
    });
    connect(m_dataFolder, &QPushButton::clicked, &model, &LauncherModel::openDataFolder);
    connect(m_assistance, &AssistanceCard::diagnosticsRequested, this, &SettingsPage::diagnosticsRequested);
    connect(&model, &LauncherModel::bottlesChanged, this, &SettingsPage::refreshBottles);
    retranslate();
}

void SettingsPage::refreshBottles()
{
    m_filling = true;
    m_bottle->clear();
    for (const Bottle &bottle : m_model.bottles())
        m_bottle->addItem(bottle.name(), bottle.path);
    const QString selected = m_model.selectedBottlePath();
    int index = m_bottle->findData(selected);
    if (index < 0 && !selected.isEmpty()) {
        m_bottle->addItem(QFileInfo(selected).fileName(), selected);
        index = m_bottle->count() - 1;
    }
    m_bottle->setCurrentIndex(index);
    m_filling = false;
}

void SettingsPage::refresh()
{
    m_filling = true;
    m_languagePicker->setCurrentIndex(int(AppLanguage::Value(m_language.language())));
    m_game->setCurrentIndex(int(GameKind::Value(m_model.game())));
    m_filling = false;
    refreshBottles();
    m_directory->setText(m_model.gameDirectory().isEmpty() ? L("Nincs kiválasztva") : m_model.gameDirectory());
    CheckFixRow::fill(m_checklist, m_model);
    const char *microphone = "microphone.denied";
    switch (m_model.microphone().authorizationStatus()) {
    case MicrophoneAuthorization::authorized: microphone = "microphone.authorized"; break;
    case MicrophoneAuthorization::notDetermined: microphone = "microphone.notDetermined"; break;
    default: break;
    }
    m_microphone->setText(L(microphone));
    m_assistance->setIssue(m_model.issue());
}

void SettingsPage::retranslate()
{
    m_heading->setText(L("page.settings"));
    m_subtitle->setText(L("Nyelv, játék és CrossOver-beállítások."));
    m_languageBox->setTitle(L("Alkalmazás nyelve"));
    m_languageNote->setText(L("A nyelvváltás azonnali; a választást megjegyezzük.") + u'\n'
                            + L("A macOS saját párbeszédablakai a rendszer nyelvét követhetik."));
    m_gameBox->setTitle(L("Játék és telepítési hely"));
    m_gameLabel->setText(L("Kiválasztott játék"));
    m_bottleLabel->setText(L("CrossOver-palack"));
    m_bottleNote->setText(L("A Windowsos Steamet tartalmazó környezet."));
    m_chooseBottle->setText(L("window.choose"));
    m_directoryLabel->setText(L("Játék mappája"));
    m_chooseDirectory->setText(L("window.choose"));
    m_resetDirectory->setText(L("Automatikus játékmappa visszaállítása"));
    m_compatNote->setText(L("A launcher ezeket a kompatibilitási értékeket automatikusan alkalmazza."));
    m_checkBox->setTitle(L("Rendszerellenőrzés"));
    m_recheck->setText(L("Újraellenőrzés"));
    m_microphoneBox->setTitle(L("Mikrofonengedély"));
    m_dataBox->setTitle(L("Alkalmazásadatok"));
    m_dataFolder->setText(L("window.openDataFolder"));
    m_languagePicker->setAccessibleName(L("Alkalmazás nyelve"));
    m_game->setAccessibleName(L("Kiválasztott játék"));
    m_bottle->setAccessibleName(L("CrossOver-palack"));
    m_chooseBottle->setAccessibleName(L("CrossOver-palack kiválasztása"));
    m_chooseDirectory->setAccessibleName(L("%@ mappájának kiválasztása", m_model.game().rawValue()));
    for (QAbstractButton *button :
         std::initializer_list<QAbstractButton *>{m_resetDirectory, m_recheck, m_dataFolder})
        button->setAccessibleName(button->text());
    m_assistance->retranslate();
    refresh();
}
