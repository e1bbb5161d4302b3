#include "preferences/stringtables.h"

#include "platform/boundedread.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cctype>

using namespace Qt::StringLiterals;

namespace {
class TableParser {
public:
    explicit TableParser(const QString &text) : m_text(text) {}

    std::optional<QHash<QString, QString>> run()
    {
        QHash<QString, QString> entries;
        while (skipSpaceAndComments()) {
            auto key = quoted();
            if (!key || !skipSpaceAndComments() || !consume(u'='))
                return std::nullopt;
            if (!skipSpaceAndComments())
                return std::nullopt;
            auto value = quoted();
            if (!value || !skipSpaceAndComments() || !consume(u';'))
                return std::nullopt;
            entries.insert(*key, *value);
        }
        if (m_failed)
            return std::nullopt;
        return entries;
    }

private:
    // False at the end of the text (or on an unterminated comment, which fails the parse).
    bool skipSpaceAndComments()
    {
        while (m_pos < m_text.size()) {
            const QChar c = m_text.at(m_pos);
            if (c.isSpace() || c == QChar(0xFEFF)) {
                ++m_pos;
            } else if (QStringView(m_text).sliced(m_pos).startsWith("/*"_L1)) {
                const qsizetype close = m_text.indexOf("*/"_L1, m_pos + 2);
                if (close < 0) {
                    m_failed = true;
                    return false;
                }
                m_pos = close + 2;
            } else if (QStringView(m_text).sliced(m_pos).startsWith("//"_L1)) {
                const qsizetype newline = m_text.indexOf(u'\n', m_pos);
                m_pos = newline < 0 ? m_text.size() : newline + 1;
            } else {
                return true;
            }
        }
        return false;
    }

    bool consume(QChar expected)
    {
        if (m_pos < m_text.size() && m_text.at(m_pos) == expected) {
            ++m_pos;
            return true;
        }
        return false;
    }

    std::optional<QString> quoted()
    {
        if (!consume(u'"'))
            return std::nullopt;
        QString result;
        while (m_pos < m_text.size()) {
            const QChar c = m_text.at(m_pos++);
            if (c == u'"')
                return result;
            if (c != u'\\') {
                result.append(c);
                continue;
            }
            if (m_pos >= m_text.size())
                return std::nullopt;
            const QChar escaped = m_text.at(m_pos++);
            switch (escaped.unicode()) {
            case 'n': result.append(u'\n'); break;
            case 't': result.append(u'\t'); break;
            case 'r': result.append(u'\r'); break;
            case '"': result.append(u'"'); break;
            case '\\': result.append(u'\\'); break;
            case 'U':
            case 'u': {
                if (m_pos + 4 > m_text.size())
                    return std::nullopt;
                // Exactly four hexadecimal digits: toUShort alone would take blanks, a sign or "0x".
                const QStringView digits = QStringView(m_text).sliced(m_pos, 4);
                const auto isHexDigit = [](QChar c) { return c.unicode() < 0x80 && std::isxdigit(c.unicode()); };
                if (!std::all_of(digits.begin(), digits.end(), isHexDigit))
                    return std::nullopt;
                const ushort code = digits.toUShort(nullptr, 16);
                result.append(QChar(code));
                m_pos += 4;
                break;
            }
            default:
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    const QString &m_text;
    qsizetype m_pos = 0;
    bool m_failed = false;
};
} // namespace

std::optional<QHash<QString, QString>> StringTables::parse(const QString &text)
{
    return TableParser(text).run();
}

StringTables StringTables::load(const QString &resourceDirectory)
{
    StringTables tables;
    tables.m_directory = resourceDirectory;
    if (resourceDirectory.isEmpty())
        return tables;
    const QDir directory(resourceDirectory);
    const QStringList folders = directory.entryList({u"*.lproj"_s}, QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &folder : folders) {
        QFile file(directory.filePath(folder + u"/Localizable.strings"_s));
        if (file.size() > maximumTableSize || !file.open(QIODevice::ReadOnly))
            continue;
        const auto entries = parse(QString::fromUtf8(BoundedRead::upTo(file, maximumTableSize)));
        if (!entries) {
            qWarning("String table %s is damaged and is not used", qUtf8Printable(file.fileName()));
            continue;
        }
        tables.m_tables.insert(folder.chopped(6), *entries);
    }
    return tables;
}

std::optional<QString> StringTables::lookup(const QString &languageCode, const QString &key) const
{
    const auto table = m_tables.constFind(languageCode);
    if (table == m_tables.cend())
        return std::nullopt;
    const auto entry = table->constFind(key);
    if (entry == table->cend() || *entry == missingSentinel)
        return std::nullopt;
    return *entry;
}
