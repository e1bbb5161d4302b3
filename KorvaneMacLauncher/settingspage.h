#pragma once

#include <QWidget>

class QComboBox;
class QGroupBox;
class QLabel;
class QPushButton;
class QVBoxLayout;
class AssistanceCard;
class LanguageSettings;
class LauncherModel;

// The settings page: language, game and bottle, the game folder, the readiness checklist with a
// fix for every red row, the microphone and the data folder.
class SettingsPage : public QWidget {
    Q_OBJECT

public:
    SettingsPage(LauncherModel &model, LanguageSettings &language, QWidget *parent = nullptr);

    QWidget *checklist() const { return m_checklist; }
    QComboBox *bottlePicker() const { return m_bottle; }
    AssistanceCard *assistance() const { return m_assistance; }
    // Where the setup support, the game profile and the settings transfer go.
    QVBoxLayout *extraArea() const { return m_extra; }
    void refresh();
    void retranslate();

Q_SIGNALS:
    void diagnosticsRequested();

private:
    void refreshBottles();

    LauncherModel &m_model;
    LanguageSettings &m_language;
    bool m_filling = false;
    QLabel *m_heading;
    QLabel *m_subtitle;
    QGroupBox *m_languageBox;
    QComboBox *m_languagePicker;
    QLabel *m_languageNote;
    QGroupBox *m_gameBox;
    QLabel *m_gameLabel;
    QComboBox *m_game;
    QLabel *m_bottleLabel;
    QLabel *m_bottleNote;
    QComboBox *m_bottle;
    QPushButton *m_chooseBottle;
    QLabel *m_directoryLabel;
    QLabel *m_directory;
    QPushButton *m_chooseDirectory;
    QPushButton *m_resetDirectory;
    QLabel *m_compatNote;
    QGroupBox *m_checkBox;
    QWidget *m_checklist;
    QPushButton *m_recheck;
    QGroupBox *m_microphoneBox;
    QLabel *m_microphone;
    QGroupBox *m_dataBox;
    QPushButton *m_dataFolder;
    AssistanceCard *m_assistance;
    QVBoxLayout *m_extra;
};
