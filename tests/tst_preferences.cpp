#include "games/gameprofile.h"
#include "preferences/languagesettings.h"
#include "preferences/windowpreferences.h"
#include "support/testhome.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

class TestPreferences : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Every stored type comes back as the same type through the file, in a store opened later,
    // and reads as a bool, an integer and a string the way stored preferences expect.
    void storedValues_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("asBool");
        QTest::addColumn<qint64>("asInteger");
        QTest::addColumn<QString>("asString"); // "<none>" when not a string
        const QString none = u"<none>"_s;
        QTest::newRow("absent") << QVariant() << false << qint64(0) << none;
        QTest::newRow("bool") << QVariant(true) << true << qint64(1) << none;
        QTest::newRow("negative integer") << QVariant(qint64(-42)) << true << qint64(-42) << u"-42"_s;
        QTest::newRow("zero") << QVariant(0LL) << false << qint64(0) << u"0"_s;
        QTest::newRow("large integer") << QVariant(qint64(1) << 52) << true << (qint64(1) << 52) << u"4503599627370496"_s;
        QTest::newRow("real with no fraction") << QVariant(2.0) << true << qint64(2) << u"2"_s;
        QTest::newRow("string that reads as a bool") << QVariant(u"true"_s) << true << qint64(0) << u"true"_s;
        QTest::newRow("string that reads as a number") << QVariant(u"42"_s) << false << qint64(42) << u"42"_s;
        QTest::newRow("YES") << QVariant(u"YES"_s) << true << qint64(0) << u"YES"_s;
        QTest::newRow("no") << QVariant(u"no"_s) << false << qint64(0) << u"no"_s;
        QTest::newRow("data") << QVariant(QByteArray("\x00\xff{\"x\":1}", 9)) << false << qint64(0) << none;
        QTest::newRow("data that reads as a number") << QVariant(QByteArray("1")) << false << qint64(0) << none;
        QTest::newRow("array with empty data") << QVariant(QVariantList{1LL, u"two"_s, false, QByteArray()}) << false << qint64(0) << none;
        QTest::newRow("dictionary") << QVariant(QVariantMap{{u"a"_s, 1LL}, {u"$type"_s, u"data"_s}, {u"c"_s, QVariantList{}}})
                                    << false << qint64(0) << none;
    }
    void storedValues()
    {
        QFETCH(QVariant, value);
        QFETCH(bool, asBool);
        QFETCH(qint64, asInteger);
        QFETCH(QString, asString);
        TestHome home;
        if (value.isValid())
            home.defaults->setObject(u"key"_s, value);
        const auto later = home.reopenDefaults();
        const QVariant read = later->object(u"key"_s);
        QCOMPARE(read.typeId(), value.typeId());
        QCOMPARE(read, value);
        QCOMPARE(later->boolValue(u"key"_s), asBool);
        QCOMPARE(later->integer(u"key"_s), asInteger);
        QCOMPARE(later->string(u"key"_s).value_or(u"<none>"_s), asString);
    }

    // Two stores over one file (the launcher and korvanectl) see each other's writes, and a
    // damaged document is kept aside instead of being silently replaced.
    void storeSharingAndDamage()
    {
        TestHome home;
        auto other = home.reopenDefaults();
        home.defaults->setString(u"game"_s, u"American Truck Simulator"_s);
        QCOMPARE(other->string(u"game"_s), u"American Truck Simulator"_s);
        other->remove(u"game"_s);
        QVERIFY(!home.defaults->contains(u"game"_s));
        QCOMPARE(QFile(home.defaultsPath()).permissions() & 0x0077, QFileDevice::Permissions());
        // The folders the store makes for itself are private too, not only the file.
        JsonUserDefaults(home.root() + u"/config/korvane-launcher/defaults.json"_s).setBool(u"x"_s, true);
        for (const QString &folder : {u"/config"_s, u"/config/korvane-launcher"_s})
            QCOMPARE(QFile(home.root() + folder).permissions() & 0x0077, QFileDevice::Permissions());

        // An equal value is not written again; an equal number in place of a bool is.
        const auto inode = [&] {
            struct stat info {};
            return ::stat(QFile::encodeName(home.defaultsPath()).constData(), &info) == 0 ? info.st_ino : 0;
        };
        home.defaults->setBool(u"hideOnGameLaunch"_s, true);
        const auto written = inode();
        home.defaults->setBool(u"hideOnGameLaunch"_s, true);
        QCOMPARE(inode(), written);
        home.defaults->setInteger(u"hideOnGameLaunch"_s, 1);
        QVERIFY(inode() != written);
        QCOMPARE(home.reopenDefaults()->object(u"hideOnGameLaunch"_s).typeId(), QMetaType::LongLong);

        // A batch saves once, when the outermost batch ends; its own reads see every write.
        {
            const auto before = inode();
            const UserDefaults::Batch outer(*home.defaults);
            {
                const UserDefaults::Batch inner(*home.defaults);
                home.defaults->setString(u"desktopSize"_s, u"2560x1440"_s);
            }
            home.defaults->remove(u"game"_s);
            home.defaults->setBool(u"useWineDesktop"_s, true);
            QCOMPARE(home.defaults->string(u"desktopSize"_s), u"2560x1440"_s);
            QCOMPARE(inode(), before);
            QVERIFY(!home.reopenDefaults()->contains(u"useWineDesktop"_s));
        }
        QCOMPARE(home.reopenDefaults()->string(u"desktopSize"_s), u"2560x1440"_s);
        QVERIFY(home.reopenDefaults()->boolValue(u"useWineDesktop"_s));

        QFile file(home.defaultsPath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("{\"game\": \"unterminated");
        file.close();
        auto damaged = home.reopenDefaults();
        QVERIFY(damaged->keys().isEmpty());
        damaged->setBool(u"hideOnGameLaunch"_s, true);
        QFile kept(home.defaultsPath() + u".damaged"_s);
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("{\"game\": \"unterminated"));
        QCOMPARE(home.reopenDefaults()->boolValue(u"hideOnGameLaunch"_s), true);
    }

    void windowPreferences_data()
    {
        QTest::addColumn<QVariant>("storedHide");
        QTest::addColumn<QVariant>("storedRestore");
        QTest::addColumn<bool>("hide");
        QTest::addColumn<bool>("restore");
        QTest::newRow("fresh installation") << QVariant() << QVariant() << false << true;
        QTest::newRow("stored booleans") << QVariant(true) << QVariant(false) << true << false;
        QTest::newRow("restore stored as a string") << QVariant() << QVariant(u"false"_s) << false << true;
        QTest::newRow("hide stored as YES") << QVariant(u"YES"_s) << QVariant() << true << true;
    }
    void windowPreferences()
    {
        QFETCH(QVariant, storedHide);
        QFETCH(QVariant, storedRestore);
        QFETCH(bool, hide);
        QFETCH(bool, restore);
        TestHome home;
        if (storedHide.isValid())
            home.defaults->setObject(WindowPreferences::hideKey, storedHide);
        if (storedRestore.isValid())
            home.defaults->setObject(WindowPreferences::restoreKey, storedRestore);
        WindowPreferences preferences(*home.defaults);
        QCOMPARE(preferences.hideOnLaunch(), hide);
        QCOMPARE(preferences.restoreOnExit(), restore);

        QSignalSpy hideChanged(&preferences, &WindowPreferences::hideOnLaunchChanged);
        preferences.setHideOnLaunch(!hide);
        preferences.setRestoreOnExit(!restore);
        QCOMPARE(hideChanged.count(), 1);
        // Written at once and as booleans, whatever was stored before.
        auto later = home.reopenDefaults();
        QCOMPARE(later->object(WindowPreferences::hideKey), QVariant(!hide));
        QCOMPARE(later->object(WindowPreferences::restoreKey), QVariant(!restore));
    }

    void languageSettings()
    {
        TestHome home;
        home.defaults->setString(AppLanguage::defaultsKey, u"fr"_s);
        LanguageSettings settings(*home.defaults);
        QCOMPARE(settings.language(), AppLanguage::english);
        // An unknown code stays until the user picks a language.
        QCOMPARE(home.defaults->string(AppLanguage::defaultsKey), u"fr"_s);
        QSignalSpy changed(&settings, &LanguageSettings::languageChanged);
        settings.setLanguage(AppLanguage::german);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(home.reopenDefaults()->string(AppLanguage::defaultsKey), u"de"_s);
        QCOMPARE(LanguageSettings(*home.reopenDefaults()).language(), AppLanguage::german);
        home.defaults->setBool(AppLanguage::defaultsKey, true);
        QCOMPARE(AppLanguage::saved(*home.defaults), AppLanguage::english);
    }

    void profileValidity_data()
    {
        QTest::addColumn<GameProfile>("profile");
        QTest::addColumn<bool>("valid");
        const auto with = [](QString GameProfile::*field, const QString &value) {
            GameProfile profile;
            profile.*field = value;
            return profile;
        };
        const auto bottle = &GameProfile::bottle, directory = &GameProfile::directory, size = &GameProfile::desktopSize;
        QTest::newRow("defaults") << GameProfile() << true;
        QTest::newRow("another listed size") << with(size, u"2560x1440"_s) << true;
        QTest::newRow("unlisted size") << with(size, u"1920x1200"_s) << false;
        QTest::newRow("size in other case") << with(size, u"1920X1080"_s) << false;
        QTest::newRow("relative bottle") << with(bottle, u"Users/x"_s) << false;
        QTest::newRow("4096 bytes") << with(directory, u"/"_s + QString(4095, u'a')) << true;
        QTest::newRow("4097 bytes") << with(directory, u"/"_s + QString(4096, u'a')) << false;
        QTest::newRow("4096 bytes in two-byte letters") << with(directory, u"/"_s + QString(2047, u'é') + u"a"_s) << true;
        QTest::newRow("4097 bytes in two-byte letters") << with(directory, u"/"_s + QString(2048, u'é')) << false;
        QTest::newRow("line feed") << with(bottle, u"/a\nb"_s) << false;
        QTest::newRow("format character") << with(bottle, u"/a\u200Eb"_s) << false;
        QTest::newRow("format character outside the BMP") << with(bottle, u"/a"_s + QString::fromUcs4(U"\U000E0001") + u"b"_s) << false;
        QTest::newRow("accents and spaces") << with(bottle, u"/Users/Bálint/My Bottle"_s) << true;
    }
    void profileValidity()
    {
        QFETCH(GameProfile, profile);
        QFETCH(bool, valid);
        QCOMPARE(profile.valid(), valid);
        TestHome home;
        GameProfiles profiles(*home.defaults);
        profiles.save(profile, GameKind::ats);
        QCOMPARE(GameProfiles(*home.reopenDefaults()).profile(GameKind::ats).has_value(), valid);
    }

    void profileArguments()
    {
        GameProfile profile;
        QCOMPARE(profile.arguments(), (QStringList{u"--wine-desktop"_s, u"1920x1080"_s, u"--game-options=-nointro -64bit"_s}));
        profile.skipIntro = false;
        profile.desktopSize = u"1280x720"_s;
        QCOMPARE(profile.arguments(), (QStringList{u"--wine-desktop"_s, u"1280x720"_s, u"--game-options=-64bit"_s}));
    }

    void profileStoreRoundTrip()
    {
        TestHome home;
        const GameProfile ets{u"/b/Steam"_s, u"/games/ETS2"_s, false, u"2560x1440"_s, true, false};
        const GameProfile ats{u"/b/Other"_s, QString(), true, u"1600x900"_s, false, true};
        {
            GameProfiles profiles(*home.defaults);
            profiles.save(ets, GameKind::ets2);
            profiles.save(ats, GameKind::ats);
        }
        const GameProfiles loaded(*home.reopenDefaults());
        QCOMPARE(loaded.values().size(), 2);
        QCOMPARE(loaded.profile(GameKind::ets2), ets);
        QCOMPARE(loaded.profile(GameKind::ats), ats);
        // Stored as binary data holding a JSON object keyed by the games' names.
        const QVariant stored = home.defaults->object(GameProfiles::defaultsKey);
        QCOMPARE(stored.typeId(), QMetaType::QByteArray);
        const QJsonObject root = QJsonDocument::fromJson(stored.toByteArray()).object();
        QCOMPARE(root.value(u"Euro Truck Simulator 2"_s).toObject().value(u"hide"_s), QJsonValue(true));
    }

    void profileStoreLoad_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QStringList>("games");
        const QByteArray good = R"({"bottle":"/b","directory":"","skipIntro":true,"desktopSize":"1920x1080","hide":false,"restore":true})";
        // A good ATS profile beside the given ETS2 one.
        const auto beside = [&good](const QByteArray &ets2) -> QByteArray {
            return R"({"American Truck Simulator":)" + good + R"(,"Euro Truck Simulator 2":)" + ets2 + "}";
        };
        const QStringList ats{u"American Truck Simulator"_s};
        QTest::newRow("foreign game dropped") << beside(good).replace("Simulator 2", "Simulator 3") << ats;
        QTest::newRow("invalid profile dropped, others kept") << beside(QByteArray(good).replace("1920x1080", "1920x1200")) << ats;
        QTest::newRow("missing member spoils everything") << beside(QByteArray(good).replace(R"("hide":false,)", "")) << QStringList{};
        QTest::newRow("not JSON") << QByteArray("\xff\xfe{") << QStringList{};
    }
    void profileStoreLoad()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QStringList, games);
        TestHome home;
        home.defaults->setData(GameProfiles::defaultsKey, stored);
        const GameProfiles profiles(*home.defaults);
        QStringList keys = profiles.values().keys();
        keys.sort();
        QCOMPARE(keys, games);
        // Loading never rewrites the stored entry; only the next save does.
        QCOMPARE(home.defaults->data(GameProfiles::defaultsKey), stored);
    }

    void renderingBackend()
    {
        QCOMPARE(RenderingBackend::fromRawValue(u"gl"), RenderingBackend(RenderingBackend::gl));
        QVERIFY(!RenderingBackend::fromRawValue(u"metal"));
        // A stored "gl" from older versions reads, and shows as DirectX 11.
        QCOMPARE(RenderingBackend(RenderingBackend::gl).title(), RenderingBackend(RenderingBackend::dx11).title());
    }
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
