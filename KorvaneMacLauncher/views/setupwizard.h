#pragma once

#include "platform/microphone.h"

#include <QWidget>

class LanguageSettings;
class LauncherModel;
class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;
class UserDefaults;

// The four steps that bring a new user to a launchable state: welcome and language, the
// requirements found, bottle and game folder, and a summary that finishes only when everything,
// the microphone included, is ready.
class SetupWizard : public QWidget {
    Q_OBJECT
public:
    // `defaults` keeps "setupCompletedVersion"; the microphone is the one the model was given.
    SetupWizard(LauncherModel &model, LanguageSettings &language, UserDefaults &defaults,
                QWidget *parent = nullptr);

    static inline const QString completedKey = QStringLiteral("setupCompletedVersion");

    int step() const { return m_step; }
    MicrophoneAuthorization microphone() const { return m_microphone; }

Q_SIGNALS:
    void closeRequested();

private:
    void setStep(int step);
    void primaryAction();
    void readMicrophone();
    void refresh();
    void fillChecks(QWidget *host, bool markMissingGame);

    LauncherModel &m_model;
    LanguageSettings &m_language;
    UserDefaults &m_defaults;
    int m_step = 0;
    MicrophoneAuthorization m_microphone;

    QLabel *m_title;
    QLabel *m_counter;
    QStackedWidget *m_pages;
    // Step 0
    QLabel *m_welcome, *m_about, *m_languageLabel, *m_graphics;
    QComboBox *m_languagePicker;
    // Step 1
    QLabel *m_detect, *m_requirements, *m_bottleLabel, *m_bottleState;
    QWidget *m_detectedChecks;
    QPushButton *m_openSteam;
    // Step 2
    QLabel *m_bottleHelp, *m_gameHelp, *m_bottleTitle, *m_folderTitle, *m_folder;
    QComboBox *m_bottlePicker;
    QPushButton *m_chooseBottle, *m_chooseFolder, *m_resetFolder, *m_recheck;
    // Step 3
    QLabel *m_summaryTitle, *m_summaryDetail, *m_summaryRequirements, *m_summaryGraphics;
    QWidget *m_summaryChecks;
    // Buttons
    QPushButton *m_later, *m_back, *m_primary;
};
