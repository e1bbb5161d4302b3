// The string-table reader: an accepted table, written back with the format's escapes, reads
// the same; the loader gives the same table from a file, and refuses one over the size cap.
#include "fuzzcheck.h"

#include "preferences/stringtables.h"

#include <QDir>
#include <QHash>

namespace {
// The format's writer: every character that the quoted form cannot carry as it is escaped.
QString quotedEntry(const QString &text)
{
    QString out = QStringLiteral("\"");
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"': out += QLatin1String("\\\""); break;
        case '\\': out += QLatin1String("\\\\"); break;
        case '\n': out += QLatin1String("\\n"); break;
        case '\t': out += QLatin1String("\\t"); break;
        case '\r': out += QLatin1String("\\r"); break;
        default:
            // Everything else outside printable ASCII as \Uxxxx, the way tools export tables.
            if (c.unicode() < 0x20 || c.unicode() > 0x7e)
                out += QStringLiteral("\\U%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            else
                out += c;
        }
    }
    return out + QLatin1Char('"');
}

QString written(const QHash<QString, QString> &table, bool escapeEverything)
{
    QString text = QStringLiteral("/* written back */\n");
    for (auto it = table.cbegin(); it != table.cend(); ++it) {
        if (escapeEverything)
            text += quotedEntry(it.key()) + QLatin1String(" = ") + quotedEntry(it.value()) + QLatin1String(";\n");
        else
            text += QLatin1Char('"') + QString(it.key()).replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""))
                + QLatin1String("\"=\"")
                + QString(it.value()).replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""))
                + QLatin1String("\"; // entry\n");
    }
    return text;
}

QString tableFolder()
{
    static const QString folder = [] {
        const QString path = FuzzSupport::scratch() + QStringLiteral("/resources");
        QDir().mkpath(path + QStringLiteral("/xx.lproj"));
        return path;
    }();
    return folder;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    const QString file = tableFolder() + QStringLiteral("/xx.lproj/Localizable.strings");
    QByteArray table = "\"a\" = \"b\";";
    table.append(QByteArray(StringTables::maximumTableSize - table.size(), ' '));
    FuzzSupport::writeFile(file, table);
    FUZZ_CHECK(StringTables::load(tableFolder()).hasLanguage(QStringLiteral("xx")));
    table.append(' ');
    FuzzSupport::writeFile(file, table);
    FUZZ_CHECK(!StringTables::load(tableFolder()).hasLanguage(QStringLiteral("xx")));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    const std::optional<QHash<QString, QString>> table = StringTables::parse(QString::fromUtf8(bytes));

    // The loader's round through a file for one input in eight (chosen by content, so a run
    // reproduces): it costs far more than the parse.
    if (qHash(bytes, 0) % 8 == 0) {
        FuzzSupport::writeFile(tableFolder() + QStringLiteral("/xx.lproj/Localizable.strings"), bytes);
        const StringTables loaded = StringTables::load(tableFolder());
        FUZZ_CHECK(loaded.hasLanguage(QStringLiteral("xx")) == table.has_value());
        if (table)
            FUZZ_CHECK(loaded.table(QStringLiteral("xx")) == *table);
    }
    if (!table)
        return 0;
    for (const bool escapeEverything : {false, true})
        FUZZ_CHECK(StringTables::parse(written(*table, escapeEverything)) == table);
    return 0;
}
