#include "KorvaneMacLauncher/views/toolviews.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/diagnosticsinput.h"
#include "core/launchermodel.h"
#include "core/settingstransferflow.h"
#include "preferences/languagesettings.h"
#include "preferences/windowpreferences.h"
#include "sessions/diagnosticsmodel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using ViewKit::Role;

DiagnosticsView::DiagnosticsView(LauncherModel &model, LanguageSettings &language, FilePanels &panels,
                                 Desktop *desktop, const QString &temporaryDirectory, QWidget *parent)
    : QWidget(parent), m_model(model), m_diagnostics(new DiagnosticsModel(panels, desktop, temporaryDirectory, this))
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::title);
    m_privacy = ViewKit::label(Role::caption);
    m_preview = new QPlainTextEdit;
    m_preview->setReadOnly(true);
    m_preview->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_preview->setMinimumHeight(260);
    m_result = ViewKit::label();
    m_save = new QPushButton;
    m_close = new QPushButton;
    layout->addWidget(m_title);
    layout->addWidget(m_privacy);
    layout->addWidget(m_preview, 1);
    layout->addWidget(m_result);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_save);
    buttons->addStretch();
    buttons->addWidget(m_close);
    layout->addLayout(buttons);

    connect(m_save, &QPushButton::clicked, m_diagnostics, &DiagnosticsModel::exportArchive);
    connect(m_close, &QPushButton::clicked, this, &DiagnosticsView::closeRequested);
    connect(m_diagnostics, &DiagnosticsModel::previewChanged, this, &DiagnosticsView::refresh);
    connect(m_diagnostics, &DiagnosticsModel::busyChanged, this, &DiagnosticsView::refresh);
    connect(m_diagnostics, &DiagnosticsModel::resultChanged, this, &DiagnosticsView::refresh);
    connect(&language, &LanguageSettings::languageChanged, this, &DiagnosticsView::refresh);
    refresh();
}

DiagnosticsView::~DiagnosticsView() = default;

void DiagnosticsView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The launcher changes while the sheet is away: every showing reads it afresh.
    m_diagnostics->prepare(diagnosticsInput(m_model));
}

void DiagnosticsView::refresh()
{
    m_title->setText(L("diagnostics.title"));
    m_privacy->setText(L("diagnostics.privacy"));
    if (m_preview->toPlainText() != m_diagnostics->preview())
        m_preview->setPlainText(m_diagnostics->preview());
    m_preview->setAccessibleName(L("diagnostics.title"));
    const auto result = m_diagnostics->result();
    m_result->setVisible(result.has_value());
    m_result->setText(result ? result->text() : QString());
    ViewKit::setText(m_save, L("diagnostics.save"));
    m_save->setEnabled(!m_diagnostics->busy() && !m_diagnostics->preview().isEmpty());
    ViewKit::setText(m_close, L("tools.close"));
}

SettingsTransferView::SettingsTransferView(LauncherModel &model, LanguageSettings &language, ServerListModel &servers,
                                           ConfirmationDialog &confirmation, FilePanels &panels, QWidget *parent)
    : QWidget(parent), m_model(model),
      m_flow(std::make_unique<SettingsTransferFlow>(model, servers, language, panels, confirmation))
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::heading);
    m_export = new QPushButton;
    m_import = new QPushButton;
    m_result = ViewKit::label(Role::caption);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_export);
    buttons->addWidget(m_import);
    buttons->addStretch();
    layout->addWidget(m_title);
    layout->addLayout(buttons);
    layout->addWidget(m_result);

    // The flow asks for the file, confirms with the missing paths and applies; the panel shows
    // how it ended. A cancelled sequence leaves the last message as it was.
    auto show = [this](const std::optional<LocalizedMessage> &message) {
        if (!message)
            return;
        m_resultKey = message->key;
        m_resultArguments = message->arguments;
        refresh();
    };
    connect(m_export, &QPushButton::clicked, this, [this, show] { show(m_flow->exportSettings()); });
    connect(m_import, &QPushButton::clicked, this, [this, show] { show(m_flow->importSettings()); });
    connect(&language, &LanguageSettings::languageChanged, this, &SettingsTransferView::refresh);
    for (auto changed : {&LauncherModel::isRunningChanged, &LauncherModel::updateSessionActiveChanged,
                         &LauncherModel::setupActiveChanged, &LauncherModel::pendingCompatibilityChanged})
        connect(&m_model, changed, this, &SettingsTransferView::refresh);
    refresh();
}

SettingsTransferView::~SettingsTransferView() = default;

void SettingsTransferView::refresh()
{
    m_title->setText(L("transfer.title"));
    ViewKit::setText(m_export, L("transfer.export"));
    ViewKit::setText(m_import, L("transfer.import"));
    const bool available = m_flow->isAvailable();
    m_export->setEnabled(available);
    m_import->setEnabled(available);
    m_result->setVisible(!m_resultKey.isEmpty());
    m_result->setText(m_resultKey.isEmpty() ? QString() : LocalizedMessage(m_resultKey, m_resultArguments).text());
}

GameProfileView::GameProfileView(LauncherModel &model, WindowPreferences &window, LanguageSettings &language,
                                 QWidget *parent)
    : QWidget(parent), m_model(model), m_window(window)
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::heading);
    m_graphics = ViewKit::label(Role::caption);
    m_skipIntro = new QCheckBox;
    m_resolutionLabel = ViewKit::label();
    m_resolutionLabel->setWordWrap(false);
    m_resolution = new QComboBox;
    for (const QString &size : GameProfile::sizes())
        m_resolution->addItem(size, size);
    m_hide = new QCheckBox;
    m_restore = new QCheckBox;
    auto *resolution = new QHBoxLayout;
    resolution->addWidget(m_resolutionLabel);
    resolution->addWidget(m_resolution);
    resolution->addStretch();
    layout->addWidget(m_title);
    layout->addWidget(m_graphics);
    layout->addWidget(m_skipIntro);
    layout->addLayout(resolution);
    layout->addWidget(m_hide);
    layout->addWidget(m_restore);

    connect(m_skipIntro, &QCheckBox::toggled, &m_model, &LauncherModel::setSkipIntro);
    connect(m_resolution, &QComboBox::activated, this,
            [this](int index) { m_model.setDesktopSize(m_resolution->itemData(index).toString()); });
    connect(m_hide, &QCheckBox::toggled, &m_window, &WindowPreferences::setHideOnLaunch);
    connect(m_restore, &QCheckBox::toggled, &m_window, &WindowPreferences::setRestoreOnExit);
    for (auto changed : {&LauncherModel::isRunningChanged, &LauncherModel::updateSessionActiveChanged,
                         &LauncherModel::pendingCompatibilityChanged, &LauncherModel::skipIntroChanged,
                         &LauncherModel::desktopSizeChanged, &LauncherModel::gameChanged})
        connect(&m_model, changed, this, &GameProfileView::refresh);
    connect(&m_window, &WindowPreferences::hideOnLaunchChanged, this, &GameProfileView::refresh);
    connect(&m_window, &WindowPreferences::restoreOnExitChanged, this, &GameProfileView::refresh);
    connect(&language, &LanguageSettings::languageChanged, this, &GameProfileView::refresh);
    refresh();
}

void GameProfileView::refresh()
{
    m_title->setText(L("profiles.title"));
    m_graphics->setText(L("D3DMetal + MSync • DirectX 11"));
    m_skipIntro->setText(L("profiles.skipIntro"));
    m_resolutionLabel->setText(L("profiles.resolution"));
    m_resolution->setAccessibleName(L("profiles.resolution"));
    m_hide->setText(L("mac.hide"));
    m_restore->setText(L("mac.restore"));
    for (QCheckBox *box : {m_skipIntro, m_hide, m_restore})
        box->setAccessibleName(box->text());
    {
        const QSignalBlocker a(m_skipIntro), b(m_hide), c(m_restore), d(m_resolution);
        m_skipIntro->setChecked(m_model.skipIntro());
        m_resolution->setCurrentIndex(m_resolution->findData(m_model.desktopSize()));
        m_hide->setChecked(m_window.hideOnLaunch());
        m_restore->setChecked(m_window.restoreOnExit());
    }
    setEnabled(!m_model.isRunning() && !m_model.updateSessionActive() && !m_model.pendingCompatibility());
}
