#include "preferences/applanguage.h"
#include "platform/rawvalue.h"

#include "platform/userdefaults.h"

using namespace Qt::StringLiterals;

std::optional<AppLanguage> AppLanguage::fromRawValue(QStringView code)
{
    return caseWithRawValue<AppLanguage>(code);
}

AppLanguage AppLanguage::saved(const UserDefaults &defaults)
{
    const QVariant stored = defaults.object(defaultsKey);
    if (stored.typeId() != QMetaType::QString)
        return english;
    return fromRawValue(stored.toString()).value_or(english);
}

QString AppLanguage::rawValue() const
{
    switch (m_value) {
    case german:
        return u"de"_s;
    case hungarian:
        return u"hu"_s;
    case english:
        break;
    }
    return u"en"_s;
}

QString AppLanguage::nativeName() const
{
    switch (m_value) {
    case german:
        return u"Deutsch"_s;
    case hungarian:
        return u"Magyar"_s;
    case english:
        break;
    }
    return u"English"_s;
}
