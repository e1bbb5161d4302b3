#include "KorvaneMacLauncher/views/setupwizard.h"

#include "KorvaneMacLauncher/views/checkfixrow.h"
#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "platform/userdefaults.h"
#include "preferences/languagesettings.h"

#include <QComboBox>
#include <QDir>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QStackedWidget>

using namespace Qt::StringLiterals;
using ViewKit::Role;

namespace {
constexpr int lastStep = 3;
// The game's row in the readiness checklist.
constexpr qsizetype gameRow = 3;

// The checklist's rows, each failing one with the button that mends it.
QWidget *checkList()
{
    auto *host = new QWidget;
    auto *layout = new QVBoxLayout(host);
    layout->setContentsMargins(0, 0, 0, 0);
    return host;
}
} // namespace

SetupWizard::SetupWizard(LauncherModel &model, LanguageSettings &language, UserDefaults &defaults, QWidget *parent)
    : QWidget(parent), m_model(model), m_language(language), m_defaults(defaults),
      m_microphone(model.microphone().authorizationStatus())
{
    auto *layout = new QVBoxLayout(this);
    auto *header = new QHBoxLayout;
    m_title = ViewKit::label(Role::title);
    m_counter = ViewKit::label(Role::caption);
    m_counter->setWordWrap(false);
    header->addWidget(m_title, 1);
    header->addWidget(m_counter);
    layout->addLayout(header);

    m_pages = new QStackedWidget;
    layout->addWidget(m_pages, 1);

    // Step 0: welcome.
    auto *welcome = new QWidget;
    auto *welcomeLayout = new QVBoxLayout(welcome);
    m_welcome = ViewKit::label(Role::heading);
    m_about = ViewKit::label();
    m_languageLabel = ViewKit::label(Role::heading);
    m_languagePicker = new QComboBox;
    for (AppLanguage option : AppLanguage::allCases())
        m_languagePicker->addItem(option.nativeName(), option.rawValue());
    connect(m_languagePicker, &QComboBox::activated, this, [this](int index) {
        if (const auto chosen = AppLanguage::fromRawValue(m_languagePicker->itemData(index).toString()))
            m_language.setLanguage(*chosen);
    });
    m_graphics = ViewKit::label(Role::caption);
    for (QWidget *widget : {static_cast<QWidget *>(m_welcome), static_cast<QWidget *>(m_about),
                            static_cast<QWidget *>(m_languageLabel), static_cast<QWidget *>(m_languagePicker),
                            static_cast<QWidget *>(m_graphics)})
        welcomeLayout->addWidget(widget);
    welcomeLayout->addStretch();
    m_pages->addWidget(welcome);

    // Step 1: what was found.
    auto *detect = new QWidget;
    auto *detectLayout = new QVBoxLayout(detect);
    m_detect = ViewKit::label(Role::heading);
    m_requirements = ViewKit::label();
    m_detectedChecks = checkList();
    auto *bottleRow = new QHBoxLayout;
    m_bottleLabel = ViewKit::label(Role::heading);
    m_bottleState = ViewKit::label();
    bottleRow->addWidget(m_bottleLabel);
    bottleRow->addWidget(m_bottleState, 1);
    m_openSteam = new QPushButton;
    connect(m_openSteam, &QPushButton::clicked, this, [this] { m_model.openSteam(); });
    detectLayout->addWidget(m_detect);
    detectLayout->addWidget(m_requirements);
    detectLayout->addWidget(m_detectedChecks);
    detectLayout->addLayout(bottleRow);
    detectLayout->addWidget(m_openSteam, 0, Qt::AlignLeft);
    detectLayout->addStretch();
    m_pages->addWidget(detect);

    // Step 2: bottle and game folder.
    auto *choose = new QWidget;
    auto *chooseLayout = new QVBoxLayout(choose);
    m_bottleHelp = ViewKit::label();
    m_bottleTitle = ViewKit::label(Role::heading);
    m_bottlePicker = new QComboBox;
    connect(m_bottlePicker, &QComboBox::activated, this, [this](int index) {
        m_model.setSelectedBottlePath(m_bottlePicker->itemData(index).toString());
    });
    m_chooseBottle = new QPushButton;
    connect(m_chooseBottle, &QPushButton::clicked, this, [this] { m_model.chooseBottle(); });
    auto *bottleLine = new QHBoxLayout;
    bottleLine->addWidget(m_bottlePicker, 1);
    bottleLine->addWidget(m_chooseBottle);
    m_gameHelp = ViewKit::label();
    m_folderTitle = ViewKit::label(Role::heading);
    m_folder = ViewKit::label(Role::caption);
    m_folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_chooseFolder = new QPushButton;
    connect(m_chooseFolder, &QPushButton::clicked, this, [this] { m_model.chooseGameDirectory(); });
    m_resetFolder = new QPushButton;
    connect(m_resetFolder, &QPushButton::clicked, this, [this] { m_model.resetGameDirectory(); });
    auto *folderLine = new QHBoxLayout;
    folderLine->addWidget(m_chooseFolder);
    folderLine->addWidget(m_resetFolder);
    folderLine->addStretch();
    m_recheck = new QPushButton;
    connect(m_recheck, &QPushButton::clicked, this, [this] {
        m_model.discoverBottles();
        m_model.refreshStatus();
    });
    chooseLayout->addWidget(m_bottleHelp);
    chooseLayout->addWidget(m_bottleTitle);
    chooseLayout->addLayout(bottleLine);
    chooseLayout->addWidget(m_gameHelp);
    chooseLayout->addWidget(m_folderTitle);
    chooseLayout->addWidget(m_folder);
    chooseLayout->addLayout(folderLine);
    chooseLayout->addWidget(m_recheck, 0, Qt::AlignLeft);
    chooseLayout->addStretch();
    m_pages->addWidget(choose);

    // Step 3: the summary.
    auto *summary = new QWidget;
    auto *summaryLayout = new QVBoxLayout(summary);
    m_summaryTitle = ViewKit::label(Role::heading);
    m_summaryDetail = ViewKit::label();
    m_summaryRequirements = ViewKit::label(Role::caption);
    m_summaryChecks = checkList();
    m_summaryGraphics = ViewKit::label(Role::caption);
    summaryLayout->addWidget(m_summaryTitle);
    summaryLayout->addWidget(m_summaryDetail);
    summaryLayout->addWidget(m_summaryChecks);
    summaryLayout->addWidget(m_summaryRequirements);
    summaryLayout->addWidget(m_summaryGraphics);
    summaryLayout->addStretch();
    m_pages->addWidget(summary);

    auto *buttons = new QHBoxLayout;
    m_later = new QPushButton;
    m_back = new QPushButton;
    m_primary = new QPushButton;
    m_primary->setDefault(true);
    buttons->addWidget(m_later);
    buttons->addStretch();
    buttons->addWidget(m_back);
    buttons->addWidget(m_primary);
    layout->addLayout(buttons);
    // Leaving for later keeps whatever was completed before.
    connect(m_later, &QPushButton::clicked, this, &SetupWizard::closeRequested);
    connect(m_back, &QPushButton::clicked, this, [this] { setStep(m_step - 1); });
    connect(m_primary, &QPushButton::clicked, this, &SetupWizard::primaryAction);

    connect(&m_language, &LanguageSettings::languageChanged, this, &SetupWizard::refresh);
    for (auto changed : {&LauncherModel::statusChanged, &LauncherModel::bottlesChanged,
                         &LauncherModel::selectedBottlePathChanged, &LauncherModel::gameDirectoryChanged,
                         &LauncherModel::gameChanged})
        connect(&m_model, changed, this, &SetupWizard::refresh);
    // Back from System Settings or the Finder: the permission or the bottle may have changed.
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive)
            return;
        readMicrophone();
        m_model.refreshStatus();
    });
    refresh();
}

void SetupWizard::setStep(int step)
{
    m_step = std::clamp(step, 0, lastStep);
    refresh();
}

void SetupWizard::primaryAction()
{
    if (m_step < lastStep) {
        setStep(m_step + 1);
        return;
    }
    if (m_model.isReady() && m_microphone == MicrophoneAuthorization::authorized) {
        m_defaults.setObject(completedKey, 1);
        Q_EMIT closeRequested();
        return;
    }
    setStep(1);
    m_model.refreshStatus();
}

void SetupWizard::readMicrophone()
{
    m_microphone = m_model.microphone().authorizationStatus();
    refresh();
}

void SetupWizard::fillChecks(QWidget *host, bool markMissingGame)
{
    QList<EnvironmentCheck> rows = m_model.checks();
    if (markMissingGame && gameRow < rows.size() && !rows.at(gameRow).ok)
        rows[gameRow].detail = L("Telepítés szükséges");
    // Each fix re-checks, and the new status refreshes the steps.
    CheckFixRow::fill(host, m_model, rows);
}

void SetupWizard::refresh()
{
    m_title->setText(L("setup.title"));
    m_counter->setText(L("%lld / 4", m_step + 1));
    m_pages->setCurrentIndex(m_step);

    m_welcome->setText(L("setup.welcome"));
    m_about->setText(L("setup.about"));
    m_languageLabel->setText(L("Alkalmazás nyelve"));
    m_languagePicker->setAccessibleName(L("Alkalmazás nyelve"));
    m_languagePicker->setCurrentIndex(m_languagePicker->findData(m_language.language().rawValue()));
    m_graphics->setText(L("D3DMetal + MSync • DirectX 11"));

    m_detect->setText(L("setup.detect"));
    m_requirements->setText(L("setup.requirements"));
    m_bottleLabel->setText(L("CrossOver-palack"));
    const QString bottle = m_model.selectedBottlePath();
    m_bottleState->setText(bottle.isEmpty() ? L("Nincs palack") : QDir(bottle).dirName());
    ViewKit::setText(m_openSteam, L("Steam megnyitása"));

    m_bottleHelp->setText(L("setup.bottle"));
    m_bottleTitle->setText(L("CrossOver-palack"));
    m_bottlePicker->clear();
    for (const Bottle &each : m_model.bottles())
        m_bottlePicker->addItem(each.name(), each.path);
    if (m_model.bottles().isEmpty())
        m_bottlePicker->addItem(L("Nincs palack"), QString());
    m_bottlePicker->setCurrentIndex(qMax(0, m_bottlePicker->findData(bottle)));
    m_bottlePicker->setAccessibleName(L("CrossOver-palack"));
    ViewKit::setText(m_chooseBottle, L("Palack kiválasztása"));
    m_gameHelp->setText(L("setup.game"));
    m_folderTitle->setText(L("Játékmappa"));
    m_folder->setText(m_model.gameDirectory().isEmpty() ? L("Nincs kiválasztva") : m_model.gameDirectory());
    m_folder->setAccessibleName(L("Játékmappa"));
    ViewKit::setText(m_chooseFolder, L("Játékmappa"));
    ViewKit::setText(m_resetFolder, L("Automatikus játékmappa visszaállítása"));
    m_resetFolder->setEnabled(m_model.manualGameDirectory());
    ViewKit::setText(m_recheck, L("Újraellenőrzés"));

    const bool ready = m_model.isReady() && m_microphone == MicrophoneAuthorization::authorized;
    m_summaryTitle->setText(L(ready ? "setup.ready" : "setup.incomplete"));
    m_summaryDetail->setText(L(ready ? "setup.ready.detail" : "setup.incomplete.detail"));
    m_summaryRequirements->setText(L("setup.requirements"));
    m_summaryGraphics->setText(L("\nD3DMetal + MSync"));
    if (m_step == 1)
        fillChecks(m_detectedChecks, false);
    if (m_step == lastStep)
        fillChecks(m_summaryChecks, true);

    ViewKit::setText(m_later, L("setup.later"));
    ViewKit::setText(m_back, L("setup.back"));
    m_back->setVisible(m_step > 0);
    ViewKit::setText(m_primary, L(m_step < lastStep ? "setup.next" : ready ? "setup.finish" : "setup.recheck"));
}
