#pragma once

#include <QHash>
#include <QString>

#include <optional>

// The translated texts: one table "Localizable.strings" in a folder per language code
// (en.lproj, de.lproj, hu.lproj) of the resource directory. Loaded once and never changed
// afterwards, so any thread may read it without locking.
//
// The format is the classic strings-file syntax: `"key" = "value";` entries, with \" \\ \n
// \t \r and \Uxxxx escapes, and /* */ or // comments between entries. A damaged table is
// dropped whole (a half-read table would show a mix of languages).
class StringTables {
public:
    StringTables() = default;

    // Every "<code>.lproj/Localizable.strings" below the directory.
    static StringTables load(const QString &resourceDirectory);

    // The parsed entries, or nothing when the text is not a well-formed table.
    static std::optional<QHash<QString, QString>> parse(const QString &text);

    // The text of a key in one language; nothing when the language has no table or the
    // table no entry (or the entry is the missing-localisation sentinel).
    std::optional<QString> lookup(const QString &languageCode, const QString &key) const;

    bool hasLanguage(const QString &languageCode) const { return m_tables.contains(languageCode); }
    QHash<QString, QString> table(const QString &languageCode) const { return m_tables.value(languageCode); }
    QString resourceDirectory() const { return m_directory; }

    static inline const QString missingSentinel = QStringLiteral("__MISSING_LOCALIZATION__");
    // A table larger than this is not a string table.
    static constexpr qint64 maximumTableSize = 4 * 1024 * 1024;

private:
    QString m_directory;
    QHash<QString, QHash<QString, QString>> m_tables;
};
