#include "crossover/bottleprocesssnapshot.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {
// One process line of `winedbg --command "info process"`: an optional "=" (the debugger
// itself) or indentation, the hexadecimal pid, the thread count, an optional "\_" child marker
// and the executable in single quotes.
//
// The expression was written for ICU, where \s is Unicode white space and every line
// terminator (CR, LF, CR LF, VT, FF, NEL, LS, PS) ends a line for ^ and $. PCRE2 needs both
// said: the Unicode properties option for \s, and (*ANY) for the line terminators; without
// (*ANY) a listing with lone CR line ends would match only its first line.
const QRegularExpression &processLine()
{
    static const QRegularExpression expression(
        uR"((*ANY)(?m)^[ =]*[0-9a-fA-F]+\s+[0-9]+\s+(?:\\_\s*)?'([^'\r\n]+)'[ \t\r]*$)"_s,
        QRegularExpression::UseUnicodePropertiesOption);
    return expression;
}
} // namespace

BottleProcessSnapshot::BottleProcessSnapshot(const QString &output)
{
    // The header line carries all three words; an error message of Wine carries none of them
    // together, so this tells "no listing" from "a listing" before any line is trusted.
    if (!output.contains(u"pid"_s) || !output.contains(u"threads"_s) || !output.contains(u"executable"_s))
        throw WineProcessProbeError::unrecognizedOutput;

    QRegularExpressionMatchIterator matches = processLine().globalMatch(output);
    if (!matches.hasNext())
        throw WineProcessProbeError::unrecognizedOutput;
    while (matches.hasNext()) {
        QString path = matches.next().captured(1);
        path.replace(u'\\', u'/');
        executables.insert(path.mid(path.lastIndexOf(u'/') + 1).toLower());
    }
}
