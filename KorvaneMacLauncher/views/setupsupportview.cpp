#include "KorvaneMacLauncher/views/setupsupportview.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "preferences/languagesettings.h"
#include "updates/appupdates.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

using ViewKit::Role;

SetupSupportView::SetupSupportView(LauncherModel &model, AppUpdates &updates, LanguageSettings &language,
                                   QWidget *parent)
    : QWidget(parent), m_model(model), m_updates(updates)
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::heading);
    m_explanation = ViewKit::label(Role::caption);
    m_setup = new QPushButton;
    m_diagnostics = new QPushButton;
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_setup);
    buttons->addWidget(m_diagnostics);
    buttons->addStretch();
    layout->addWidget(m_title);
    layout->addLayout(buttons);
    layout->addWidget(m_explanation);

    connect(m_setup, &QPushButton::clicked, this, &SetupSupportView::setupRequested);
    connect(m_diagnostics, &QPushButton::clicked, this, &SetupSupportView::diagnosticsRequested);
    connect(&language, &LanguageSettings::languageChanged, this, &SetupSupportView::refresh);
    connect(&model, &LauncherModel::isRunningChanged, this, &SetupSupportView::refresh);
    connect(&updates, &AppUpdates::busyChanged, this, &SetupSupportView::refresh);
    refresh();
}

void SetupSupportView::refresh()
{
    m_title->setText(L("tools.title"));
    m_explanation->setText(L("update.explanation"));
    ViewKit::setText(m_setup, L("setup.open"));
    ViewKit::setText(m_diagnostics, L("diagnostics.open"));
    m_setup->setEnabled(!m_model.isRunning() && !m_updates.busy());
}
