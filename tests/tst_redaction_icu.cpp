// Our redaction runs on PCRE2; the expressions are ICU's. This test redacts the same text with
// ICU itself, the engine the expressions were written for, and requires the same result, line
// by line, on a corpus of awkward Unicode and on random text built from the pieces that decide
// word boundaries, case folding and line splitting.

#include "sessions/diagnosticprivacy.h"

#include <QRandomGenerator>
#include <QStringList>
#include <QtTest>

#ifdef KVN_HAVE_ICU
#include <unicode/uregex.h>
#endif

using namespace Qt::StringLiterals;

#ifdef KVN_HAVE_ICU
namespace {

class IcuExpression {
public:
    explicit IcuExpression(const QString &pattern)
    {
        UErrorCode status = U_ZERO_ERROR;
        m_expression = uregex_open(reinterpret_cast<const UChar *>(pattern.utf16()), int32_t(pattern.size()), 0,
                                   nullptr, &status);
        if (U_FAILURE(status))
            qFatal("ICU rejects %s: %s", qPrintable(pattern), u_errorName(status));
    }
    ~IcuExpression() { uregex_close(m_expression); }
    IcuExpression(const IcuExpression &) = delete;
    IcuExpression &operator=(const IcuExpression &) = delete;

    // None of the expressions matches empty text, so a plain find loop replaces as ICU's own
    // replaceAll would, without its two-pass buffer sizing, and any match changes the text.
    QString replaceAll(const QString &text, const QString &marker) const
    {
        UErrorCode status = U_ZERO_ERROR;
        uregex_setText(m_expression, reinterpret_cast<const UChar *>(text.utf16()), int32_t(text.size()), &status);
        QString out;
        int32_t done = 0;
        while (uregex_findNext(m_expression, &status)) {
            out += QStringView(text).mid(done, uregex_start(m_expression, 0, &status) - done) + marker;
            done = uregex_end(m_expression, 0, &status);
        }
        if (U_FAILURE(status))
            qFatal("ICU replace failed: %s", u_errorName(status));
        return out + QStringView(text).mid(done);
    }
    bool found(const QString &text) const { return replaceAll(text, QString()) != text; }

private:
    URegularExpression *m_expression = nullptr;
};

// Every line-breaking character ends a line, so CR LF leaves an empty line between.
QStringList splitLines(const QString &text)
{
    static const QRegularExpression breaks(u"[\\n\\r\\x{0B}\\x{0C}\\x{85}\\x{2028}\\x{2029}]"_s);
    return text.split(breaks);
}

// Lines ours withholds on purpose: five or more combining or format characters in a row, where
// PCRE2 cannot look back far enough to place a boundary as ICU does.
bool hasLongIgnoredRun(const QString &line)
{
    static const IcuExpression run(uR"re([\p{Grapheme_Extend}\p{Cf}]{5})re"_s);
    return run.found(line);
}

// The redaction rules word for word, with ICU doing the matching.
QString icuRedact(const QString &text, const QString &home)
{
    static const IcuExpression key(
        uR"re((?i)(password|passwd|token|authorization|cookie|secret|login|email|e-mail|steam.?id|player.?name|nickname|chat|profile|account|credential|user.?name))re"_s);
    static const IcuExpression email(uR"re((?i)[A-Z0-9._%+\-]+@[A-Z0-9.\-]+\.[A-Z]{2,})re"_s);
    static const IcuExpression url(uR"re(https?://[^\s\"<>]+)re"_s);
    static const IcuExpression id(uR"re(\b\d{15,20}\b)re"_s);
    static const IcuExpression ipv4(uR"re(\b(?:\d{1,3}\.){3}\d{1,3}(?::\d+)?\b)re"_s);
    static const IcuExpression ipv6(uR"re((?i)\b(?:[0-9a-f]{0,4}:){2,}[0-9a-f:]{0,4}\b)re"_s);
    static const IcuExpression path(uR"re((?i)(?:[A-Z]:\\|/(?:Users|Volumes|Library|private|tmp|Applications)/)[^\r\n]*)re"_s);
    static const IcuExpression uuid(uR"re((?i)\b[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\b)re"_s);

    QStringList lines = splitLines(text);
    for (QString &line : lines) {
        if (key.found(line)) {
            line = u"[REDACTED: potentially identifying line]"_s;
            continue;
        }
        if (!home.isEmpty())
            line.replace(home, u"[HOME]"_s);
        if (const qsizetype at = line.indexOf(u"[HOME]"_s); at >= 0)
            line = line.left(at) + u"[PATH]"_s;
        line = email.replaceAll(line, u"[EMAIL]"_s);
        line = url.replaceAll(line, u"[URL]"_s);
        line = id.replaceAll(line, u"[ID]"_s);
        line = ipv4.replaceAll(line, u"[IP]"_s);
        line = ipv6.replaceAll(line, u"[IP]"_s);
        line = path.replaceAll(line, u"[PATH]"_s);
        line = uuid.replaceAll(line, u"[UUID]"_s);
    }
    return lines.join(u'\n');
}

} // namespace
#endif

class TestRedactionIcu : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sameAsIcu_data()
    {
        QTest::addColumn<QString>("text");

        // ICU's word boundaries: a superscript is no word character, a combining mark belongs to
        // the character before it, a format character is never a boundary.
        QTest::newRow("word boundaries around marks and symbols")
            << u"76561198012345678\u00B2\n76561198012345678\u0301\n76561198012345678\u200B\ne\u030176561198012345678\n"
               u" \u030176561198012345678\n\u200B76561198012345678\n_76561198012345678\n\u203F76561198012345678\n"
               u"\u0667\u0666\u0665\u0666\u0661\u0661\u0669\u0668\u0660\u0661\u0662\u0663\u0664\u0665\u0666\u0667\u0668\n"
               u"fe80::1\u0301 and ::\u00B2 and a\u200D::1"_s;
        QTest::newRow("case folding") << u"PA\u1E9EWORD\npa\u00DFwd\n\uFB06eamid\nSTEAM\u017FID\n\u212Aey anna@EXAMPLE.\u212Aom\n"
                                         u"\u0130d 123E4567-E89B-12D3-A456-426614174000"_s;
        QTest::newRow("white space in addresses") << u"https://a.example/x\u00A0b https://c.example/y\u3000d https://e\u2007f"_s;

        // Random lines from the pieces that matter; the seed is fixed, so a failure repeats.
        const QStringList pieces = u"1|7|0|12345678|765611980|a|F|x|Z| |:|::|.|-|@|/|\\|_|%|\"|<|e\u0301|\u0301|\u200B|"
                                   u"\u200D|\u00B2|\u0667|\u00DF|\u212A|\u017F|\u00E9|http://|https://|/Users/|/tmp/|"
                                   u"C:\\|steam|id|\u00A0|\u2028|\r\n|\n|\u0085|192.168.|\U0001F69B|\u0130|\u0131|"
                                   u"abc|anna|\u0301\u0301\u0301|.com|\u203F|\u0600"_s.split(u'|');
        QRandomGenerator random(20260301);
        for (int block = 0; block < 12; ++block) {
            QString text;
            for (int line = 0; line < 400; ++line) {
                const int count = 3 + random.bounded(25);
                for (int i = 0; i < count; ++i)
                    text += pieces.at(random.bounded(int(pieces.size())));
                text += u'\n';
            }
            QTest::newRow(qPrintable(u"random block "_s + QString::number(block))) << text;
        }
    }

    void sameAsIcu()
    {
#ifndef KVN_HAVE_ICU
        QSKIP("ICU is not available to this build");
#else
        QFETCH(QString, text);
        const QString home = u"/Users/anna"_s;
        const QStringList input = splitLines(text);
        QStringList expected = icuRedact(text, home).split(u'\n');
        QCOMPARE(expected.size(), input.size());
        for (qsizetype i = 0; i < input.size(); ++i) {
            if (hasLongIgnoredRun(input.at(i)))
                expected[i] = u"[REDACTED: potentially identifying line]"_s;
        }
        // QCOMPARE names the first line that differs and shows both with escapes.
        QCOMPARE(DiagnosticPrivacy::redact(text, home).split(u'\n'), expected);
#endif
    }
};

QTEST_GUILESS_MAIN(TestRedactionIcu)
#include "tst_redaction_icu.moc"
