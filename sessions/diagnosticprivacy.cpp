#include "sessions/diagnosticprivacy.h"

#include "platform/paths.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringList>
#include <QTextBoundaryFinder>

#include <array>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The expressions are ICU's, written and tuned for ICU's meaning of each escape, and a report
// must be redacted the same way whichever engine runs them. PCRE2 (even with Unicode
// properties) disagrees with ICU on two escapes that occur here, so they are translated before
// compiling (tst_redaction_icu compares the result with ICU itself):
//
// - \b: ICU's word characters are [\p{Alphabetic}\p{M}\p{Nd}\p{Pc}\x{200C}\x{200D}] (PCRE2's
//   \w counts "²" and "½" but no combining marks), and ICU ignores combining and format
//   characters: no boundary falls before one, and the character before a boundary is the last
//   one that is neither. PCRE2 looks behind only by fixed lengths, so runs of up to four such
//   characters are skipped; a line with a longer run (no log writes one) is withheld whole
//   rather than risk a boundary ICU would have seen.
// - \s: ICU's white space is \p{White_Space}, which (unlike PCRE2's) includes U+0085. Lines
//   are split at U+0085 first, so this only keeps the two definitions visibly identical.
//
// \d is \p{Nd} in both once Unicode properties are on; (?i) folds case per code point in both,
// and the sensitive-key test below adds ICU's full folding of literal strings (ß = ss).
const QString wordClass = u"[\\p{Alphabetic}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}]"_s;
const QString ignoredClass = u"[\\p{Grapheme_Extend}\\p{Cf}]"_s;

constexpr int skippableIgnored = 4;

QString previousIsWord()
{
    QStringList alternatives;
    for (int skipped = 0; skipped <= skippableIgnored; ++skipped) {
        QString behind = u"(?!"_s + ignoredClass + u')' + wordClass;
        if (skipped > 0)
            behind += ignoredClass + u'{' + QString::number(skipped) + u'}';
        alternatives.append(u"(?<="_s + behind + u')');
    }
    return u"(?:"_s + alternatives.join(u'|') + u')';
}

QString icuBoundary()
{
    const QString previous = previousIsWord();
    return u"(?:(?!"_s + ignoredClass + u")(?:(?="_s + wordClass + u")(?!"_s + previous + u")|(?!"_s
        + wordClass + u')' + previous + u"))"_s;
}

// Where a boundary stands.
enum class Boundaries {
    // Anywhere: the general form.
    general,
    // Each \b has a digit or a hexadecimal letter on its inner side (a word character that is
    // never ignored): the first opens the match, the others close it. ICU's rule then reduces to
    // "no word character before" and "neither a word nor an ignored character after", which
    // PCRE2 checks far faster than the general form.
    wordEdges,
};

QRegularExpression icuExpression(const QString &pattern, Boundaries boundaries = Boundaries::general)
{
    const QString general = icuBoundary();
    const QString opening = u"(?!"_s + previousIsWord() + u')';
    const QString closing = u"(?!"_s + wordClass + u")(?!"_s + ignoredClass + u')';
    int boundariesSeen = 0;
    QString translated;
    translated.reserve(pattern.size() * 4);
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern.at(i);
        if (c == u'\\' && i + 1 < pattern.size()) {
            const QChar next = pattern.at(++i);
            if (next == u'b')
                translated += boundaries == Boundaries::general ? general : boundariesSeen++ == 0 ? opening : closing;
            else if (next == u's')
                translated += u"\\p{White_Space}"_s;
            else
                translated += c + QString(next);
            continue;
        }
        translated += c;
    }
    QRegularExpression expression(translated, QRegularExpression::UseUnicodePropertiesOption);
    if (!expression.isValid())
        qWarning("redaction expression rejected: %s", qPrintable(expression.errorString()));
    return expression;
}

struct Replacement {
    QRegularExpression expression;
    QString marker;
    // A character every match contains: lines without it skip the expression.
    QChar required;
};

struct Expressions {
    QRegularExpression sensitiveKey = icuExpression(
        uR"re((?i)(password|passwd|token|authorization|cookie|secret|login|email|e-mail|steam.?id|player.?name|nickname|chat|profile|account|credential|user.?name))re"_s);
    std::array<Replacement, 7> replacements{{
        {icuExpression(uR"re((?i)[A-Z0-9._%+\-]+@[A-Z0-9.\-]+\.[A-Z]{2,})re"_s), u"[EMAIL]"_s, u'@'},
        {icuExpression(uR"re(https?://[^\s\"<>]+)re"_s), u"[URL]"_s, u':'},
        {icuExpression(uR"re(\b\d{15,20}\b)re"_s, Boundaries::wordEdges), u"[ID]"_s, QChar()},
        {icuExpression(uR"re(\b(?:\d{1,3}\.){3}\d{1,3}(?::\d+)?\b)re"_s, Boundaries::wordEdges), u"[IP]"_s, u'.'},
        {icuExpression(uR"re((?i)\b(?:[0-9a-f]{0,4}:){2,}[0-9a-f:]{0,4}\b)re"_s), u"[IP]"_s, u':'},
        {icuExpression(uR"re((?i)(?:[A-Z]:\\|/(?:Users|Volumes|Library|private|tmp|Applications)/)[^\r\n]*)re"_s), u"[PATH]"_s, QChar()},
        {icuExpression(uR"re((?i)\b[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\b)re"_s, Boundaries::wordEdges),
         u"[UUID]"_s, u'-'},
    }};

    QRegularExpression longIgnoredRun = icuExpression(ignoredClass + u'{' + QString::number(skippableIgnored + 1) + u'}');
    // An expression the regular-expression library refuses (an older PCRE2 without some
    // Unicode property) must not let text through unredacted: every line is withheld instead.
    bool usable = sensitiveKey.isValid() && longIgnoredRun.isValid();

    Expressions()
    {
        sensitiveKey.optimize();
        for (Replacement &replacement : replacements) {
            usable = usable && replacement.expression.isValid();
            replacement.expression.optimize();
        }
    }
};

const Expressions &expressions()
{
    // Compiled once per process; QRegularExpression is safe to use from several threads.
    static const Expressions compiled;
    return compiled;
}

bool isLineSeparator(QChar c)
{
    switch (c.unicode()) {
    case 0x000A: case 0x000B: case 0x000C: case 0x000D: case 0x0085: case 0x2028: case 0x2029:
        return true;
    default:
        return false;
    }
}

bool isAscii(QStringView text)
{
    for (QChar c : text)
        if (c.unicode() >= 0x80)
            return false;
    return true;
}

bool mustWithhold(const QString &line)
{
    const QRegularExpression &key = expressions().sensitiveKey;
    if (key.match(line).hasMatch())
        return true;
    if (isAscii(line))
        return false;
    if (expressions().longIgnoredRun.match(line).hasMatch())
        return true;
    // ICU matches literal strings under full case folding ("PAẞWORD" names a password). The
    // round through upper case applies Unicode's multi-character mappings (ß to SS) that
    // PCRE2's per-character folding skips; lowering first brings ẞ to ß.
    return key.match(line.toLower().toUpper().toLower()).hasMatch();
}

void redactLine(QString &line, const QString &home)
{
    if (!expressions().usable || mustWithhold(line)) {
        line = DiagnosticPrivacy::redactedLine;
        return;
    }
    static const QString homeMarker = u"[HOME]"_s;
    // An empty home would "occur" between every two characters.
    if (!home.isEmpty())
        line.replace(home, homeMarker, Qt::CaseSensitive);
    if (const qsizetype at = line.indexOf(homeMarker); at >= 0) {
        line.truncate(at);
        line += u"[PATH]"_s;
    }
    for (const Replacement &replacement : expressions().replacements) {
        if (!replacement.required.isNull() && !line.contains(replacement.required))
            continue;
        line.replace(replacement.expression, replacement.marker);
    }
}

} // namespace

QString DiagnosticPrivacy::redact(const QString &text, const QString &home)
{
    QString out;
    out.reserve(text.size());
    qsizetype lineStart = 0;
    QString line;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && !isLineSeparator(text.at(i)))
            continue;
        line = text.mid(lineStart, i - lineStart);
        redactLine(line, home);
        out += line;
        if (i < text.size())
            out += u'\n';
        lineStart = i + 1;
    }
    return out;
}

QString DiagnosticPrivacy::redact(const QString &text)
{
    return redact(text, Paths::system().home);
}

namespace {
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

bool isContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}
} // namespace

std::optional<QString> DiagnosticPrivacy::readTail(const QString &path, qint64 maximum)
{
    maximum = std::max<qint64>(maximum, 0);
    const QByteArray native = QFile::encodeName(path);
    struct stat item {};
    // lstat, so a symbolic link is seen as a link and never followed.
    if (native.isEmpty() || ::lstat(native.constData(), &item) != 0 || !S_ISREG(item.st_mode))
        return std::nullopt;
    // O_NOFOLLOW and the second look at the opened file close the gap in which the item could
    // be swapped for a link or a FIFO (O_NONBLOCK keeps a FIFO from blocking the open).
    const FileDescriptor file(::open(native.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat opened {};
    if (file.get() < 0 || ::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode))
        return std::nullopt;
    const off_t size = ::lseek(file.get(), 0, SEEK_END);
    if (size < 0)
        return std::nullopt;
    const qint64 start = size > maximum ? size - maximum : 0;
    if (::lseek(file.get(), off_t(start), SEEK_SET) < 0)
        return std::nullopt;

    QByteArray bytes(qsizetype(std::min<qint64>(maximum, size - start)), Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::read(file.get(), bytes.data() + filled, size_t(bytes.size() - filled));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break; // the file shrank meanwhile
        filled += got;
    }
    bytes.truncate(filled);

    QString text;
    if (start > 0) {
        // A character cut by the seek point costs one replacement character, not one per byte.
        qsizetype skip = 0;
        while (skip < 3 && skip < bytes.size() && isContinuationByte(bytes.at(skip)))
            ++skip;
        text = (skip ? QString(QChar::ReplacementCharacter) : QString()) + QString::fromUtf8(bytes.mid(skip));
        const qsizetype newline = text.indexOf(u'\n');
        text = newline < 0 ? QString() : text.mid(newline + 1);
    } else {
        text = QString::fromUtf8(bytes);
    }
    return text;
}

QString DiagnosticPrivacy::tail(const QString &path, qint64 maximum)
{
    return readTail(path, maximum).value_or(unavailable);
}

QString DiagnosticPrivacy::lastCharacters(const QString &text, qsizetype count)
{
    count = std::max<qsizetype>(count, 0);
    // Every character takes at least one UTF-16 unit.
    if (text.size() <= count)
        return text;
    // Console text is mostly ASCII, where a character is one unit and "\r\n" is one character;
    // counting that directly avoids a boundary analysis of the whole text on every append.
    qsizetype position = text.size();
    qsizetype counted = 0;
    while (counted < count && position > 0 && text.at(position - 1).unicode() < 0x80) {
        position -= (position >= 2 && text.at(position - 1) == u'\n' && text.at(position - 2) == u'\r') ? 2 : 1;
        ++counted;
    }
    // A cut between two ASCII characters is a boundary; a cut after anything else may not be
    // (a prepended mark joins the character after it).
    if (counted == count && position > 0 && text.at(position - 1).unicode() < 0x80)
        return text.mid(position);
    if (counted == count && position == 0)
        return text;

    // The boundary analysis costs as much as the text it is given, and a console append hands
    // over far more than it keeps, so only a window at the end is analysed, doubled while it
    // holds too few characters. It must give the boundaries the whole text would, and Qt's
    // analysis reaches back further than the Unicode rules do: it splits runs of some scripts
    // (Thai and its neighbours) by their own rules, and characters without a script of their
    // own (spaces, digits, punctuation, line feeds, emoji) continue the run before them, across
    // lines. So the window starts at a line that begins with a Latin letter: a line feed ends
    // every cluster and every rule that looks back, and the letter starts a run of its own.
    const QStringView whole(text);
    const auto startsLatinLine = [&whole](qsizetype at) {
        const char16_t first = whole.at(at).unicode();
        return whole.at(at - 1) == u'\n' && ((first >= u'a' && first <= u'z') || (first >= u'A' && first <= u'Z'));
    };
    qsizetype start = std::min(text.size() - count, text.size() - 1);
    for (;;) {
        while (start > 0 && !startsLatinLine(start))
            --start;
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, whole.mid(start));
        finder.toEnd();
        qsizetype found = 0;
        while (found < count && finder.toPreviousBoundary() > 0)
            ++found;
        if (found == count)
            return text.mid(start + finder.position());
        if (start == 0)
            return text;
        start = std::max<qsizetype>(0, start - std::max(count - found, text.size() - start));
    }
}
