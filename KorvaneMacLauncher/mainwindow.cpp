#include "KorvaneMacLauncher/mainwindow.h"

#include "core/launchermodel.h"
#include "games/gameversion.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QtConcurrent>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(LauncherModel &model, LanguageSettings &language, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_language(language)
{
    auto *layout = new QFormLayout(this);
    m_game = new QComboBox(this);
    for (GameKind game : GameKind::allCases())
        m_game->addItem(game.rawValue());
    m_game->setCurrentIndex(int(GameKind::Value(model.game())));

    m_languagePicker = new QComboBox(this);
    for (AppLanguage option : AppLanguage::allCases())
        m_languagePicker->addItem(option.nativeName());
    m_languagePicker->setCurrentIndex(int(AppLanguage::Value(language.language())));

    m_gameLabel = new QLabel(this);
    m_versionLabel = new QLabel(this);
    m_languageLabel = new QLabel(this);
    m_statusLabel = new QLabel(this);
    layout->addRow(m_gameLabel, m_game);
    layout->addRow(m_languageLabel, m_languagePicker);
    layout->addRow(m_versionLabel);
    layout->addRow(m_statusLabel);

    connect(m_game, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_model.setGame(GameKind::allCases().at(std::size_t(index)));
    });
    connect(m_languagePicker, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_language.setLanguage(AppLanguage::allCases().at(std::size_t(index)));
    });
    connect(&m_model, &LauncherModel::gameDirectoryChanged, this, &MainWindow::refreshVersion);
    connect(&m_model, &LauncherModel::gameChanged, this, &MainWindow::refreshVersion);
    connect(&m_model, &LauncherModel::statusChanged, this, &MainWindow::retranslate);
    connect(&m_language, &LanguageSettings::languageChanged, this, &MainWindow::retranslate);
    retranslate();
    refreshVersion();
}

void MainWindow::retranslate()
{
    setWindowTitle(u"Korvane Mac Launcher"_s);
    m_gameLabel->setText(L("Kiválasztott játék"));
    m_languageLabel->setText(L("Alkalmazás nyelve"));
    m_versionLabel->setText(L("Telepített verzió: %@", m_versionText.isEmpty() ? L("ismeretlen") : m_versionText));
    m_statusLabel->setText(m_model.statusText());
}

// The executable can be hundreds of megabytes: read it in the pool, and show only the answer
// of the newest request.
void MainWindow::refreshVersion()
{
    const quint64 request = ++m_versionRead;
    const QString executable = m_model.gameExecutablePath();
    QtConcurrent::run([executable] { return GameVersion::read(executable); })
        .then(this, [this, request](std::optional<GameVersion> version) {
            if (request != m_versionRead)
                return;
            m_versionText = version ? version->text() : QString();
            retranslate();
        });
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    event->accept();
    Q_EMIT closed();
}
