#include "crossover/compatibilityprofile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace CompatibilityProfile {

const QMap<QString, QString> &environment()
{
    static const QMap<QString, QString> variables{{u"CX_GRAPHICS_BACKEND"_s, graphicsBackend},
                                                  {u"WINEMSYNC"_s, msync}};
    return variables;
}

namespace {

const QString sectionHeader = u"[EnvironmentVariables]"_s;

// Tabs and the Unicode space separators; line breaks are not horizontal and stay, so a line
// that carries a bare LF in a CR LF file is never taken for a header.
bool isHorizontalSpace(QChar c)
{
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

QStringView trimmedHorizontally(QStringView line)
{
    qsizetype begin = 0;
    qsizetype end = line.size();
    while (begin < end && isHorizontalSpace(line[begin]))
        ++begin;
    while (end > begin && isHorizontalSpace(line[end - 1]))
        --end;
    return line.sliced(begin, end - begin);
}

bool isProfileHeader(QStringView line)
{
    return line.contains(u'[') && trimmedHorizontally(line) == sectionHeader;
}

bool isAnyHeader(QStringView line)
{
    const QStringView trimmed = trimmedHorizontally(line);
    return trimmed.startsWith(u'[') && trimmed.endsWith(u']');
}

// A setting line's two patterns for one key. The file's format is defined by ICU's regular
// expressions; PCRE2 behaves the same once (*ANY) makes every line terminator ICU knows a line
// break for "." and "$" (so "$" also matches before a final LF or CR, and "." stops at a bare
// CR inside a line), and "\s" is widened by U+0085, which ICU counts as white space and
// PCRE2's Unicode mode does not.
struct SettingPatterns {
    QString quotedKey;
    QRegularExpression start;
    QRegularExpression full;

    explicit SettingPatterns(const QString &key)
        : quotedKey(u'"' + key + u'"')
    {
        const QString space = u"[\\s\\x{85}]"_s;
        const QString head = u"(*ANY)^"_s + space + u"*\""_s + QRegularExpression::escape(key) + u'"' + space + u'*';
        start.setPattern(head + u'=');
        full.setPattern(head + u'=' + space + u"*\"([^\"]*)\""_s + space + u"*(?:;.*)?$"_s);
        for (QRegularExpression *expression : {&start, &full}) {
            expression->setPatternOptions(QRegularExpression::UseUnicodePropertiesOption);
            expression->optimize();
        }
    }

    bool assigns(const QString &line) const
    {
        // Most lines of a section do not begin with the quoted key; a look at the first
        // non-space character spares them the engine. QChar::isSpace covers every character of
        // the pattern's white space class, so no line the pattern accepts is passed over.
        qsizetype first = 0;
        while (first < line.size() && line.at(first).isSpace())
            ++first;
        return QStringView(line).sliced(first).startsWith(quotedKey) && start.match(line).hasMatch();
    }
};

const SettingPatterns &patternsFor(const QString &key)
{
    static const QMap<QString, SettingPatterns> patterns = [] {
        QMap<QString, SettingPatterns> map;
        for (auto entry = environment().cbegin(); entry != environment().cend(); ++entry)
            map.insert(entry.key(), SettingPatterns(entry.key()));
        return map;
    }();
    return *patterns.find(key);
}

QString settingLine(const QString &key, const QString &value)
{
    return u'"' + key + u"\" = \""_s + value + u'"';
}

} // namespace

ConfigurationUpdate updatingBottleConfiguration(const QString &text)
{
    const QString separator = text.contains(u"\r\n"_s) ? u"\r\n"_s : u"\n"_s;
    QStringList lines = text.split(separator);

    qsizetype header = -1;
    for (qsizetype index = 0; index < lines.size(); ++index) {
        if (!isProfileHeader(lines.at(index)))
            continue;
        if (header >= 0)
            throw ConfigurationError::ambiguousSection;
        header = index;
    }

    const QMap<QString, QString> &variables = environment();
    if (header < 0) {
        if (!lines.constLast().isEmpty())
            lines.append(QString());
        lines.append(sectionHeader);
        for (auto entry = variables.cbegin(); entry != variables.cend(); ++entry)
            lines.append(settingLine(entry.key(), entry.value()));
        lines.append(QString());
    } else {
        qsizetype end = header + 1;
        while (end < lines.size() && !isAnyHeader(lines.at(end)))
            ++end;
        for (auto entry = variables.cbegin(); entry != variables.cend(); ++entry) {
            const SettingPatterns &patterns = patternsFor(entry.key());
            qsizetype found = -1;
            for (qsizetype index = header + 1; index < end; ++index) {
                if (!patterns.assigns(lines.at(index)))
                    continue;
                if (found >= 0)
                    throw ConfigurationError::ambiguousSetting;
                found = index;
            }
            if (found < 0) {
                lines.insert(end++, settingLine(entry.key(), entry.value()));
                continue;
            }
            const QRegularExpressionMatch match = patterns.full.match(lines.at(found));
            if (!match.hasMatch())
                throw ConfigurationError::malformedSetting;
            // Only the value's own characters change: spacing, quotes, a comment and whatever
            // line break "$" stopped before stay as they were.
            if (match.capturedView(1) != entry.value())
                lines[found].replace(match.capturedStart(1), match.capturedLength(1), entry.value());
        }
    }

    ConfigurationUpdate update{lines.join(separator), false};
    update.changed = update.text != text;
    return update;
}

QString canonicalBottlePath(const QString &bottle)
{
    const QString standardized = QDir::cleanPath(QFileInfo(bottle).absoluteFilePath());
    // Resolve the part that exists and keep the rest as written, so a bottle that is not
    // there (yet) still has one name.
    QString existing = standardized;
    QString rest;
    for (;;) {
        const QString resolved = QFileInfo(existing).canonicalFilePath();
        if (!resolved.isEmpty())
            return rest.isEmpty() ? resolved : QDir::cleanPath(resolved + u'/' + rest);
        const qsizetype slash = existing.lastIndexOf(u'/');
        if (slash < 0 || existing == u"/"_s)
            return standardized;
        const QString component = existing.mid(slash + 1);
        rest = rest.isEmpty() ? component : component + u'/' + rest;
        existing = slash == 0 ? u"/"_s : existing.left(slash);
    }
}

QString restartMarker(const QString &directory, const QString &bottle)
{
    const QByteArray digest = QCryptographicHash::hash(canonicalBottlePath(bottle).toUtf8(),
                                                       QCryptographicHash::Sha256);
    return directory + u"/Profiles/"_s + QString::fromLatin1(digest.toHex()) + u".restart-required"_s;
}

} // namespace CompatibilityProfile
