#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class LanguageSettings;
class UserDefaults;

// The launcher window as far as the model exists: the selected game, its installed version
// and the language picker.
class MainWindow : public QWidget {
    Q_OBJECT

public:
    MainWindow(UserDefaults &defaults, LanguageSettings &language, QWidget *parent = nullptr);

Q_SIGNALS:
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void retranslate();
    void refreshVersion();

    UserDefaults &m_defaults;
    LanguageSettings &m_language;
    QComboBox *m_game = nullptr;
    QComboBox *m_languagePicker = nullptr;
    QLabel *m_gameLabel = nullptr;
    QLabel *m_versionLabel = nullptr;
    QLabel *m_languageLabel = nullptr;
};
