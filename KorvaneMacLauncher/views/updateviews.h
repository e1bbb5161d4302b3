#pragma once

#include <QString>
#include <QWidget>

class AppUpdates;
class ConfirmationDialog;
class LanguageSettings;
class LauncherModel;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

// The updates page's centre: this build's version and release line, where an update cycle
// stands, and the newest section of the change log in the interface language.
class UpdateCenterView : public QWidget {
    Q_OBJECT
public:
    // Reads the change logs from `resources` (the folder with "CHANGELOG.md").
    UpdateCenterView(AppUpdates &updates, LanguageSettings &language, const QString &resources,
                     QWidget *parent = nullptr);

    QString notes() const { return m_notes; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    void loadNotes();
    void refresh();

    AppUpdates &m_updates;
    LanguageSettings &m_language;
    QString m_resources;
    QString m_notes;
    QLabel *m_title, *m_version, *m_phase, *m_available, *m_progressHelp, *m_changelog;
    QVBoxLayout *m_notesLines;
};

// Update settings and tools: automatic checks, a manual check, rollback copies and the release
// channel, where beta is chosen only after a confirmation.
class MaintenanceView : public QWidget {
    Q_OBJECT
public:
    // Drives `updates`; `confirmation` asks before the beta channel is chosen.
    MaintenanceView(LauncherModel &model, AppUpdates &updates, LanguageSettings &language,
                    ConfirmationDialog &confirmation, QWidget *parent = nullptr);

private:
    void chooseChannel(int index);
    void refresh();

    LauncherModel &m_model;
    AppUpdates &m_updates;
    ConfirmationDialog &m_confirmation;
    QLabel *m_title, *m_explanation, *m_unconfigured, *m_restoreHelp, *m_channelTitle, *m_channelHelp, *m_message;
    QCheckBox *m_automatic;
    QPushButton *m_check, *m_install, *m_backup, *m_backups;
    QComboBox *m_channel;
};
