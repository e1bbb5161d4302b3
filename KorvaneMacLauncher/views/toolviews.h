#pragma once

#include <QString>
#include <QVariantList>
#include <QWidget>

#include <memory>

class ConfirmationDialog;
class Desktop;
class DiagnosticsModel;
class FilePanels;
class LanguageSettings;
class LauncherModel;
class QCheckBox;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class ServerListModel;
class SettingsTransferFlow;
class WindowPreferences;

// The diagnostics sheet: a redacted summary with log tails, saved as a zip on request.
class DiagnosticsView : public QWidget {
    Q_OBJECT
public:
    // Builds its preview from `model` each time it is shown; `panels` asks where to save, and
    // `desktop`, when there is one, shows the saved file. The zip is built in `temporaryDirectory`.
    DiagnosticsView(LauncherModel &model, LanguageSettings &language, FilePanels &panels, Desktop *desktop,
                    const QString &temporaryDirectory = {}, QWidget *parent = nullptr);
    ~DiagnosticsView() override;

    DiagnosticsModel &diagnostics() { return *m_diagnostics; }

Q_SIGNALS:
    void closeRequested();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();

    LauncherModel &m_model;
    DiagnosticsModel *m_diagnostics;
    QLabel *m_title, *m_privacy, *m_result;
    QPlainTextEdit *m_preview;
    QPushButton *m_save, *m_close;
};

// Exports the launcher's settings to a JSON file and imports them back after a confirmation
// that names the paths missing on this Mac.
class SettingsTransferView : public QWidget {
    Q_OBJECT
public:
    // Runs the transfer over `model`, `language` and `servers`' favourites, asking `confirmation`
    // before an import is applied and `panels` for the files.
    SettingsTransferView(LauncherModel &model, LanguageSettings &language, ServerListModel &servers,
                         ConfirmationDialog &confirmation, FilePanels &panels, QWidget *parent = nullptr);
    ~SettingsTransferView() override;

private:
    void refresh();

    LauncherModel &m_model;
    std::unique_ptr<SettingsTransferFlow> m_flow;
    QString m_resultKey;
    QVariantList m_resultArguments;
    QLabel *m_title, *m_result;
    QPushButton *m_export, *m_import;
};

// The current game's profile: the fixed graphics path, intro videos, the virtual desktop size,
// and whether the launcher hides while the game runs.
class GameProfileView : public QWidget {
    Q_OBJECT
public:
    // Edits `model`'s current profile and `window`'s preferences; locked while a game, an
    // update or a version question is in progress.
    GameProfileView(LauncherModel &model, WindowPreferences &window, LanguageSettings &language,
                    QWidget *parent = nullptr);

private:
    void refresh();

    LauncherModel &m_model;
    WindowPreferences &m_window;
    QLabel *m_title, *m_graphics, *m_resolutionLabel;
    QCheckBox *m_skipIntro, *m_hide, *m_restore;
    QComboBox *m_resolution;
};
