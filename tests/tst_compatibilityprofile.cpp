#include "crossover/bottleconfiguration.h"
#include "crossover/compatibilityprofile.h"
#include "support/testfiles.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using CompatibilityProfile::ConfigurationError;

namespace {
const QString backendLine = u"\"CX_GRAPHICS_BACKEND\" = \"d3dmetal\""_s;
const QString msyncLine = u"\"WINEMSYNC\" = \"1\""_s;
const QString header = u"[EnvironmentVariables]"_s;

// "none" when the update succeeds, else the error's name.
QString outcome(const QString &text, QString *result)
{
    try {
        *result = CompatibilityProfile::updatingBottleConfiguration(text).text;
        return u"none"_s;
    } catch (ConfigurationError error) {
        static const QStringList names{u"ambiguousSection"_s, u"ambiguousSetting"_s, u"malformedSetting"_s};
        return names.value(int(error), u"?"_s);
    }
}

// The text of a file that has the section: the header, then the given lines.
QString inSection(const QString &rest, const QString &separator = u"\n"_s)
{
    return header + separator + rest;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// The permission bits alone, without Qt's bits for the running user.
QFile::Permissions modeOf(const QString &path)
{
    return QFile::permissions(path) & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
}

using TestFiles::write;

// One generated file whose structure is known: the lines before the section's header, the
// header, the section's lines and the lines from the next header on.
struct GeneratedFile {
    QString separator;
    QStringList prelude;
    std::optional<QString> header;
    QStringList body;
    QStringList trailer;
    bool finalBreak = false;

    QString text() const
    {
        QStringList lines = prelude;
        if (header)
            lines << *header << body << trailer;
        QString joined = lines.join(separator);
        return finalBreak ? joined + separator : joined;
    }
};

QString pick(QRandomGenerator &random, const QStringList &choices)
{
    return choices.at(random.bounded(qsizetype(choices.size())));
}

GeneratedFile generate(QRandomGenerator &random)
{
    const bool crlf = random.bounded(2) == 0;
    // Lines may carry bare CRs and (between CR LF separators) bare LFs, but in an LF file no line
    // ends with a CR: the LF after it would turn the file into a CR LF file.
    QStringList settings{u"\"WINEMSYNC\" = \"0\""_s,
                         u"\"WINEMSYNC\"=\"1\""_s,
                         u"  \"CX_GRAPHICS_BACKEND\"\t=  \"dxvk\" ; was dxvk"_s,
                         u"\"CX_GRAPHICS_BACKEND\" = \"d3dmetal\""_s,
                         u"\"WINEMSYNC\"\u3000=\u00a0\"\" ;"_s,
                         u"\"winemsync\" = \"0\""_s,
                         u"\"OTHER\" = \"a;b\""_s,
                         u"; \"WINEMSYNC\" = \"0\""_s,
                         u"\"WINEMSYNC\" = \"0\" ; a\rb"_s,
                         u""_s,
                         u"   "_s,
                         u"[not a header"_s,
                         u"\"WINEMSYNC\" = 1"_s};
    QStringList others{u"[General]"_s, u"\"WINEMSYNC\" = \"0\""_s, u"; comment \u00e9"_s, u""_s, u"Version = 1"_s,
                       u"[environmentvariables]"_s, u"x\ry"_s};
    if (crlf) {
        settings << u"\"WINEMSYNC\" = \"0\" ; x\r"_s << u"\"CX_GRAPHICS_BACKEND\" = \"x\"\n"_s << u"\"OTHER\" = \"1\"\nmore"_s;
        others << u"[EnvironmentVariables]\n"_s << u"tail\r"_s;
    }

    GeneratedFile file;
    file.separator = crlf ? u"\r\n"_s : u"\n"_s;
    for (int i = random.bounded(4); i > 0; --i)
        file.prelude << pick(random, others);
    if (random.bounded(5) != 0) {
        file.header = pick(random, {header, u" \t[EnvironmentVariables]\u3000"_s, u"\u00a0[EnvironmentVariables]"_s});
        // Mostly one setting per key, so that most files reach the edit rather than an error.
        for (int i = random.bounded(5); i > 0; --i) {
            const QString line = pick(random, settings);
            if (random.bounded(3) == 0 || !line.contains(u"WINEMSYNC"_s))
                file.body << line;
        }
        if (random.bounded(2) == 0) {
            file.trailer << pick(random, {u"[Other]"_s, u" [Software\\Wine] "_s, u"[]"_s});
            for (int i = random.bounded(3); i > 0; --i)
                file.trailer << pick(random, {u"; x"_s, u"\"WINEMSYNC\" = \"0\""_s, u""_s, u"x\ry"_s});
        }
    }
    file.finalBreak = random.bounded(2) == 0;
    // A CR LF file needs one separator to be one.
    if (crlf && !file.text().contains(u"\r\n"_s))
        file.finalBreak = true;
    return file;
}

// A setting line: what comes before its value, its key, its value, what comes after the value.
const QRegularExpression settingLine(u"^([^\"]*\"([^\"]*)\"[^\"]*\")([^\"]*)(\".*)$"_s,
                                     QRegularExpression::DotMatchesEverythingOption);
} // namespace

class TestCompatibilityProfile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void update_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("expected");

        const QString added = backendLine + u'\n' + msyncLine;
        const QString section = header + u'\n' + added + u'\n';
        const QString crlfSection = header + u"\r\n"_s + backendLine + u"\r\n"_s + msyncLine + u"\r\n"_s;
        const QString none = u"none"_s;
        const QString crlf = u"\r\n"_s;
        const QString malformed = u"malformedSetting"_s;
        QTest::newRow("empty file gets the section after a blank line") << u""_s << none << u'\n' + section;
        QTest::newRow("a line without a final break gets a blank line") << u"A"_s << none << u"A\n\n"_s + section;
        QTest::newRow("a final break serves as the blank line") << u"A\n"_s << none << u"A\n\n"_s + section;
        QTest::newRow("CR LF file gets CR LF breaks") << u"A\r\nB\r\n"_s << none << u"A\r\nB\r\n\r\n"_s + crlfSection;
        QTest::newRow("header with tabs and Unicode space separators")
            << u" \t\u3000[EnvironmentVariables]\u00a0\t\n\"WINEMSYNC\" = \"1\"\n[X]"_s << none
            << u" \t\u3000[EnvironmentVariables]\u00a0\t\n\"WINEMSYNC\" = \"1\"\n"_s + backendLine + u"\n[X]"_s;
        QTest::newRow("lower-case header is another section")
            << u"[environmentvariables]\n"_s << none << u"[environmentvariables]\n\n"_s + section;
        QTest::newRow("value replaced, comments kept, with or without a space before them")
            << inSection(u"\"WINEMSYNC\" = \"0\" ; off\n"_s + backendLine + u";x\n"_s) << none
            << inSection(u"\"WINEMSYNC\" = \"1\" ; off\n"_s + backendLine + u";x\n"_s);
        QTest::newRow("spacing and an empty value kept")
            << inSection(u"  \"CX_GRAPHICS_BACKEND\"\t=\u00a0\"\"\t; was empty\n\"WINEMSYNC\"=\"1\""_s) << none
            << inSection(u"  \"CX_GRAPHICS_BACKEND\"\t=\u00a0\"d3dmetal\"\t; was empty\n\"WINEMSYNC\"=\"1\""_s);
        QTest::newRow("value without quotes") << inSection(u"\"WINEMSYNC\" = 1\n"_s) << malformed << QString();
        QTest::newRow("text after the value that is no comment")
            << inSection(u"\"WINEMSYNC\" = \"1\" trailing\n"_s) << malformed << QString();
        QTest::newRow("bare CR inside the comment of an LF file")
            << inSection(u"\"WINEMSYNC\" = \"0\" ; a\rb\n"_s) << malformed << QString();
        QTest::newRow("bare LF inside the comment of a CR LF line")
            << inSection(u"\"WINEMSYNC\" = \"0\" ; a\nb\r\n"_s, crlf) << malformed << QString();
        QTest::newRow("bare LF ending a CR LF line stays after the value")
            << inSection(u"\"WINEMSYNC\" = \"0\"\n\r\n[Next]"_s, crlf) << none
            << inSection(u"\"WINEMSYNC\" = \"1\"\n\r\n"_s + backendLine + u"\r\n[Next]"_s, crlf);
        QTest::newRow("bare CR ending a CR LF line stays after the comment")
            << inSection(u"\"WINEMSYNC\" = \"0\" ; x\r\r\n"_s + backendLine + u"\r\n"_s, crlf) << none
            << inSection(u"\"WINEMSYNC\" = \"1\" ; x\r\r\n"_s + backendLine + u"\r\n"_s, crlf);
        QTest::newRow("a header line holding a bare LF is no header")
            << u"[EnvironmentVariables]\n\r\nx"_s << none << u"[EnvironmentVariables]\n\r\nx\r\n\r\n"_s + crlfSection;
        QTest::newRow("NEL counts as white space around the sign")
            << inSection(u"\"WINEMSYNC\"\u0085=\"0\"\n"_s + backendLine) << none
            << inSection(u"\"WINEMSYNC\"\u0085=\"1\"\n"_s + backendLine);
        QTest::newRow("same key twice")
            << inSection(u"\"WINEMSYNC\" = \"1\"\n\"WINEMSYNC\" = \"0\"\n"_s) << u"ambiguousSetting"_s << QString();
        QTest::newRow("same key twice, once malformed")
            << inSection(u"\"WINEMSYNC\" = 1\n \"WINEMSYNC\"= \"0\"\n"_s) << u"ambiguousSetting"_s << QString();
        QTest::newRow("two section headers")
            << inSection(u"[Other]\n [EnvironmentVariables]\n"_s) << u"ambiguousSection"_s << QString();
        QTest::newRow("key in another section is not ours")
            << u"[Other]\n\"WINEMSYNC\" = \"0\"\n"_s + inSection(u"[Last]"_s) << none
            << u"[Other]\n\"WINEMSYNC\" = \"0\"\n"_s + inSection(added + u"\n[Last]"_s);
        QTest::newRow("other case of the key stays beside the new line")
            << inSection(u"\"winemsync\" = \"0\"\n"_s + backendLine + u"\n[X]"_s) << none
            << inSection(u"\"winemsync\" = \"0\"\n"_s + added + u"\n[X]"_s);
        QTest::newRow("commented-out key is not a setting")
            << inSection(u";\"WINEMSYNC\" = \"0\"\n"_s + backendLine + u"\n[X]"_s) << none
            << inSection(u";\"WINEMSYNC\" = \"0\"\n"_s + added + u"\n[X]"_s);
        QTest::newRow("new keys go after the blank line, before the next header")
            << inSection(u"\"X\" = \"y\"\n\n[Other]\nz\n"_s) << none
            << inSection(u"\"X\" = \"y\"\n\n"_s + added + u"\n[Other]\nz\n"_s);
        QTest::newRow("new keys after a final break end the text without one")
            << inSection(u"\"X\" = \"y\"\n"_s) << none << inSection(u"\"X\" = \"y\"\n\n"_s + added);
        QTest::newRow("other sections and comments untouched")
            << u"; top\r\n[Bottle]\r\n"_s + inSection(u"\"WINEMSYNC\" = \"0\" ;  keep  \r\n[AppDefaults]\r\n"_s, crlf)
            << none
            << u"; top\r\n[Bottle]\r\n"_s
                   + inSection(u"\"WINEMSYNC\" = \"1\" ;  keep  \r\n"_s + backendLine + u"\r\n[AppDefaults]\r\n"_s, crlf);
    }

    void update()
    {
        QFETCH(QString, input);
        QFETCH(QString, error);
        QFETCH(QString, expected);
        QString result;
        QCOMPARE(outcome(input, &result), error);
        if (error != u"none"_s)
            return;
        QCOMPARE(result, expected);
        QCOMPARE(CompatibilityProfile::updatingBottleConfiguration(input).changed, input != expected);
        const auto again = CompatibilityProfile::updatingBottleConfiguration(result);
        QCOMPARE(again.changed, false);
        QCOMPARE(again.text, result);
    }

    // Thousands of generated files: a second update never changes anything, and outside the
    // section not a byte moves; inside it only values change and new settings end it.
    void generatedFiles()
    {
        QRandomGenerator random(20261123);
        int edited = 0;
        int refused = 0;
        for (int round = 0; round < 5000; ++round) {
            const GeneratedFile file = generate(random);
            const QString input = file.text();
            QString output;
            if (outcome(input, &output) != u"none"_s) {
                ++refused;
                continue;
            }
            ++edited;
            const auto again = CompatibilityProfile::updatingBottleConfiguration(output);
            QVERIFY2(!again.changed && again.text == output, qPrintable(u"not idempotent: "_s + input));

            if (!file.header) {
                QVERIFY2(output.startsWith(input), qPrintable(input));
                continue;
            }
            const QString separator = input.contains(u"\r\n"_s) ? u"\r\n"_s : u"\n"_s;
            const QStringList before = input.split(separator);
            const QStringList after = output.split(separator);
            const qsizetype head = file.prelude.size() + 1;
            const qsizetype tail = file.trailer.size() + (file.trailer.isEmpty() ? 0 : (file.finalBreak ? 1 : 0));
            QCOMPARE(after.mid(0, head), before.mid(0, head));
            QCOMPARE(after.mid(after.size() - tail), before.mid(before.size() - tail));
            const QStringList oldBody = before.mid(head, before.size() - head - tail);
            const QStringList newBody = after.mid(head, after.size() - head - tail);
            QVERIFY(newBody.size() >= oldBody.size() && newBody.size() <= oldBody.size() + 2);
            for (qsizetype i = 0; i < oldBody.size(); ++i) {
                if (newBody.at(i) == oldBody.at(i))
                    continue;
                const auto was = settingLine.match(oldBody.at(i));
                const auto now = settingLine.match(newBody.at(i));
                const QString key = now.captured(2);
                const QString wanted = key == u"WINEMSYNC"_s               ? u"1"_s
                                       : key == u"CX_GRAPHICS_BACKEND"_s ? u"d3dmetal"_s
                                                                         : QString();
                QVERIFY2(!wanted.isEmpty() && now.captured(3) == wanted
                             && now.captured(1) + now.captured(4) == was.captured(1) + was.captured(4),
                         qPrintable(oldBody.at(i) + u" -> "_s + newBody.at(i)));
            }
            for (qsizetype i = oldBody.size(); i < newBody.size(); ++i)
                QVERIFY(newBody.at(i) == backendLine || newBody.at(i) == msyncLine);
        }
        // The generator must exercise both paths, or the property says little.
        QVERIFY2(edited > 3000 && refused > 100, qPrintable(u"%1 edited, %2 refused"_s.arg(edited).arg(refused)));
    }

    void restartMarker()
    {
        QTemporaryDir dir;
        const QString bottles = dir.filePath(u"Bottles"_s);
        QVERIFY(QDir().mkpath(bottles + u"/Steam"_s));
        QVERIFY(QFile::link(bottles, dir.filePath(u"link"_s)));
        const QString data = u"/data/Korvane Mac Launcher"_s;
        const QString marker = CompatibilityProfile::restartMarker(data, bottles + u"/Steam"_s);

        QVERIFY2(QRegularExpression(u"^/data/Korvane Mac Launcher/Profiles/[0-9a-f]{64}\\.restart-required$"_s)
                     .match(marker)
                     .hasMatch(),
                 qPrintable(marker));
        QCOMPARE(CompatibilityProfile::restartMarker(data, bottles + u"/Steam/"_s), marker);
        QCOMPARE(CompatibilityProfile::restartMarker(data, dir.filePath(u"link/Steam"_s)), marker);
        QCOMPARE(CompatibilityProfile::restartMarker(data, bottles + u"/x/../Steam"_s), marker);
        QVERIFY(CompatibilityProfile::restartMarker(data, bottles + u"/Other"_s) != marker);
        // A bottle that does not exist yet keeps its name through the link that leads to it.
        QCOMPARE(CompatibilityProfile::restartMarker(data, dir.filePath(u"link/New/./x"_s)),
                 CompatibilityProfile::restartMarker(data, bottles + u"/New/x"_s));
    }

    // Applying and restoring on real files.
    void applyKeepsPermissionsAndTheOriginalOnce()
    {
        QTemporaryDir dir;
        const QString data = dir.filePath(u"data/Korvane Mac Launcher"_s);
        const QString bottle = dir.filePath(u"Bottles/Steam"_s);
        const QString conf = bottle + u"/cxbottle.conf"_s;
        const QByteArray original = "\xef\xbb\xbf[Bottle]\r\n\"Version\" = \"23\"\r\n";
        write(conf, original, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
        const QString marker = CompatibilityProfile::restartMarker(data, bottle);
        const QString kept = BottleConfiguration::keptOriginalPath(data, bottle);

        QVERIFY(BottleConfiguration::apply(data, bottle));
        const QByteArray edited = readAll(conf);
        QVERIFY(edited.startsWith(original));
        QVERIFY(edited.endsWith("\"WINEMSYNC\" = \"1\"\r\n"));
        QCOMPARE(modeOf(conf), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
        QCOMPARE(readAll(marker), QByteArray("pending\n"));
        QCOMPARE(readAll(kept), original);
        QCOMPARE(modeOf(kept), QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(modeOf(data + u"/Profiles"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(QFileInfo(kept).absolutePath(), QFileInfo(marker).absolutePath());

        // The pending restart stays pending until the script removes the marker.
        QVERIFY(BottleConfiguration::apply(data, bottle));
        QVERIFY(QFile::remove(marker));
        QVERIFY(!BottleConfiguration::apply(data, bottle));
        QVERIFY(!QFileInfo::exists(marker));

        // The user (or CrossOver) undoes the section; the next change keeps the first original.
        write(conf, "[Bottle]\n");
        QVERIFY(BottleConfiguration::apply(data, bottle));
        QCOMPARE(readAll(kept), original);

        QVERIFY(QFile::remove(marker));
        QFile(conf).setPermissions(QFile::ReadOwner | QFile::WriteOwner);
        QVERIFY(BottleConfiguration::restore(data, bottle));
        QCOMPARE(readAll(conf), original);
        QCOMPARE(modeOf(conf), QFile::ReadOwner | QFile::WriteOwner);
        QCOMPARE(readAll(marker), QByteArray("pending\n"));
        QCOMPARE(readAll(kept), original);

        QVERIFY(QFile::remove(marker));
        QVERIFY(!BottleConfiguration::restore(data, bottle));
        QVERIFY(!QFileInfo::exists(marker));
    }

    void refusedFilesAreLeftAlone_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("profilesIsAFile");
        QTest::newRow("malformed setting") << QByteArray("[EnvironmentVariables]\n\"WINEMSYNC\" = on\n") << false;
        QTest::newRow("not UTF-8") << QByteArray("[Bottle]\n\"Name\" = \"\xff\xfe\"\n") << false;
        QTest::newRow("truncated UTF-8 at the end") << QByteArray("[Bottle]\n\xc3") << false;
        QTest::newRow("data folder unusable") << QByteArray("[Bottle]\n") << true;
    }

    void refusedFilesAreLeftAlone()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, profilesIsAFile);
        QTemporaryDir dir;
        const QString data = dir.filePath(u"data"_s);
        const QString bottle = dir.filePath(u"bottle"_s);
        write(bottle + u"/cxbottle.conf"_s, content);
        if (profilesIsAFile)
            write(data + u"/Profiles"_s, "x");

        bool thrown = false;
        try {
            BottleConfiguration::apply(data, bottle);
        } catch (const ConfigurationError &) {
            thrown = true;
        } catch (const BottleConfiguration::FileError &error) {
            thrown = true;
            QVERIFY(QString::fromStdString(error.what()).contains(profilesIsAFile ? u"Profiles"_s : u"cxbottle.conf"_s));
        }
        QVERIFY(thrown);
        QCOMPARE(readAll(bottle + u"/cxbottle.conf"_s), content);
        QVERIFY(!QFileInfo::exists(CompatibilityProfile::restartMarker(data, bottle)));
        QVERIFY(!QFileInfo::exists(BottleConfiguration::keptOriginalPath(data, bottle)));
    }

    void missingFilesAreErrors()
    {
        QTemporaryDir dir;
        const QString bottle = dir.filePath(u"bottle"_s);
        QVERIFY(QDir().mkpath(bottle));
        QVERIFY_THROWS_EXCEPTION(BottleConfiguration::FileError, BottleConfiguration::apply(dir.path(), bottle));
        QVERIFY_THROWS_EXCEPTION(BottleConfiguration::FileError, BottleConfiguration::apply(dir.path(), QString()));
        write(bottle + u"/cxbottle.conf"_s, "[Bottle]\n");
        // Nothing kept yet: nothing to restore, and the file stays as it is.
        QVERIFY_THROWS_EXCEPTION(BottleConfiguration::FileError, BottleConfiguration::restore(dir.path(), bottle));
        QCOMPARE(readAll(bottle + u"/cxbottle.conf"_s), QByteArray("[Bottle]\n"));
        // Over the size cap: refused before it is read.
        QFile big(bottle + u"/cxbottle.conf"_s);
        QVERIFY(big.open(QIODevice::ReadWrite) && big.resize(BottleConfiguration::maximumSize + 1));
        big.close();
        QVERIFY_THROWS_EXCEPTION(BottleConfiguration::FileError, BottleConfiguration::apply(dir.path(), bottle));
    }
};

QTEST_GUILESS_MAIN(TestCompatibilityProfile)
#include "tst_compatibilityprofile.moc"
