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

// The dotted keys the interface uses, including those composed at run time ("stage." and
// the stage, "servers." and a state word, "channel." and the channel), which no scan of
// the sources can find.
const QStringList interfaceKeys = {
    u"activity.clear"_s, u"activity.clear.help"_s, u"activity.elapsed"_s, u"activity.history"_s,
    u"activity.previous"_s, u"activity.privacy"_s, u"activity.summary"_s,
    u"center.available"_s, u"center.changelog"_s, u"center.checking"_s, u"center.complete"_s,
    u"center.downloaded"_s, u"center.downloading"_s, u"center.extracting"_s, u"center.failed"_s,
    u"center.found"_s, u"center.idle"_s, u"center.installing"_s, u"center.notes.unavailable"_s,
    u"center.progress.help"_s, u"center.title"_s,
    u"channel.beta"_s, u"channel.stable"_s, u"channel.beta.help"_s, u"channel.stable.help"_s,
    u"channel.confirm.detail"_s, u"channel.confirm.title"_s, u"channel.enable"_s, u"channel.title"_s,
    u"common.cancel"_s,
    u"compat.anyway"_s, u"compat.checking"_s, u"compat.mismatch"_s, u"compat.mismatch.help"_s,
    u"compat.ok"_s, u"compat.openSteam"_s, u"compat.steam.help"_s, u"compat.title"_s,
    u"compat.unknown"_s, u"compat.unknown.help"_s, u"compat.versions"_s,
    u"diagnostics.failed"_s, u"diagnostics.open"_s, u"diagnostics.privacy"_s, u"diagnostics.save"_s,
    u"diagnostics.saved"_s, u"diagnostics.title"_s,
    u"dock.launch"_s,
    u"favorites.add"_s, u"favorites.empty"_s, u"favorites.manage"_s, u"favorites.remove"_s,
    u"favorites.title"_s, u"favorites.unavailable"_s,
    u"help.dismiss"_s, u"help.microphone.open"_s,
    u"mac.hide"_s, u"mac.restore"_s,
    u"profiles.resolution"_s, u"profiles.skipIntro"_s,
    u"report.capture"_s, u"report.confirm"_s, u"report.confirm.detail"_s, u"report.consent"_s,
    u"report.destination"_s, u"report.failed"_s, u"report.last"_s, u"report.privacy"_s,
    u"report.send"_s, u"report.sent"_s, u"report.unconfigured"_s,
    u"servers.empty"_s, u"servers.error"_s, u"servers.info"_s, u"servers.online"_s,
    u"servers.offline"_s, u"servers.stale"_s, u"servers.players"_s, u"servers.queue"_s,
    u"servers.refresh"_s, u"servers.selection"_s, u"servers.title"_s, u"servers.updated"_s,
    u"setup.about"_s, u"setup.back"_s, u"setup.bottle"_s, u"setup.detect"_s, u"setup.finish"_s,
    u"setup.game"_s, u"setup.incomplete"_s, u"setup.incomplete.detail"_s, u"setup.later"_s,
    u"setup.next"_s, u"setup.open"_s, u"setup.ready.detail"_s, u"setup.recheck"_s,
    u"setup.requirements"_s, u"setup.title"_s, u"setup.welcome"_s,
    u"stage.checking"_s, u"stage.steam"_s, u"stage.updating"_s, u"stage.starting"_s,
    u"stage.playing"_s, u"stage.finished"_s, u"stage.failed"_s, u"stage.cancelled"_s,
    u"stage.interrupted"_s,
    u"tools.close"_s, u"tools.title"_s,
    u"transfer.applied"_s, u"transfer.applied.missing"_s, u"transfer.apply"_s, u"transfer.confirm"_s,
    u"transfer.confirm.help"_s, u"transfer.export"_s, u"transfer.failed"_s, u"transfer.import"_s,
    u"transfer.missing"_s, u"transfer.saved"_s, u"transfer.title"_s,
    u"update.automatic"_s, u"update.backup.failed"_s, u"update.backup.saved"_s, u"update.check"_s,
    u"update.explanation"_s, u"update.restore.help"_s, u"update.title"_s, u"update.unconfigured"_s,
    u"update.wait"_s,
};

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
    void lookupChain_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        QTest::newRow("German entry") << u"de"_s << u"both"_s << u"Beide"_s;
        QTest::newRow("English only, German chosen") << u"de"_s << u"english.only"_s << u"Only English"_s;
        QTest::newRow("English only, Hungarian chosen (no table)") << u"hu"_s << u"english.only"_s << u"Only English"_s;
        QTest::newRow("in no table") << u"de"_s << u"no.such.key"_s << u"no.such.key"_s;
        QTest::newRow("Hungarian sentence without entry") << u"en"_s << u"Nincs naplóbejegyzés."_s << u"Nincs naplóbejegyzés."_s;
        QTest::newRow("sentinel counts as missing") << u"de"_s << u"sentinel"_s << u"English sentinel"_s;
        QTest::newRow("sentinel in English too") << u"en"_s << u"sentinel.everywhere"_s << u"sentinel.everywhere"_s;
        QTest::newRow("percent without arguments") << u"en"_s << u"percent"_s << u"100% %@ %d"_s;
        QTest::newRow("escapes") << u"de"_s << u"escapes"_s << u"Zeile\n\"zitiert\" \\ \u00e9"_s;
    }

    void lookupChain()
    {
        QFETCH(QString, language);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        QTemporaryDir resources;
        writeTable(resources.path(), u"en"_s,
                   "/* English */\n\"both\" = \"Both\";\n\"english.only\" = \"Only English\";\n"
                   "\"sentinel\" = \"English sentinel\";\n\"sentinel.everywhere\" = \"__MISSING_LOCALIZATION__\";\n"
                   "\"percent\" = \"100% %@ %d\";\n");
        writeTable(resources.path(), u"de"_s,
                   "// German\n\"both\"=\"Beide\";\"sentinel\" = \"__MISSING_LOCALIZATION__\";\n"
                   "\"escapes\" = \"Zeile\\n\\\"zitiert\\\" \\\\ \\U00e9\";\n");
        const StringTables tables = StringTables::load(resources.path());
        QCOMPARE(L10n::text(key, AppLanguage::fromRawValue(language), {}, &tables), expected);
    }

    void damagedTablesAreDropped_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("missing semicolon") << QByteArray("\"a\" = \"b\"\n\"c\" = \"d\";");
        QTest::newRow("unterminated string") << QByteArray("\"a\" = \"b;");
        QTest::newRow("unterminated comment") << QByteArray("\"a\" = \"b\"; /* ...");
        QTest::newRow("bad escape") << QByteArray("\"a\" = \"\\q\";");
        QTest::newRow("bare word") << QByteArray("a = \"b\";");
        QTest::newRow("binary") << QByteArray("\xff\x00\xfe", 3);
    }

    void damagedTablesAreDropped()
    {
        QFETCH(QByteArray, content);
        QTemporaryDir resources;
        writeTable(resources.path(), u"en"_s, "\"a\" = \"English\";");
        writeTable(resources.path(), u"de"_s, content);
        const StringTables tables = StringTables::load(resources.path());
        QVERIFY(!tables.hasLanguage(u"de"_s));
        QCOMPARE(L10n::text(u"a"_s, AppLanguage::german, {}, &tables), u"English"_s);
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
        QTest::newRow("Hungarian decimals") << u"%.2f"_s << QVariantList{1.5} << u"hu"_s << u"1,50"_s;
        QTest::newRow("missing argument") << u"%@ and %@"_s << QVariantList{u"one"_s} << u"en"_s << u"one and "_s;
        QTest::newRow("unknown conversion kept") << u"%q %@"_s << QVariantList{u"x"_s} << u"en"_s << u"%q x"_s;
        QTest::newRow("trailing percent") << u"100%"_s << QVariantList{1} << u"en"_s << u"100%"_s;
        QTest::newRow("line feed kept") << u"HIBA: %@\n"_s << QVariantList{u"x"_s} << u"hu"_s << u"HIBA: x\n"_s;
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
        QStringList keys = interfaceKeys;
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
