#include "preferences/languagesettings.h"

#include "platform/userdefaults.h"

LanguageSettings::LanguageSettings(UserDefaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_language(AppLanguage::saved(defaults))
{
}

void LanguageSettings::setLanguage(AppLanguage language)
{
    // Written on every assignment: an unknown stored code is replaced as soon as the user
    // picks any language, even the one already shown.
    m_defaults.setString(AppLanguage::defaultsKey, language.rawValue());
    if (language == m_language)
        return;
    m_language = language;
    Q_EMIT languageChanged(language);
}
