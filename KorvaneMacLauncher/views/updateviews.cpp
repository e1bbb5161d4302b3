#include "KorvaneMacLauncher/views/updateviews.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "platform/filepanels.h"
#include "preferences/languagesettings.h"
#include "updates/appupdates.h"
#include "updates/releasenotes.h"
#include "updates/rollbackbackup.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using ViewKit::Role;

namespace {

// Inline markdown of a notes line: **bold** and `code`; everything else stays text.
QString richLine(const QString &text)
{
    static const QRegularExpression bold(u"\\*\\*(.+?)\\*\\*"_s);
    static const QRegularExpression code(u"`([^`]+)`"_s);
    QString html = text.toHtmlEscaped();
    html.replace(bold, u"<b>\\1</b>"_s);
    html.replace(code, u"<code>\\1</code>"_s);
    return html;
}

} // namespace

UpdateCenterView::UpdateCenterView(AppUpdates &updates, LanguageSettings &language, const QString &resources,
                                   QWidget *parent)
    : QWidget(parent), m_updates(updates), m_language(language), m_resources(resources)
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::title);
    m_version = ViewKit::label(Role::caption);
    m_phase = ViewKit::label();
    m_available = ViewKit::label(Role::heading);
    m_progressHelp = ViewKit::label(Role::caption);
    m_changelog = ViewKit::label(Role::heading);
    m_notesLines = new QVBoxLayout;
    for (QWidget *widget : {m_title, m_version, m_phase, m_available, m_progressHelp, m_changelog})
        layout->addWidget(widget);
    layout->addLayout(m_notesLines);
    layout->addStretch();

    for (auto changed : {&AppUpdates::phaseChanged, &AppUpdates::availableVersionChanged, &AppUpdates::busyChanged})
        connect(&m_updates, changed, this, &UpdateCenterView::refresh);
    // The notes are in the interface language, so a new language reads the other change log.
    connect(&language, &LanguageSettings::languageChanged, this, [this] {
        loadNotes();
        refresh();
    });
    loadNotes();
    refresh();
}

void UpdateCenterView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    loadNotes();
}

void UpdateCenterView::loadNotes()
{
    const QString notes = LatestReleaseNotes::load(m_resources, m_language.language());
    if (notes == m_notes)
        return;
    m_notes = notes;
    ViewKit::clear(m_notesLines);
    for (const ReleaseNotesText::Line &line : ReleaseNotesText::lines(m_notes)) {
        using Kind = ReleaseNotesText::Line::Kind;
        if (line.kind == Kind::plain && line.text.trimmed().isEmpty())
            continue; // the layout's spacing separates the sections
        auto *label = ViewKit::label(line.kind == Kind::title      ? Role::heading
                                     : line.kind == Kind::headline ? Role::heading
                                                                   : Role::body);
        label->setTextFormat(Qt::RichText);
        label->setText(richLine(line.text));
        if (line.kind == Kind::listItem)
            label->setContentsMargins(12, 0, 0, 0);
        m_notesLines->addWidget(label);
    }
}

void UpdateCenterView::refresh()
{
    m_title->setText(L("center.title"));
    const QString version = m_updates.info().value(u"CFBundleShortVersionString"_s).toString();
    m_version->setText((version.isEmpty() ? u"?"_s : version) + u" · "_s + m_updates.releaseChannel());
    m_phase->setText(m_updates.phase().text());
    const auto available = m_updates.availableVersion();
    m_available->setVisible(available.has_value());
    m_available->setText(available ? L("center.available") + u' ' + *available : QString());
    m_progressHelp->setText(L("center.progress.help"));
    m_progressHelp->setVisible(m_updates.busy());
    m_changelog->setText(L("center.changelog"));
}

MaintenanceView::MaintenanceView(LauncherModel &model, AppUpdates &updates, LanguageSettings &language,
                                 ConfirmationDialog &confirmation, QWidget *parent)
    : QWidget(parent), m_model(model), m_updates(updates), m_confirmation(confirmation)
{
    auto *layout = new QVBoxLayout(this);
    m_title = ViewKit::label(Role::heading);
    m_explanation = ViewKit::label(Role::caption);
    m_unconfigured = ViewKit::label(Role::warning);
    m_automatic = new QCheckBox;
    m_check = new QPushButton;
    // Where the updater leaves installing to a request of its own (Linux), a found release waits
    // for this button; Sparkle asks in its own window.
    m_install = new QPushButton;
    m_backup = new QPushButton;
    m_backups = new QPushButton;
    m_restoreHelp = ViewKit::label(Role::caption);
    m_channelTitle = ViewKit::label(Role::heading);
    m_channel = new QComboBox;
    for (UpdateChannel channel : UpdateChannel::allCases())
        m_channel->addItem(QString(), channel.rawValue());
    m_channelHelp = ViewKit::label(Role::caption);
    m_message = ViewKit::label();
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_check);
    buttons->addWidget(m_install);
    buttons->addWidget(m_backup);
    buttons->addWidget(m_backups);
    buttons->addStretch();
    auto *channel = new QHBoxLayout;
    channel->addWidget(m_channelTitle);
    channel->addWidget(m_channel);
    channel->addStretch();
    for (QWidget *widget : {static_cast<QWidget *>(m_title), static_cast<QWidget *>(m_explanation),
                            static_cast<QWidget *>(m_unconfigured), static_cast<QWidget *>(m_automatic)})
        layout->addWidget(widget);
    layout->addLayout(buttons);
    layout->addWidget(m_restoreHelp);
    layout->addLayout(channel);
    layout->addWidget(m_channelHelp);
    layout->addWidget(m_message);

    connect(m_automatic, &QCheckBox::toggled, &m_updates, &AppUpdates::setAutomatic);
    connect(m_check, &QPushButton::clicked, &m_updates, &AppUpdates::check);
    connect(m_install, &QPushButton::clicked, &m_updates, &AppUpdates::install);
    connect(m_backup, &QPushButton::clicked, &m_updates, &AppUpdates::saveBackup);
    connect(m_backups, &QPushButton::clicked, &m_updates, &AppUpdates::openBackups);
    connect(m_channel, &QComboBox::activated, this, &MaintenanceView::chooseChannel);
    for (auto changed : {&AppUpdates::automaticChanged, &AppUpdates::canCheckChanged, &AppUpdates::busyChanged,
                         &AppUpdates::channelChanged, &AppUpdates::messageChanged, &AppUpdates::canInstallChanged,
                         &AppUpdates::availableVersionChanged})
        connect(&m_updates, changed, this, &MaintenanceView::refresh);
    connect(&m_model, &LauncherModel::isRunningChanged, this, &MaintenanceView::refresh);
    connect(&language, &LanguageSettings::languageChanged, this, &MaintenanceView::refresh);
    refresh();
}

void MaintenanceView::chooseChannel(int index)
{
    const UpdateChannel chosen = m_channel->itemData(index).toString() == UpdateChannel(UpdateChannel::beta).rawValue()
                                     ? UpdateChannel::beta
                                     : UpdateChannel::stable;
    if (chosen == UpdateChannel::beta && m_updates.channel() != UpdateChannel::beta
        && !m_confirmation.confirm(L("channel.confirm.title"), L("channel.confirm.detail"), L("common.cancel"),
                                   L("channel.enable"))) {
        refresh(); // back to the channel in use
        return;
    }
    m_updates.setChannel(chosen);
    refresh();
}

void MaintenanceView::refresh()
{
    m_title->setText(L("update.title"));
    m_explanation->setText(L("update.explanation"));
    m_unconfigured->setText(m_updates.systemManaged() ? L("update.system") : L("update.unconfigured"));
    m_unconfigured->setVisible(!m_updates.configured());
    m_automatic->setText(L("update.automatic"));
    m_automatic->setAccessibleName(L("update.automatic"));
    {
        const QSignalBlocker quiet(m_automatic);
        m_automatic->setChecked(m_updates.automatic());
    }
    m_automatic->setEnabled(m_updates.configured());
    ViewKit::setText(m_check, L("update.check"));
    m_check->setEnabled(m_updates.canCheck() && !m_updates.busy());
    ViewKit::setText(m_install, L("update.install", m_updates.availableVersion().value_or(QString())));
    m_install->setVisible(m_updates.canInstall());
    ViewKit::setText(m_backup, L("update.backup"));
    m_backup->setEnabled(!m_updates.busy());
    ViewKit::setText(m_backups, L("update.backups"));
    m_restoreHelp->setText(L(RollbackBackup::restoreHelpKey));
    m_channelTitle->setText(L("channel.title"));
    m_channel->setAccessibleName(L("channel.title"));
    for (int index = 0; index < m_channel->count(); ++index)
        m_channel->setItemText(index, L(u"channel."_s + m_channel->itemData(index).toString()));
    m_channel->setCurrentIndex(m_channel->findData(m_updates.channel().rawValue()));
    m_channelHelp->setText(L("channel.stable.help"));
    const auto message = m_updates.message();
    m_message->setVisible(message.has_value());
    m_message->setText(message ? message->text() : QString());
}
