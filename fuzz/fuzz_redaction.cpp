// Redaction and the log tail. Redacted text never holds the home path, a web address or an
// e-mail address, keeps its number of lines and is a fixed point of redaction (see below). The tail never
// returns more than it was allowed to read, returns a small file whole, and otherwise starts
// at a line of the file.
#include "fuzzcheck.h"

#include "sessions/diagnosticprivacy.h"

#include <QRegularExpression>
#include <QStringDecoder>

namespace {
const QString home = QStringLiteral("/home/fuzz.user");

qsizetype lineCount(const QString &text)
{
    qsizetype count = 1;
    for (const QChar c : text)
        switch (c.unicode()) {
        case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x85: case 0x2028: case 0x2029:
            ++count;
        }
    return count;
}

void checkRedaction(const QString &text)
{
    const QString redacted = DiagnosticPrivacy::redact(text, home);
    FUZZ_CHECK(!redacted.contains(home));
    FUZZ_CHECK(lineCount(redacted) == lineCount(text));
    // ASCII forms of what the rules cover; the rules themselves are wider.
    static const QRegularExpression url(QStringLiteral("https?://[!#-;=?-~]"));
    static const QRegularExpression email(QStringLiteral("[A-Za-z0-9._%+-]@[A-Za-z0-9.-]+\\.[A-Za-z]{2}"));
    FUZZ_CHECK(!url.match(redacted).hasMatch());
    FUZZ_CHECK(!email.match(redacted).hasMatch());
    // A fixed point, but for one marker: "[EMAIL]" itself names a sensitive key, so a second
    // pass withholds the lines that carry it (the rules put the key test first).
    const QStringList once = redacted.split(u'\n');
    const QStringList twice = DiagnosticPrivacy::redact(redacted, home).split(u'\n');
    FUZZ_CHECK(once.size() == twice.size());
    for (qsizetype i = 0; i < once.size(); ++i)
        FUZZ_CHECK(twice.at(i) == once.at(i)
                   || (twice.at(i) == DiagnosticPrivacy::redactedLine && once.at(i).contains(QLatin1String("[EMAIL]"))));
}

void checkTail(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    // The first byte picks the limit, the rest is the file.
    const qint64 maximum = static_cast<unsigned char>(bytes.at(0));
    const QByteArray content = bytes.mid(1);
    const QString path = FuzzSupport::scratch() + QStringLiteral("/console.log");
    FuzzSupport::writeFile(path, content);
    const std::optional<QString> tail = DiagnosticPrivacy::readTail(path, maximum);
    FUZZ_CHECK(tail.has_value());
    if (content.size() <= maximum) {
        FUZZ_CHECK(*tail == QString::fromUtf8(content));
        return;
    }
    QStringDecoder strict(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    // decode() converts only when its result becomes a QString.
    const QString decoded = strict.decode(content);
    Q_UNUSED(decoded);
    if (strict.hasError())
        return;
    // The last `maximum` bytes without the line they cut into (nothing when they hold no break).
    const QByteArray window = content.right(maximum);
    const qsizetype newline = window.indexOf('\n');
    const QByteArray expected = newline < 0 ? QByteArray() : window.mid(newline + 1);
    FUZZ_CHECK(tail->toUtf8() == expected);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    checkRedaction(QString::fromUtf8(bytes));
    checkTail(bytes);
    return 0;
}
