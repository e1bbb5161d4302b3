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

    bool found(const QString &text) const
    {
        UErrorCode status = U_ZERO_ERROR;
        uregex_setText(m_expression, reinterpret_cast<const UChar *>(text.utf16()), int32_t(text.size()), &status);
        const bool result = uregex_find(m_expression, 0, &status);
        return U_SUCCESS(status) && result;
    }

    QString replaceAll(const QString &text, const QString &marker) const
    {
        UErrorCode status = U_ZERO_ERROR;
        uregex_setText(m_expression, reinterpret_cast<const UChar *>(text.utf16()), int32_t(text.size()), &status);
        const auto replacement = reinterpret_cast<const UChar *>(marker.utf16());
        const int32_t needed = uregex_replaceAll(m_expression, replacement, int32_t(marker.size()), nullptr, 0, &status);
        if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status))
            qFatal("ICU replace failed: %s", u_errorName(status));
        QString out(needed, Qt::Uninitialized);
        status = U_ZERO_ERROR;
        uregex_setText(m_expression, reinterpret_cast<const UChar *>(text.utf16()), int32_t(text.size()), &status);
        uregex_replaceAll(m_expression, replacement, int32_t(marker.size()), reinterpret_cast<UChar *>(out.data()),
                          needed, &status);
        if (U_FAILURE(status) && status != U_STRING_NOT_TERMINATED_WARNING)
            qFatal("ICU replace failed: %s", u_errorName(status));
        return out;
    }

private:
    URegularExpression *m_expression = nullptr;
};

QStringList splitLines(const QString &text)
{
    QStringList lines{QString()};
    for (const QChar c : text) {
        if (c == u'\n' || c == u'\r' || c == u'\u000B' || c == u'\u000C' || c == u'\u0085' || c == u'\u2028' || c == u'\u2029')
            lines.append(QString());
        else
            lines.last() += c;
    }
    return lines;
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

QString visible(const QString &line)
{
    QString out;
    for (const QChar c : line)
        out += c.unicode() < 0x20 || c.unicode() > 0x7e ? u"\\u"_s + QString::number(c.unicode(), 16).rightJustified(4, u'0') : QString(c);
    return out;
}

} // namespace
#endif

class TestRedactionIcu : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sameAsIcu_data()
    {
        QTest::addColumn<QString>("text");

        QTest::newRow("log lines") << u"Connected to 192.168.1.20:27015\nowner 76561198012345678 at 12:34:56\n"
                                      u"Open https://example.com/?mail=anna@example.org\nC:\\Users\\anna\\x to 10.0.0.1\n"
                                      u"Session 123e4567-e89b-12d3-a456-426614174000 opened\r\nLogged in as player 7\n"_s;
        QTest::newRow("word boundaries around marks and symbols")
            << u"76561198012345678\u00B2\n76561198012345678\u0301\n76561198012345678\u200B\ne\u030176561198012345678\n"
               u" \u030176561198012345678\n\u200B76561198012345678\n_76561198012345678\n\u203F76561198012345678\n"
               u"\u0667\u0666\u0665\u0666\u0661\u0661\u0669\u0668\u0660\u0661\u0662\u0663\u0664\u0665\u0666\u0667\u0668\n"
               u"fe80::1\u0301 and ::\u00B2 and a\u200D::1"_s;
        QTest::newRow("case folding") << u"PA\u1E9EWORD\npa\u00DFwd\n\uFB06eamid\nSTEAM\u017FID\n\u212Aey anna@EXAMPLE.\u212Aom\n"
                                         u"\u0130d 123E4567-E89B-12D3-A456-426614174000"_s;
        QTest::newRow("white space in addresses") << u"https://a.example/x\u00A0b https://c.example/y\u3000d https://e\u2007f"_s;

        // Random lines from the pieces that matter; the seed is fixed, so a failure repeats.
        const QStringList pieces = {
            u"1"_s, u"7"_s, u"0"_s, u"12345678"_s, u"765611980"_s, u"a"_s, u"F"_s, u"x"_s, u"Z"_s, u" "_s, u":"_s,
            u"::"_s, u"."_s, u"-"_s, u"@"_s, u"/"_s, u"\\"_s, u"_"_s, u"%"_s, u"\""_s, u"<"_s, u"e\u0301"_s,
            u"\u0301"_s, u"\u200B"_s, u"\u200D"_s, u"\u00B2"_s, u"\u0667"_s, u"\u00DF"_s, u"\u212A"_s, u"\u017F"_s,
            u"\u00E9"_s, u"http://"_s, u"https://"_s, u"/Users/"_s, u"/tmp/"_s, u"C:\\"_s, u"steam"_s, u"id"_s,
            u"\u00A0"_s, u"\u2028"_s, u"\r\n"_s, u"\n"_s, u"\u0085"_s, u"192.168."_s, u"\U0001F69B"_s, u"\u0130"_s,
            u"\u0131"_s, u"abc"_s, u"anna"_s, u"\u0301\u0301\u0301"_s, u".com"_s, u"\u203F"_s, u"\u0600"_s,
        };
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
        const QStringList ours = DiagnosticPrivacy::redact(text, home).split(u'\n');
        const QStringList icu = icuRedact(text, home).split(u'\n');
        const QStringList input = splitLines(text);
        QCOMPARE(ours.size(), icu.size());
        QCOMPARE(ours.size(), input.size());
        for (qsizetype i = 0; i < ours.size(); ++i) {
            const QString expected = hasLongIgnoredRun(input.at(i)) ? u"[REDACTED: potentially identifying line]"_s : icu.at(i);
            QVERIFY2(ours.at(i) == expected,
                     qPrintable(u"line "_s + QString::number(i) + u"\n  ours: "_s + visible(ours.at(i)) + u"\n  ICU:  "_s + visible(expected)));
        }
#endif
    }
};

QTEST_GUILESS_MAIN(TestRedactionIcu)
#include "tst_redaction_icu.moc"
