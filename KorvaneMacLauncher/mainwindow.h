#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class LanguageSettings;
class LauncherModel;

// The launcher window as far as the pages exist: the selected game, its installed version, the
// readiness status and the language picker.
class MainWindow : public QWidget {
    Q_OBJECT

public:
    MainWindow(LauncherModel &model, LanguageSettings &language, QWidget *parent = nullptr);

Q_SIGNALS:
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void retranslate();
    void refreshVersion();

    LauncherModel &m_model;
    LanguageSettings &m_language;
    QComboBox *m_game = nullptr;
    QComboBox *m_languagePicker = nullptr;
    QLabel *m_gameLabel = nullptr;
    QLabel *m_versionLabel = nullptr;
    QLabel *m_languageLabel = nullptr;
    QLabel *m_statusLabel = nullptr;
    QString m_versionText;
    quint64 m_versionRead = 0;
};
