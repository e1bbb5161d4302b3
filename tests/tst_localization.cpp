#include "core/launchissue.h"
#include "preferences/l10n.h"
#include "sessions/launchstage.h"
#include "preferences/languagesettings.h"
#include "support/testhome.h"

#include <QDirIterator>
#include <QRegularExpression>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
void writeTable(const QString &resources, const QString &code, const QByteArray &content)
{
    QDir().mkpath(resources + u'/' + code + u".lproj"_s);
    QFile file(resources + u'/' + code + u".lproj/Localizable.strings"_s);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

// The dotted keys of the interface that no scan of the sources finds, because the views put
// them together at run time ("servers." and a state word, "channel." and the channel): a word
// ending in a colon names the group of the words after it.
const char interfaceKeys[] = R"(
activity: clear clear.help elapsed history previous privacy summary center: available changelog checking
complete downloaded downloading extracting failed found idle installing notes.unavailable progress.help title
channel: beta stable beta.help stable.help confirm.detail confirm.title enable title common: cancel
compat: anyway checking mismatch mismatch.help ok openSteam steam.help title unknown unknown.help versions
diagnostics: failed open privacy save saved title dock: launch favorites: add empty manage remove title
unavailable help: dismiss microphone.open mac: hide restore profiles: resolution skipIntro report: capture
confirm confirm.detail consent destination failed last privacy send sent unconfigured servers: empty error
info online offline stale players queue refresh selection title updated setup: about back bottle detect finish
game incomplete incomplete.detail later next open ready.detail recheck requirements title welcome tools: close
title transfer: applied applied.missing apply confirm confirm.help export failed import missing saved title
update: automatic backup.failed backup.saved check explanation restore.help restore.help.linux title
unconfigured wait)";

bool isDottedKey(const QString &key)
{
    static const QRegularExpression dotted(u"^[A-Za-z]+(\\.[A-Za-z]+)+$"_s);
    return dotted.match(key).hasMatch();
}

// The C++ escapes a key literal can use, turned into the characters they stand for.
QString unescape(const QString &literal)
{
    QString result;
    for (qsizetype i = 0; i < literal.size(); ++i) {
        if (literal.at(i) != u'\\' || i + 1 == literal.size()) {
            result.append(literal.at(i));
            continue;
        }
        const QChar c = literal.at(++i);
        result.append(c == u'n' ? QChar(u'\n') : c == u't' ? QChar(u'\t') : c);
    }
    return result;
}
} // namespace

class TestLocalization : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Each damage row appends to the German table, which is then dropped as a whole.
    void lookupChain_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QByteArray>("damage");
        const auto row = [](const char *name, const QString &language, const QString &key, const QString &expected,
                            const QByteArray &damage = {}) { QTest::newRow(name) << language << key << expected << damage; };
        row("German entry", u"de"_s, u"both"_s, u"Beide"_s);
        row("English only, German chosen", u"de"_s, u"english.only"_s, u"Only English"_s);
        row("English only, Hungarian chosen (no table)", u"hu"_s, u"english.only"_s, u"Only English"_s);
        row("in no table", u"de"_s, u"no.such.key"_s, u"no.such.key"_s);
        row("Hungarian sentence without entry", u"en"_s, u"Nincs naplóbejegyzés."_s, u"Nincs naplóbejegyzés."_s);
        row("sentinel counts as missing", u"de"_s, u"sentinel"_s, u"English sentinel"_s);
        row("sentinel in English too", u"en"_s, u"sentinel.everywhere"_s, u"sentinel.everywhere"_s);
        row("percent without arguments", u"en"_s, u"percent"_s, u"100% %@ %d"_s);
        row("escapes", u"de"_s, u"escapes"_s, u"Zeile\n\"zitiert\" \\ \u00e9"_s);
        row("missing semicolon", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"b\"\n\"c\" = \"d\";");
        row("unterminated string", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"b;");
        row("unterminated comment", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"b\"; /* ...");
        row("bad escape", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"\\q\";");
        row("\\U with a blank", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"\\U 0e9\";");
        row("\\U with a sign", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"\\U+0e9\";");
        row("\\U with 0x", u"de"_s, u"both"_s, u"Both"_s, "\"a\" = \"\\U0xe9\";");
        row("bare word", u"de"_s, u"both"_s, u"Both"_s, "a = \"b\";");
        row("binary", u"de"_s, u"both"_s, u"Both"_s, QByteArray("\xff\x00\xfe", 3));
    }
    void lookupChain()
    {
        QFETCH(QString, language);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        QFETCH(QByteArray, damage);
        QTemporaryDir resources;
        writeTable(resources.path(), u"en"_s,
                   "/* English */\n\"both\" = \"Both\";\n\"english.only\" = \"Only English\";\n"
                   "\"sentinel\" = \"English sentinel\";\n\"sentinel.everywhere\" = \"__MISSING_LOCALIZATION__\";\n"
                   "\"percent\" = \"100% %@ %d\";\n");
        writeTable(resources.path(), u"de"_s,
                   "// German\n\"both\"=\"Beide\";\"sentinel\" = \"__MISSING_LOCALIZATION__\";\n"
                   "\"escapes\" = \"Zeile\\n\\\"zitiert\\\" \\\\ \\U00e9\";\n" + damage);
        const StringTables tables = StringTables::load(resources.path());
        QCOMPARE(L10n::text(key, AppLanguage::fromRawValue(language), {}, &tables), expected);
        QCOMPARE(tables.hasLanguage(u"de"_s), damage.isEmpty());
    }

    void formatting_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("expected");
        QTest::newRow("object and integer") << u"%@ has %d players"_s << QVariantList{u"EU #1"_s, 42} << u"en"_s
                                            << u"EU #1 has 42 players"_s;
        QTest::newRow("long integer") << u"%ld / %lld"_s << QVariantList{7, 8LL} << u"en"_s << u"7 / 8"_s;
        QTest::newRow("positional") << u"%2$@ vor %1$@"_s << QVariantList{u"A"_s, u"B"_s} << u"de"_s << u"B vor A"_s;
        QTest::newRow("percent sign") << u"%d%% done"_s << QVariantList{50} << u"en"_s << u"50% done"_s;
        QTest::newRow("German decimals") << u"%.1f s"_s << QVariantList{2.26} << u"de"_s << u"2,3 s"_s;
        QTest::newRow("German thousands, not grouped") << u"%.1f s"_s << QVariantList{1234.5} << u"de"_s << u"1234,5 s"_s;
        QTest::newRow("Hungarian thousands, not grouped") << u"%.2f"_s << QVariantList{-98765.432} << u"hu"_s << u"-98765,43"_s;
        QTest::newRow("%g, not grouped") << u"%g MB"_s << QVariantList{12345.0} << u"en"_s << u"12345 MB"_s;
        QTest::newRow("%g past its precision") << u"%g"_s << QVariantList{1234567.0} << u"de"_s << u"1,23457e+06"_s;
        QTest::newRow("missing argument") << u"%@ and %@"_s << QVariantList{u"one"_s} << u"en"_s << u"one and "_s;
        QTest::newRow("unknown conversion kept") << u"%q %@"_s << QVariantList{u"x"_s} << u"en"_s << u"%q x"_s;
        QTest::newRow("trailing percent") << u"100%"_s << QVariantList{1} << u"en"_s << u"100%"_s;
    }

    void formatting()
    {
        QFETCH(QString, format);
        QFETCH(QVariantList, arguments);
        QFETCH(QString, language);
        QFETCH(QString, expected);
        QCOMPARE(L10n::format(format, arguments, QLocale(language)), expected);
    }

    // A message made while English was chosen shows German once the user switches.
    void messagesFollowTheCurrentLanguage()
    {
        TestHome home;
        QTemporaryDir resources;
        writeTable(resources.path(), u"en"_s, "\"greeting\" = \"Hello %@\";");
        writeTable(resources.path(), u"de"_s, "\"greeting\" = \"Hallo %@\";");
        L10n::install(home.defaults.get(), std::make_shared<const StringTables>(StringTables::load(resources.path())));

        QCOMPARE(L10n::currentLanguage(), AppLanguage::english); // nothing stored: English
        const LocalizedMessage message("greeting", {u"Anna"_s});
        QCOMPARE(message.text(), u"Hello Anna"_s);
        LanguageSettings settings(*home.defaults);
        settings.setLanguage(AppLanguage::german);
        QCOMPARE(message.text(), u"Hallo Anna"_s);
        QCOMPARE(L("greeting", "Bence"), u"Hallo Bence"_s);
    }

    // Every key the sources pass to L(), LocalizedMessage or L10n::text has an entry in every
    // table. This is what keeps a new text from showing up as a raw key, an untranslated
    // Hungarian sentence, or English in the Hungarian interface.
    void everyKeyIsTranslated()
    {
        const StringTables tables = StringTables::load(QStringLiteral(KVN_SOURCE_DIR "/resources"));
        for (const QString &code : {u"en"_s, u"de"_s, u"hu"_s})
            QVERIFY2(tables.hasLanguage(code), qPrintable(code + u" table is missing or damaged"_s));

        // Keys put together at run time, from the closed sets they are made of; the scan below
        // only sees whole literal keys.
        QStringList keys;
        QString group;
        for (const QString &word : QString::fromUtf8(interfaceKeys).simplified().split(u' ')) {
            if (word.endsWith(u':'))
                group = word.chopped(1) + u'.';
            else
                keys.append(group + word);
        }
        for (LaunchIssue issue : LaunchIssue::allCases())
            keys << u"help."_s + issue.rawValue() + u".title"_s << u"help."_s + issue.rawValue() + u".detail"_s;
        for (LaunchStage stage : LaunchStage::allCases())
            keys << u"stage."_s + stage.rawValue();
        static const QRegularExpression call(
            u"(?<![\\w:])(?:L|L10n::text|LocalizedMessage)\\s*[({]\\s*(?:u8?)?\"((?:[^\"\\\\]|\\\\.)*)\"(?:_s|_L1)?\\s*[,)}]"_s);
        const QStringList folders{u"core"_s, u"crossover"_s, u"games"_s, u"sessions"_s, u"servers"_s,
                                  u"preferences"_s, u"updates"_s, u"platform"_s, u"KorvaneMacLauncher"_s, u"cli"_s};
        int scanned = 0;
        for (const QString &folder : folders) {
            QDirIterator files(QStringLiteral(KVN_SOURCE_DIR "/") + folder, {u"*.cpp"_s, u"*.h"_s, u"*.mm"_s},
                               QDir::Files, QDirIterator::Subdirectories);
            while (files.hasNext()) {
                QFile file(files.next());
                QVERIFY(file.open(QIODevice::ReadOnly));
                const QString source = QString::fromUtf8(file.readAll());
                ++scanned;
                for (auto it = call.globalMatch(source); it.hasNext();)
                    keys.append(unescape(it.next().captured(1)));
            }
        }
        QVERIFY(scanned > 10);
        QVERIFY2(keys.contains(u"Kiválasztott játék"_s), "the scan no longer finds the keys in the sources");
        keys.removeDuplicates();

        QStringList missing;
        for (const QString &key : std::as_const(keys)) {
            const QString shown = QString(key).replace(u'\n', u"\\n"_s);
            for (const QString &code : {u"en"_s, u"de"_s, u"hu"_s})
                if (!tables.lookup(code, key))
                    missing.append(code + u": "_s + shown);
            // The lookup falls back to English, so a Hungarian sentence needs its own entry in
            // the Hungarian table or Hungarian users would read the English translation.
            if (!isDottedKey(key) && tables.lookup(u"hu"_s, key).value_or(key) != key)
                missing.append(u"hu (must be the key itself): "_s + shown);
        }
        QVERIFY2(missing.isEmpty(), qPrintable(u"untranslated keys:\n"_s + missing.join(u'\n')));
    }

    // Tables merge line by line, so two branches adding the same key leave two entries, and
    // the later one silently wins. Each key must stand once.
    void noKeyTwiceInATable()
    {
        static const QRegularExpression entry(u"^\"((?:[^\"\\\\]|\\\\.)*)\"\\s*="_s,
                                              QRegularExpression::MultilineOption);
        QStringList repeated;
        for (const QString &code : {u"en"_s, u"de"_s, u"hu"_s}) {
            QFile file(QStringLiteral(KVN_SOURCE_DIR "/resources/") + code + u".lproj/Localizable.strings"_s);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QSet<QString> seen;
            for (auto it = entry.globalMatch(QString::fromUtf8(file.readAll())); it.hasNext();) {
                const QString key = it.next().captured(1);
                if (seen.contains(key))
                    repeated.append(code + u": "_s + key);
                seen.insert(key);
            }
            QVERIFY(seen.size() > 100);
        }
        QVERIFY2(repeated.isEmpty(), qPrintable(repeated.join(u'\n')));
    }

    // The tables must keep the placeholders of each key's meaning in every language.
    void placeholdersAgreeAcrossLanguages()
    {
        const StringTables tables = StringTables::load(QStringLiteral(KVN_SOURCE_DIR "/resources"));
        // Position and length modifiers may differ between languages; kind and precision not.
        static const QRegularExpression placeholder(u"%(?:\\d+\\$)?(\\.\\d+)?l{0,2}([@dif])"_s);
        auto signature = [](const QString &text) {
            QStringList found;
            for (auto it = placeholder.globalMatch(text); it.hasNext();) {
                const auto match = it.next();
                found.append(match.captured(1) + match.captured(2));
            }
            found.sort();
            return found;
        };
        QStringList mismatches;
        const auto english = tables.table(u"en"_s);
        for (auto it = english.cbegin(); it != english.cend(); ++it) {
            for (const QString &code : {u"de"_s, u"hu"_s}) {
                const auto other = tables.lookup(code, it.key());
                if (other && signature(*other) != signature(it.value()))
                    mismatches.append(code + u": "_s + it.key());
            }
            // A Hungarian-sentence key is itself the Hungarian text.
            if (!isDottedKey(it.key()) && signature(it.key()) != signature(it.value()))
                mismatches.append(u"key: "_s + it.key());
        }
        QVERIFY2(mismatches.isEmpty(), qPrintable(mismatches.join(u'\n')));
    }
};

QTEST_GUILESS_MAIN(TestLocalization)
#include "tst_localization.moc"
