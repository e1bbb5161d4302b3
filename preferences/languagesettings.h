#pragma once

#include "preferences/applanguage.h"

#include <QObject>

class UserDefaults;

// The chosen interface language; every change is stored at once, so the next start comes up
// in the same language.
class LanguageSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(AppLanguage language READ language WRITE setLanguage NOTIFY languageChanged)

public:
    explicit LanguageSettings(UserDefaults &defaults, QObject *parent = nullptr);

    AppLanguage language() const { return m_language; }
    void setLanguage(AppLanguage language);

Q_SIGNALS:
    void languageChanged(AppLanguage language);

private:
    UserDefaults &m_defaults;
    AppLanguage m_language;
};
