#include "updates/sparkleversion.h"

#include <QList>
#include <QStringView>

#include <algorithm>

// The rules, those of Sparkle's standard comparator:
// - A version is split into runs of one kind: ASCII digits (a number), letters and other
//   characters (a word), and separators ('.', '-', '_', '+', white space), each separator a
//   part of its own.
// - Parts are compared pairwise from the left. Numbers compare by value ("1.10" > "1.9", any
//   length, no overflow); words compare by their characters ("a" < "b" < "rc").
// - Where the kinds differ, a number is newer than a word or a separator, and a separator is
//   newer than a word: "1.0.1" > "1.0b1", because the word marks a pre-release.
// - When one version runs out, the rest of the longer one decides: a word in it (after any
//   separators) makes it a pre-release of the shorter one ("2.0b2" < "2.0"); a number other than
//   zero makes it newer ("1.0.1" > "1.0"). Trailing zeros change nothing: "1.0" == "1.0.0".
//   (Sparkle's oldest comparator called "1.0.0" newer than "1.0"; offering that as an update
//   would only download the same launcher again.)
namespace {

enum class Kind { number, word, separator };

struct Part {
    Kind kind;
    QStringView text;
};

bool isDigit(QChar c) { return c >= u'0' && c <= u'9'; }

bool isSeparator(QChar c)
{
    return c == u'.' || c == u'-' || c == u'_' || c == u'+' || c.isSpace();
}

Kind kindOf(QChar c)
{
    if (isDigit(c))
        return Kind::number;
    return isSeparator(c) ? Kind::separator : Kind::word;
}

QList<Part> split(QStringView version)
{
    QList<Part> parts;
    qsizetype start = 0;
    while (start < version.size()) {
        const Kind kind = kindOf(version[start]);
        qsizetype end = start + 1;
        if (kind != Kind::separator) {
            while (end < version.size() && kindOf(version[end]) == kind)
                ++end;
        }
        parts.append({kind, version.sliced(start, end - start)});
        start = end;
    }
    return parts;
}

QStringView withoutLeadingZeros(QStringView digits)
{
    qsizetype first = 0;
    while (first < digits.size() && digits[first] == u'0')
        ++first;
    return digits.sliced(first);
}

int compareNumbers(QStringView a, QStringView b)
{
    a = withoutLeadingZeros(a);
    b = withoutLeadingZeros(b);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    const int order = a.compare(b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

int rank(Kind kind)
{
    switch (kind) {
    case Kind::word:
        return 0;
    case Kind::separator:
        return 1;
    case Kind::number:
        return 2;
    }
    return 0;
}

// How the remainder of the longer version weighs against the end of the shorter one: -1 when
// it is a pre-release suffix, +1 when it adds a release component, 0 when it adds only zeros.
int weightOfRest(const QList<Part> &parts, qsizetype from)
{
    for (qsizetype i = from; i < parts.size(); ++i) {
        const Part &part = parts[i];
        if (part.kind == Kind::word)
            return -1;
        if (part.kind == Kind::number && !withoutLeadingZeros(part.text).isEmpty())
            return 1;
    }
    return 0;
}

} // namespace

int SparkleVersion::compare(const QString &a, const QString &b)
{
    const QList<Part> left = split(a);
    const QList<Part> right = split(b);
    const qsizetype common = std::min(left.size(), right.size());
    for (qsizetype i = 0; i < common; ++i) {
        const Part &l = left[i];
        const Part &r = right[i];
        if (l.kind != r.kind)
            return rank(l.kind) < rank(r.kind) ? -1 : 1;
        if (l.kind == Kind::number) {
            if (const int order = compareNumbers(l.text, r.text))
                return order;
        } else if (l.kind == Kind::word) {
            const int order = l.text.compare(r.text);
            if (order != 0)
                return order < 0 ? -1 : 1;
        }
    }
    if (left.size() > common)
        return weightOfRest(left, common);
    if (right.size() > common)
        return -weightOfRest(right, common);
    return 0;
}
