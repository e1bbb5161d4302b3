#include "KorvaneMacLauncher/mainwindow.h"

#include "games/gameprofile.h"
#include "games/gameversion.h"
#include "platform/userdefaults.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(UserDefaults &defaults, LanguageSettings &language, QWidget *parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_language(language)
{
    auto *layout = new QFormLayout(this);
    m_game = new QComboBox(this);
    for (GameKind game : GameKind::allCases())
        m_game->addItem(game.rawValue(), game.rawValue());
    const auto stored = GameKind::fromRawValue(defaults.string(u"game"_s).value_or(QString()));
    m_game->setCurrentIndex(stored ? int(GameKind::Value(*stored)) : 0);

    m_languagePicker = new QComboBox(this);
    for (AppLanguage option : AppLanguage::allCases())
        m_languagePicker->addItem(option.nativeName(), option.rawValue());
    m_languagePicker->setCurrentIndex(int(AppLanguage::Value(language.language())));

    m_gameLabel = new QLabel(this);
    m_versionLabel = new QLabel(this);
    m_languageLabel = new QLabel(this);
    layout->addRow(m_gameLabel, m_game);
    layout->addRow(m_languageLabel, m_languagePicker);
    layout->addRow(m_versionLabel);

    connect(m_game, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_defaults.setString(u"game"_s, GameKind::allCases().at(std::size_t(index)).rawValue());
        refreshVersion();
    });
    connect(m_languagePicker, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_language.setLanguage(AppLanguage::allCases().at(std::size_t(index)));
    });
    connect(&m_language, &LanguageSettings::languageChanged, this, &MainWindow::retranslate);
    retranslate();
}

void MainWindow::retranslate()
{
    setWindowTitle(u"Korvane Mac Launcher"_s);
    m_gameLabel->setText(L("Kiválasztott játék"));
    m_languageLabel->setText(L("Alkalmazás nyelve"));
    refreshVersion();
}

void MainWindow::refreshVersion()
{
    // Until bottle discovery exists the version comes from a hand-chosen game directory in
    // the game's profile, when there is one.
    const GameKind game = GameKind::allCases().at(std::size_t(m_game->currentIndex()));
    const GameProfiles profiles(m_defaults);
    const auto profile = profiles.profile(game);
    std::optional<GameVersion> version;
    if (profile && !profile->directory.isEmpty())
        version = GameVersion::read(profile->directory + u"/bin/win_x64/"_s + game.executable());
    m_versionLabel->setText(L("Telepített verzió: %@", version ? version->text() : L("ismeretlen")));
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    event->accept();
    Q_EMIT closed();
}
