#include "preferences/l10n.h"

#include "platform/userdefaults.h"

using namespace Qt::StringLiterals;

namespace {
const UserDefaults *installedDefaults = nullptr;
std::shared_ptr<const StringTables> &tablesSlot()
{
    static std::shared_ptr<const StringTables> tables = std::make_shared<const StringTables>();
    return tables;
}

QString formatNumber(const QVariant &value, QChar conversion, int precision, const QLocale &locale)
{
    switch (conversion.unicode()) {
    case 'd':
    case 'i':
        return QString::number(value.toLongLong());
    case 'u':
        return QString::number(value.toULongLong());
    case 'x':
        return QString::number(value.toULongLong(), 16);
    case 'X':
        return QString::number(value.toULongLong(), 16).toUpper();
    case 'f':
    case 'g': {
        // printf's %f and %g take the locale's decimal separator but never group digits, and
        // %g writes its exponent in lower case where QLocale writes "E".
        QLocale ungrouped = locale;
        ungrouped.setNumberOptions(locale.numberOptions() | QLocale::OmitGroupSeparator);
        const QString text = ungrouped.toString(value.toDouble(), char(conversion.unicode()), precision < 0 ? 6 : precision);
        return conversion == u'g' ? text.toLower() : text;
    }
    default:
        return value.toString();
    }
}
} // namespace

void L10n::install(const UserDefaults *defaults, std::shared_ptr<const StringTables> tables)
{
    installedDefaults = defaults;
    tablesSlot() = tables ? std::move(tables) : std::make_shared<const StringTables>();
}

const StringTables &L10n::installedTables()
{
    return *tablesSlot();
}

AppLanguage L10n::currentLanguage()
{
    return installedDefaults ? AppLanguage::saved(*installedDefaults) : AppLanguage(AppLanguage::english);
}

QString L10n::text(const QString &key, std::optional<AppLanguage> language,
                   const QVariantList &arguments, const StringTables *bundle)
{
    const StringTables &tables = bundle ? *bundle : installedTables();
    const AppLanguage chosen = language.value_or(currentLanguage());
    QString found = tables.lookup(chosen.rawValue(), key)
                        .value_or(tables.lookup(u"en"_s, key).value_or(key));
    if (arguments.isEmpty())
        return found;
    return format(found, arguments, QLocale(chosen.rawValue()));
}

QString L10n::format(const QString &format, const QVariantList &arguments, const QLocale &locale)
{
    QString result;
    result.reserve(format.size() + 16 * arguments.size());
    qsizetype next = 0; // the next sequential argument
    const qsizetype n = format.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = format.at(i);
        if (c != u'%' || i + 1 >= n) {
            result.append(c);
            continue;
        }
        qsizetype j = i + 1;
        if (format.at(j) == u'%') {
            result.append(u'%');
            i = j;
            continue;
        }
        // Optional position "N$".
        qsizetype position = -1;
        qsizetype k = j;
        while (k < n && format.at(k).isDigit())
            ++k;
        if (k > j && k < n && format.at(k) == u'$') {
            position = format.sliced(j, k - j).toInt() - 1;
            j = k + 1;
        }
        // Optional precision ".N"; flags and widths are not used by the tables.
        int precision = -1;
        if (j < n && format.at(j) == u'.') {
            qsizetype p = j + 1;
            while (p < n && format.at(p).isDigit())
                ++p;
            precision = format.sliced(j + 1, p - j - 1).toInt();
            j = p;
        }
        while (j < n && (format.at(j) == u'l' || format.at(j) == u'h' || format.at(j) == u'q'))
            ++j;
        if (j >= n) {
            result.append(format.sliced(i));
            break;
        }
        const QChar conversion = format.at(j);
        static const QString conversions = u"@dixXufgs"_s;
        if (!conversions.contains(conversion)) {
            result.append(format.sliced(i, j - i + 1));
            i = j;
            continue;
        }
        const qsizetype index = position >= 0 ? position : next++;
        if (index >= 0 && index < arguments.size())
            result.append(formatNumber(arguments.at(index), conversion, precision, locale));
        i = j;
    }
    return result;
}
