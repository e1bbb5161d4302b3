#pragma once

#include "preferences/applanguage.h"
#include "preferences/stringtables.h"

#include <QLocale>
#include <QString>
#include <QVariant>
#include <QVariantList>

#include <memory>
#include <optional>

class UserDefaults;

// Every user-visible text goes through here. Keys are dotted identifiers ("favorites.remove")
// or whole Hungarian sentences that are their own keys; the lookup tries the chosen language,
// then English, then shows the key itself.
namespace L10n {

// The store whose "appLanguage" decides the language of L() and LocalizedMessage, and the
// tables they read. Installed once at start-up by the application, korvanectl or a test's
// main, before any other thread runs; this is the one process-wide setting, because a text
// is looked up at the moment it is shown, far from whoever created it.
void install(const UserDefaults *defaults, std::shared_ptr<const StringTables> tables);
const StringTables &installedTables();
// The stored language of the installed store (English when none is installed).
AppLanguage currentLanguage();

// The looked-up text, formatted with the arguments (printf-style: %@ for any value, %d for an
// integer, %.1f, positional %1$@) under the language's locale. Without arguments the text is
// returned as it stands, so a "%" in it stays.
QString text(const QString &key, std::optional<AppLanguage> language = std::nullopt,
             const QVariantList &arguments = {}, const StringTables *bundle = nullptr);

QString format(const QString &format, const QVariantList &arguments, const QLocale &locale);

inline QVariant argument(const QVariant &value) { return value; }
inline QVariant argument(const char *utf8) { return QString::fromUtf8(utf8); }
template <typename T>
QVariant argument(const T &value) { return QVariant::fromValue(value); }

} // namespace L10n

// A text to be looked up later: models keep these, views render them, so the text follows the
// language that is current when it is shown.
struct LocalizedMessage {
    QString key;
    QVariantList arguments;

    LocalizedMessage() = default;
    explicit LocalizedMessage(QString key, QVariantList arguments = {})
        : key(std::move(key)), arguments(std::move(arguments)) {}
    explicit LocalizedMessage(const char *utf8Key, QVariantList arguments = {})
        : key(QString::fromUtf8(utf8Key)), arguments(std::move(arguments)) {}

    QString text() const { return L10n::text(key, std::nullopt, arguments); }
    bool operator==(const LocalizedMessage &) const = default;
};

Q_DECLARE_METATYPE(LocalizedMessage)

// The short form used almost everywhere: look the key up now, in the stored language.
template <typename... Args>
QString L(const QString &key, const Args &...arguments)
{
    return L10n::text(key, std::nullopt, QVariantList{L10n::argument(arguments)...});
}
template <typename... Args>
QString L(const char *utf8Key, const Args &...arguments)
{
    return L10n::text(QString::fromUtf8(utf8Key), std::nullopt, QVariantList{L10n::argument(arguments)...});
}
