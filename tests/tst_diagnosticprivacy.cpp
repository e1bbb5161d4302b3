#include "sessions/diagnosticprivacy.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestDiagnosticPrivacy : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString writeFile(const QString &name, const QByteArray &content)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    // Lines of exactly 100 bytes: "L00042" padded with dots and a line break.
    static QByteArray numberedLines(int count)
    {
        QByteArray out;
        for (int i = 0; i < count; ++i)
            out += QByteArray("L%1").replace("%1", QByteArray::number(i).rightJustified(5, '0')).leftJustified(99, '.') + '\n';
        return out;
    }

private Q_SLOTS:
    void redact_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("home");
        QTest::addColumn<QString>("expected");

        const QString anna = u"/Users/anna"_s;
        const QString redacted = u"[REDACTED: potentially identifying line]"_s;

        // Sensitive keys: the whole line goes, whatever the case.
        QTest::newRow("player alone is no key") << u"Logged in as player 7"_s << anna << u"Logged in as player 7"_s;
        QTest::newRow("steamid followed by digits") << u"steamid 76561198012345678"_s << anna << redacted;
        QTest::newRow("key in upper case") << u"AUTHORIZATION: Bearer abc"_s << anna << redacted;
        QTest::newRow("steam_id with separator") << u"[INFO] STEAM_ID=5"_s << anna << redacted;
        QTest::newRow("user name with a blank") << u"Saving user name"_s << anna << redacted;
        QTest::newRow("token inside a URL") << u"GET https://x.example/?token=abc"_s << anna << redacted;
        QTest::newRow("sharp s folds to ss") << u"Pa\u00DFwort? pa\u00DFword reset"_s << anna << redacted;

        // The home path and everything after it.
        QTest::newRow("home path on Linux") << u"Reading /home/anna/.local/share/x.log"_s << u"/home/anna"_s << u"Reading [PATH]"_s;
        QTest::newRow("home is case-sensitive") << u"Reading /HOME/ANNA/x"_s << u"/home/anna"_s << u"Reading /HOME/ANNA/x"_s;
        QTest::newRow("literal home marker") << u"Marker [HOME] here"_s << anna << u"Marker [PATH]"_s;
        QTest::newRow("empty home changes nothing") << u"plain text"_s << QString() << u"plain text"_s;

        // E-mail addresses and web addresses.
        QTest::newRow("e-mail address") << u"Contact anna.kovacs+ets@example.co.uk today"_s << anna << u"Contact [EMAIL] today"_s;
        QTest::newRow("e-mail in a URL") << u"Open https://example.com/?mail=anna@example.org"_s << anna << u"Open [URL]"_s;
        QTest::newRow("URL up to a blank or no-break space")
            << u"see https://a.example/v2?x=1 or https://b.example/x\u00A0next"_s << anna << u"see [URL] or [URL]\u00A0next"_s;
        QTest::newRow("URL up to a quote or angle bracket")
            << u"GET \"http://a.example/x\" <https://b.example/y>"_s << anna << u"GET \"[URL]\" <[URL]>"_s;

        // Long numbers: 15 to 20 digits.
        QTest::newRow("14 digits stay") << u"owner 76561198012345"_s << anna << u"owner 76561198012345"_s;
        QTest::newRow("15 digits") << u"owner 765611980123456"_s << anna << u"owner [ID]"_s;
        QTest::newRow("20 digits") << u"owner 76561198012345678901"_s << anna << u"owner [ID]"_s;
        QTest::newRow("21 digits stay") << u"owner 765611980123456789012"_s << anna << u"owner 765611980123456789012"_s;
        QTest::newRow("digits glued to a letter stay") << u"x76561198012345678"_s << anna << u"x76561198012345678"_s;
        QTest::newRow("Arabic-Indic digits") << u"owner \u0667\u0666\u0665\u0666\u0661\u0661\u0669\u0668\u0660\u0661\u0662\u0663\u0664\u0665\u0666\u0667\u0668"_s
                                             << anna << u"owner [ID]"_s;
        // ICU's word boundaries (compared with ICU itself elsewhere): a superscript is no word
        // character, a combining mark belongs to the character before it; a long run of marks is
        // where ours gives up and withholds the line.
        QTest::newRow("superscript after digits") << u"76561198012345678\u00B2"_s << anna << u"[ID]\u00B2"_s;
        QTest::newRow("combining mark after digits") << u"76561198012345678\u0301"_s << anna << u"76561198012345678\u0301"_s;
        QTest::newRow("five marks in a row: withheld") << u"x\u0301\u0301\u0301\u0301\u0301::1"_s << anna << redacted;
        QTest::newRow("four marks in a row: redacted") << u"x\u0301\u0301\u0301\u0301::1"_s << anna << u"x\u0301\u0301\u0301\u0301[IP]"_s;

        // Network addresses.
        QTest::newRow("IPv4 with port") << u"Connected to 192.168.1.20:27015"_s << anna << u"Connected to [IP]"_s;
        QTest::newRow("four-part version reads as an address") << u"Game version 1.49.2.6"_s << anna << u"Game version [IP]"_s;
        QTest::newRow("IPv6") << u"Resolved 2001:db8:85a3::8a2e:370:7334"_s << anna << u"Resolved [IP]"_s;
        QTest::newRow("IPv6 in brackets with port") << u"to [fe80::1]:443"_s << anna << u"to [[IP]]:443"_s;

        // Paths under the six roots, and Windows drives.
        QTest::newRow("Windows path") << u"Steam at C:\\Program Files (x86)\\Steam"_s << anna << u"Steam at [PATH]"_s;
        QTest::newRow("lower-case drive") << u"z:\\users\\x"_s << anna << u"[PATH]"_s;
        QTest::newRow("path under /opt stays") << u"Using /opt/cxoffice/bin/wine"_s << anna << u"Using /opt/cxoffice/bin/wine"_s;
        QTest::newRow("another volume") << u"Mounted /Volumes/Games/ETS2"_s << anna << u"Mounted [PATH]"_s;
        QTest::newRow("path swallows later markers") << u"Copied C:\\Users\\anna\\x to 10.0.0.1"_s << anna << u"Copied [PATH]"_s;

        // UUIDs.
        QTest::newRow("UUID") << u"Session 123e4567-e89b-12d3-a456-426614174000 opened"_s << anna << u"Session [UUID] opened"_s;
        QTest::newRow("upper-case UUID") << u"id=E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s << anna << u"id=[UUID]"_s;

        // Lines.
        QTest::newRow("final line break kept") << u"line\n"_s << anna << u"line\n"_s;
        QTest::newRow("CR LF gives an empty line") << u"one\r\ntwo"_s << anna << u"one\n\ntwo"_s;
        QTest::newRow("Unicode separators split") << u"a\u0085b\u2028c\u2029d\u000Be\u000Cf"_s << anna << u"a\nb\nc\nd\ne\nf"_s;
        QTest::newRow("key on one line only") << u"ok line\npassword=hunter2\nnext"_s << anna << u"ok line\n"_s + redacted + u"\nnext"_s;
    }

    void redact()
    {
        QFETCH(QString, input);
        QFETCH(QString, home);
        QFETCH(QString, expected);
        QCOMPARE(DiagnosticPrivacy::redact(input, home), expected);
    }

    // Every key of the list on its own, in the spellings logs use: any one of them withholds the
    // whole line, and nothing else in these lines would be redacted.
    void sensitiveKeysWithholdTheLine_data()
    {
        QTest::addColumn<QString>("line");
        const QStringList lines{
            u"password accepted"_s,     u"PASSWD file read"_s,       u"refresh Token expired"_s,
            u"Authorization header sent"_s, u"cookie jar saved"_s,   u"client_secret set"_s,
            u"Login screen shown"_s,    u"Email verified"_s,         u"E-Mail verified"_s,
            u"steamid present"_s,       u"steam_id=5"_s,             u"Steam ID: 5"_s,
            u"playername set"_s,        u"player_name=Anna"_s,       u"Player Name: Anna"_s,
            u"Nickname: Anna"_s,        u"chat message from Anna"_s, u"profile loaded"_s,
            u"Account linked"_s,        u"credentials cached"_s,     u"username=anna"_s,
            u"user_name=anna"_s,        u"user name: anna"_s,        u"USERNAME"_s,
        };
        for (const QString &line : lines)
            QTest::newRow(qPrintable(line)) << line;
    }
    void sensitiveKeysWithholdTheLine()
    {
        QFETCH(QString, line);
        QCOMPARE(DiagnosticPrivacy::redact(u"before\n"_s + line + u"\nafter"_s, u"/Users/anna"_s),
                 u"before\n[REDACTED: potentially identifying line]\nafter"_s);
    }

    void tail_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<qint64>("maximum");
        QTest::addColumn<QString>("expected");

        const QByteArray lines = numberedLines(2000); // 200,000 bytes
        const QByteArray expectedTail = lines.mid(690 * 100); // 200,000 - 131,072 = 68,928: inside line 689

        QTest::newRow("exactly the bound: the whole file") << numberedLines(1311).left(131072) << qint64(131072)
                                                           << QString::fromUtf8(numberedLines(1311).left(131072));
        QTest::newRow("one byte over: first line dropped") << QByteArray("x\n" + numberedLines(1311).left(131071)) << qint64(131072)
                                                          << QString::fromUtf8(numberedLines(1311).left(131071));
        QTest::newRow("200,000 bytes: last 131,072 without the partial line") << lines << qint64(131072) << QString::fromUtf8(expectedTail);
        QTest::newRow("no line break in the tail") << QByteArray(200000, 'x') << qint64(131072) << QString();
        QTest::newRow("character cut at the seek point") << QByteArray("\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\nxyz\n") << qint64(10) << u"xyz\n"_s;
        QTest::newRow("invalid UTF-8 kept as replacement") << QByteArray("a\xff" "b\n") << qint64(131072) << u"a\uFFFDb\n"_s;
        QTest::newRow("empty file") << QByteArray() << qint64(131072) << QString();
        QTest::newRow("zero bound") << QByteArray("abc\n") << qint64(0) << QString();
    }

    void tail()
    {
        QFETCH(QByteArray, content);
        QFETCH(qint64, maximum);
        QFETCH(QString, expected);
        const QString path = writeFile(u"tail.txt"_s, content);
        QCOMPARE(DiagnosticPrivacy::tail(path, maximum), expected);
    }

    void tailOfSomethingElse_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("symbolic link to a log") << u"link"_s;
        QTest::newRow("folder") << u"folder"_s;
        QTest::newRow("missing file") << u"missing"_s;
        QTest::newRow("named pipe") << u"fifo"_s;
        QTest::newRow("empty path") << u"empty"_s;
        QTest::newRow("unreadable file") << u"locked"_s;
    }

    void tailOfSomethingElse()
    {
        QFETCH(QString, kind);
        const QString target = writeFile(u"real.log"_s, "secret\n");
        QString path = m_dir.filePath(kind);
        if (kind == u"link"_s)
            QVERIFY(QFile::link(target, path));
        else if (kind == u"folder"_s)
            QVERIFY(QDir().mkdir(path));
        else if (kind == u"fifo"_s)
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (kind == u"empty"_s)
            path.clear();
        else if (kind == u"locked"_s && ::geteuid() == 0)
            QSKIP("root reads files whatever their permissions");
        else if (kind == u"locked"_s)
            QVERIFY(QFile::copy(target, path) && QFile::setPermissions(path, {}));
        QCOMPARE(DiagnosticPrivacy::tail(path), u"[unavailable]"_s);
        QVERIFY(!DiagnosticPrivacy::readTail(path).has_value());
    }

    void tailOfHugeSparseFile()
    {
        // 3 GiB, past every 32-bit offset, yet only the last bytes are ever read.
        const QString path = m_dir.filePath(u"huge.log"_s);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(qint64(3) << 30));
        QVERIFY(file.seek((qint64(3) << 30) - 11));
        QCOMPARE(file.write("\nlast line\n"), qint64(11));
        file.close();
        QCOMPARE(DiagnosticPrivacy::tail(path), u"last line\n"_s);
    }

    void lastCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qsizetype>("count");
        QTest::addColumn<QString>("expected");
        QTest::newRow("ASCII cut") << u"abcdef"_s << qsizetype(3) << u"def"_s;
        QTest::newRow("CR LF is one character") << u"ab\r\ncd"_s << qsizetype(3) << u"\r\ncd"_s;
        QTest::newRow("decomposed accent is one character") << u"xe\u0301e\u0301"_s << qsizetype(2) << u"e\u0301e\u0301"_s;
        QTest::newRow("family emoji is one character") << u"ab\U0001F468\u200D\U0001F469\u200D\U0001F467"_s << qsizetype(2)
                                                       << u"b\U0001F468\u200D\U0001F469\u200D\U0001F467"_s;
        QTest::newRow("accent before ASCII tail") << u"e\u0301abc"_s << qsizetype(3) << u"abc"_s;
        QTest::newRow("exactly the bound in clusters") << u"a\r\nb"_s << qsizetype(3) << u"a\r\nb"_s;
        QTest::newRow("zero") << u"abc"_s << qsizetype(0) << QString();
        // Long texts are analysed from a line start near their end.
        const QString console = u"Letöltés kész\n"_s.repeated(1000);
        QTest::newRow("long console text") << console << qsizetype(100) << console.right(100);
        QTest::newRow("CR LF before the last line stays whole")
            << u"e\u0301\r\nbe\u0301"_s << qsizetype(3) << u"\r\nbe\u0301"_s;
        QTest::newRow("last line of long clusters reaches back")
            << u"ab\ne\u0301e\u0301e\u0301"_s << qsizetype(3) << u"e\u0301e\u0301e\u0301"_s;
        QTest::newRow("marks after a control at a line start stay one character")
            << u"a\n\t\u200D\uFE0F\u094D"_s << qsizetype(2) << u"\t\u200D\uFE0F\u094D"_s;
        QTest::newRow("flags pair up from the start of their line")
            << u"\U0001F1ED\U0001F1FA\n\U0001F1ED\U0001F1FA\U0001F1E9\U0001F1EA\U0001F1ED"_s << qsizetype(3)
            << u"\U0001F1ED\U0001F1FA\U0001F1E9\U0001F1EA\U0001F1ED"_s;
    }

    void lastCharacters()
    {
        QFETCH(QString, text);
        QFETCH(qsizetype, count);
        QFETCH(QString, expected);
        QCOMPARE(DiagnosticPrivacy::lastCharacters(text, count), expected);
    }
};

QTEST_GUILESS_MAIN(TestDiagnosticPrivacy)
#include "tst_diagnosticprivacy.moc"
