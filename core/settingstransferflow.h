#pragma once

#include "preferences/l10n.h"
#include "preferences/settingstransfer.h"

#include <QStringList>

#include <optional>

class ConfirmationDialog;
class FilePanels;
class LanguageSettings;
class LauncherModel;
class ServerListModel;

// Saving the settings to a file and loading them back: the export, import and apply sequences
// that the settings page and korvanectl both run. Each returns the message to show the user,
// or nothing when the user cancelled or the launcher is busy.
class SettingsTransferFlow {
public:
    SettingsTransferFlow(LauncherModel &model, ServerListModel &servers, LanguageSettings &language,
                         FilePanels &panels, ConfirmationDialog &confirmation);

    // Not while a game runs, an update or the setup is in progress, or a version question waits.
    bool isAvailable() const;

    std::optional<LocalizedMessage> exportSettings();
    // Reads a chosen file and, once the user confirms, applies it.
    std::optional<LocalizedMessage> importSettings();
    // Applies the document read last, after backing up the current settings.
    std::optional<LocalizedMessage> applyCandidate();
    void dismissCandidate();

    const std::optional<SettingsTransfer> &candidate() const { return m_candidate; }
    QStringList missingPaths() const { return m_missing; }
    // Why the last sequence failed, for korvanectl and the log; empty otherwise.
    QString lastError() const { return m_lastError; }
    // The backup written by the last apply.
    QString lastBackupPath() const { return m_lastBackupPath; }

    static inline const QString backupFolderName = QStringLiteral("SettingsBackups");

private:
    LocalizedMessage failed(const QString &why);
    SettingsTransfer snapshot();
    bool writeBackup();

    LauncherModel &m_model;
    ServerListModel &m_servers;
    LanguageSettings &m_language;
    FilePanels &m_panels;
    ConfirmationDialog &m_confirmation;
    std::optional<SettingsTransfer> m_candidate;
    QStringList m_missing;
    QString m_lastError;
    QString m_lastBackupPath;
};
