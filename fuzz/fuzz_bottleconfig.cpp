// The cxbottle.conf editor: applied twice it changes nothing the second time; every line
// outside its section stays byte for byte, the section ends up with exactly one setting per
// key, and the file-level editor writes what the text editor computes (or nothing at all).
#include "fuzzcheck.h"

#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"

#include <QDir>
#include <QHash>
#include <QRegularExpression>
#include <QStringDecoder>

namespace {
using CompatibilityProfile::ConfigurationError;

std::optional<CompatibilityProfile::ConfigurationUpdate> updated(const QString &text)
{
    try {
        return CompatibilityProfile::updatingBottleConfiguration(text);
    } catch (ConfigurationError) {
        return std::nullopt;
    }
}

// Headers are recognised with tabs and Unicode spaces around them, never across a line break.
QString horizontallyTrimmed(const QString &line)
{
    qsizetype begin = 0, end = line.size();
    const auto blank = [](QChar c) { return c == u'\t' || c.category() == QChar::Separator_Space; };
    while (begin < end && blank(line.at(begin)))
        ++begin;
    while (end > begin && blank(line.at(end - 1)))
        --end;
    return line.mid(begin, end - begin);
}

bool isSectionHeader(const QString &line)
{
    return horizontallyTrimmed(line) == QLatin1String("[EnvironmentVariables]");
}

bool opensSection(const QString &line)
{
    const QString trimmed = horizontallyTrimmed(line);
    return trimmed.startsWith(u'[') && trimmed.endsWith(u']');
}

QRegularExpression compiledSettingPattern(const QString &key, const QString &value)
{
    const QString space = QStringLiteral("[\\s\\x{85}]*");
    QString pattern = u'^' + space + u'"' + QRegularExpression::escape(key) + u'"' + space + u'=';
    if (!value.isEmpty())
        pattern += space + u'"' + QRegularExpression::escape(value) + u'"';
    return QRegularExpression(pattern, QRegularExpression::UseUnicodePropertiesOption);
}

const QRegularExpression &settingPattern(const QString &key, const QString &value)
{
    static QMap<QString, QRegularExpression> compiled;
    const QString name = key + u'=' + value;
    auto found = compiled.find(name);
    if (found == compiled.end())
        found = compiled.insert(name, compiledSettingPattern(key, value));
    return *found;
}

void checkText(const QString &text)
{
    const std::optional<CompatibilityProfile::ConfigurationUpdate> first = updated(text);
    if (!first)
        return;
    FUZZ_CHECK(first->changed == (first->text != text));

    const QString separator = text.contains(QLatin1String("\r\n")) ? QStringLiteral("\r\n") : QStringLiteral("\n");
    // A text in LF style that ends with a bare CR cannot take a line after it without forming a
    // CR LF, and a CR LF anywhere makes the next run read the whole file as CR LF: that run
    // appends one more section in CR LF style, and from then on the file stays as it is.
    const bool crlfFormed = separator == QLatin1String("\n") && first->text.contains(QLatin1String("\r\n"));
    const std::optional<CompatibilityProfile::ConfigurationUpdate> second = updated(first->text);
    FUZZ_CHECK(second);
    if (crlfFormed) {
        FUZZ_CHECK(text.endsWith(u'\r'));
        const std::optional<CompatibilityProfile::ConfigurationUpdate> third = updated(second->text);
        FUZZ_CHECK(second->text.startsWith(first->text) && third && !third->changed);
    } else {
        FUZZ_CHECK(!second->changed && second->text == first->text);
    }

    const QStringList before = text.split(separator);
    const QStringList after = first->text.split(separator);
    qsizetype header = -1;
    for (qsizetype i = 0; i < before.size(); ++i)
        if (isSectionHeader(before.at(i)) && header < 0)
            header = i;
    if (header < 0) {
        // A new section at the end: the old text stays as the start of the new one.
        FUZZ_CHECK(first->text.startsWith(text));
        return;
    }
    // Everything up to the header and everything from the next section on stays.
    qsizetype end = header + 1;
    while (end < before.size() && !opensSection(before.at(end)))
        ++end;
    FUZZ_CHECK(after.size() >= before.size() && after.size() <= before.size() + 2);
    const qsizetype added = after.size() - before.size();
    for (qsizetype i = 0; i <= header; ++i)
        FUZZ_CHECK(after.at(i) == before.at(i));
    for (qsizetype i = end; i < before.size(); ++i)
        FUZZ_CHECK(after.at(i + added) == before.at(i));
    // Inside the section each key is set once, to the profile's value.
    const QMap<QString, QString> &variables = CompatibilityProfile::environment();
    for (auto entry = variables.cbegin(); entry != variables.cend(); ++entry) {
        const QRegularExpression &assignment = settingPattern(entry.key(), {});
        const QRegularExpression &assignmentOfValue = settingPattern(entry.key(), entry.value());
        qsizetype settings = 0;
        for (qsizetype i = header + 1; i < end + added; ++i) {
            if (assignment.match(after.at(i)).hasMatch()) {
                ++settings;
                FUZZ_CHECK(assignmentOfValue.match(after.at(i)).hasMatch());
            }
        }
        FUZZ_CHECK(settings == 1);
    }
}

void checkFile(const QByteArray &bytes)
{
    const QString root = FuzzSupport::scratch();
    const QString bottle = root + QStringLiteral("/bottle");
    const QString data = root + QStringLiteral("/data");
    static const bool made = QDir().mkpath(bottle);
    FUZZ_CHECK(made);
    QDir(data).removeRecursively();
    const QString conf = BottleConfiguration::configurationPath(bottle);
    FuzzSupport::writeFile(conf, bytes);

    QStringDecoder strict(QStringConverter::Utf8,
                          QStringConverter::Flag::ConvertInitialBom | QStringConverter::Flag::Stateless);
    const QString text = strict.decode(bytes);
    const std::optional<CompatibilityProfile::ConfigurationUpdate> expected
        = strict.hasError() ? std::nullopt : updated(text);
    try {
        BottleConfiguration::apply(data, bottle);
        FUZZ_CHECK(expected);
        FUZZ_CHECK(FuzzSupport::readFile(conf) == expected->text.toUtf8());
        // The first change keeps the original; restoring brings back the very bytes.
        if (expected->changed) {
            FUZZ_CHECK(FuzzSupport::readFile(BottleConfiguration::keptOriginalPath(data, bottle)) == bytes);
            FUZZ_CHECK(BottleConfiguration::restore(data, bottle));
            FUZZ_CHECK(FuzzSupport::readFile(conf) == bytes);
        }
    } catch (const BottleConfiguration::FileError &) {
        FUZZ_CHECK(!expected);
        FUZZ_CHECK(FuzzSupport::readFile(conf) == bytes);
    } catch (ConfigurationError) {
        FUZZ_CHECK(!expected);
        FUZZ_CHECK(FuzzSupport::readFile(conf) == bytes);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    checkText(QString::fromUtf8(bytes));
    // Every atomic write syncs to disk; the file round is taken for one input in eight (chosen
    // by content, so a run reproduces) to keep the text checks fast.
    if (qHash(bytes, 0) % 8 == 0)
        checkFile(bytes);
    return 0;
}
