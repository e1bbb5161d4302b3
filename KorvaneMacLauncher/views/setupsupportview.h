#pragma once

#include <QWidget>

class AppUpdates;
class LanguageSettings;
class LauncherModel;
class QLabel;
class QPushButton;

// The settings page's tools panel: opens the setup assistant again or the diagnostics screen.
class SetupSupportView : public QWidget {
    Q_OBJECT
public:
    // Setup is offered only while no game runs and no update is under way.
    SetupSupportView(LauncherModel &model, AppUpdates &updates, LanguageSettings &language,
                     QWidget *parent = nullptr);

Q_SIGNALS:
    void setupRequested();
    void diagnosticsRequested();

private:
    void refresh();

    LauncherModel &m_model;
    AppUpdates &m_updates;
    QLabel *m_title, *m_explanation;
    QPushButton *m_setup, *m_diagnostics;
};
