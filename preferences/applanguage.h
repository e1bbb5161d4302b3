#pragma once

#include <QMetaType>
#include <QString>

#include <array>
#include <optional>

class UserDefaults;

// The interface languages, in the order of the language picker.
class AppLanguage {
public:
    enum Value : quint8 { english, german, hungarian };

    constexpr AppLanguage(Value value = english) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<AppLanguage, 3> allCases()
    {
        return {AppLanguage(english), AppLanguage(german), AppLanguage(hungarian)};
    }
    static std::optional<AppLanguage> fromRawValue(QStringView code);
    // The language stored under "appLanguage"; a missing or unknown code is English (a first
    // start is in English, whatever the system's language).
    static AppLanguage saved(const UserDefaults &defaults);

    // The language code: "en", "de", "hu".
    QString rawValue() const;
    QString id() const { return rawValue(); }
    QString nativeName() const;

    static inline const QString defaultsKey = QStringLiteral("appLanguage");

private:
    Value m_value;
};

Q_DECLARE_METATYPE(AppLanguage)
