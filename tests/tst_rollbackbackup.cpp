// Rollback copies of the application (made, verified, refused and cleaned up) and the release
// notes cut out of the change logs.
#include "support/testhome.h"
#include "updates/releasenotes.h"
#include "updates/rollbackbackup.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QtTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<QString>)
Q_DECLARE_METATYPE(ReleaseNotesText::Line::Kind)

namespace {

void writeFile(const QString &path, const QByteArray &bytes, QFile::Permissions permissions)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    file.setPermissions(permissions);
}

// Every regular file below `root` with its SHA-256, links as their targets: what a signature
// check of the copy would compare.
QMap<QString, QByteArray> fingerprint(const QString &root)
{
    QMap<QString, QByteArray> result;
    QDirIterator entries(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QFileInfo entry(entries.next());
        const QString relative = QDir(root).relativeFilePath(entry.filePath());
        if (entry.isSymLink()) {
            result.insert(relative, "-> " + QDir(root).relativeFilePath(entry.symLinkTarget()).toUtf8());
        } else if (entry.isFile()) {
            QFile file(entry.filePath());
            if (file.open(QIODevice::ReadOnly))
                result.insert(relative, QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256));
        }
    }
    return result;
}

} // namespace

class TestRollbackBackup : public QObject {
    Q_OBJECT

    TestHome m_home;
    QString m_application;
    QString m_root;
    const QDateTime m_now{QDate(2026, 3, 4), QTime(5, 6, 7, 890), Qt::UTC};

    // A copy that verifies exactly when it has the application's files, links and bytes.
    ApplicationCopy platform(bool tamper = false) const
    {
        ApplicationCopy copy;
        copy.isApplication = [](const QString &path) { return path.endsWith(u".app"); };
        copy.copy = [tamper](const QString &from, const QString &to, QString *error) {
            if (!ApplicationCopy::copyTree(from, to, error))
                return false;
            if (tamper) {
                QFile program(to + u"/Contents/MacOS/launcher"_s);
                program.open(QIODevice::ReadWrite);
                program.write("X");
            }
            return true;
        };
        copy.verify = [expected = fingerprint(m_application)](const QString &path) {
            return fingerprint(path) == expected;
        };
        return copy;
    }

    RollbackBackup::Inputs inputs(const QString &identifier, bool tamper = false) const
    {
        return {{{u"CFBundleIdentifier"_s, identifier},
                 {u"CFBundleShortVersionString"_s, u"1.2.0"_s},
                 {u"CFBundleVersion"_s, u"45"_s}},
                m_now,
                platform(tamper)};
    }

    QStringList backups() const { return QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot); }

private Q_SLOTS:
    void init()
    {
        m_application = m_home.root() + u"/Applications/Korvane Mac Launcher.app"_s;
        m_root = RollbackBackup::directory(m_home.paths, u"hu.korvane.maclauncher"_s);
        QDir(m_home.root() + u"/Applications"_s).removeRecursively();
        QDir(m_home.paths.applicationSupport).removeRecursively();
        writeFile(m_application + u"/Contents/MacOS/launcher"_s, "\x7f" "ELF program",
                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup);
        writeFile(m_application + u"/Contents/Info.plist"_s, "<plist/>", QFile::ReadOwner | QFile::WriteOwner);
        QVERIFY(QFile::link(u"MacOS/launcher"_s, m_application + u"/Contents/current"_s));
    }

    void directoryNamesTheApplication_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("folder");
        QTest::newRow("identifier") << u"hu.korvane.maclauncher"_s << u"hu.korvane.maclauncher"_s;
        QTest::newRow("no identifier") << QString() << u"unknown"_s;
    }
    void directoryNamesTheApplication()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, folder);
        QCOMPARE(RollbackBackup::directory(m_home.paths, identifier),
                 m_home.paths.applicationSupport + u"/Korvane Mac Launcher/Backups/"_s + folder);
    }

    void savesAVerifiedCopyWithItsNote_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("name");
        QTest::newRow("release") << u"hu.korvane.maclauncher"_s << u"Korvane Mac Launcher.app"_s;
        QTest::newRow("preview") << u"hu.korvane.maclauncher.preview"_s << u"Korvane Launcher Preview.app"_s;
        QTest::newRow("preview only at the end") << u"hu.korvane.preview.launcher"_s << u"Korvane Mac Launcher.app"_s;
    }
    void savesAVerifiedCopyWithItsNote()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, name);
        const QString copy = RollbackBackup::save(m_application, m_root, inputs(identifier));

        const QStringList folders = backups();
        QCOMPARE(folders.size(), 1);
        const QUuid uuid(folders.first());
        QVERIFY(!uuid.isNull());
        QCOMPARE(folders.first(), uuid.toString(QUuid::WithoutBraces).toUpper());
        const QString folder = m_root + u'/' + folders.first();
        QCOMPARE(copy, folder + u'/' + name);
        QCOMPARE(fingerprint(copy), fingerprint(m_application));
        QVERIFY(QFileInfo(copy + u"/Contents/current"_s).isSymLink());
        QCOMPARE(QFileInfo(copy + u"/Contents/MacOS/launcher"_s).permissions(),
                 QFileInfo(m_application + u"/Contents/MacOS/launcher"_s).permissions());
        const QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser
            | QFile::WriteUser | QFile::ExeUser;
        QCOMPARE(QFileInfo(folder).permissions(), ownerOnly);
        QCOMPARE(QFileInfo(m_root).permissions(), ownerOnly);

        QFile note(folder + u"/RESTORE.txt"_s);
        QVERIFY(note.open(QIODevice::ReadOnly));
        QCOMPARE(note.readAll(), QByteArray("Version: 1.2.0\nBuild: 45\nCreated: 2026-03-04T05:06:07Z\n"
                                           "Quit the launcher, then copy this app to Applications using Finder. "
                                           "No game saves or bottle settings are included.\n"));
    }

    void noteMarksMissingVersions()
    {
        const QByteArray note = RollbackBackup::restoreNote({}, m_now);
        QVERIFY2(note.startsWith("Version: ?\nBuild: ?\nCreated: 2026-03-04T05:06:07Z\n"), note.constData());
    }

    void refusedCopiesLeaveNoFolder_data()
    {
        QTest::addColumn<QString>("application");
        QTest::addColumn<bool>("tamper");
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("rootMade");
        QTest::newRow("one byte changed in the copy") << QString() << true << u"update.backup.error.unverified"_s << true;
        QTest::newRow("a build folder, not an app") << u"/build"_s << false << u"update.backup.error.notApplication"_s
                                                    << false;
        QTest::newRow("an app that is not there") << u"/Missing.app"_s << false << u"update.backup.error"_s << true;
    }
    void refusedCopiesLeaveNoFolder()
    {
        QFETCH(QString, application);
        QFETCH(bool, tamper);
        QFETCH(QString, key);
        QFETCH(bool, rootMade);
        const QString source = application.isEmpty() ? m_application : m_home.root() + application;
        try {
            RollbackBackup::save(source, m_root, inputs(u"hu.korvane.maclauncher"_s, tamper));
            QFAIL("a backup was made");
        } catch (const RollbackBackup::Error &error) {
            QCOMPARE(error.message().key, key);
        }
        QCOMPARE(QFileInfo::exists(m_root), rootMade);
        QCOMPARE(backups(), QStringList());
    }

    void extractsTheNewestSection_data()
    {
        QTest::addColumn<QString>("log");
        QTest::addColumn<std::optional<QString>>("section");
        QTest::newRow("newest of two") << u"# Changes\n\n## 1.2.0\n- Added A\n\n## 1.1.0\n- Fixed B\n"_s
                                       << std::optional(u"## 1.2.0\n- Added A"_s);
        QTest::newRow("only section, to the end") << u"## 1.0.0\n### Added\n- All of it\n\n\n"_s
                                                  << std::optional(u"## 1.0.0\n### Added\n- All of it"_s);
        QTest::newRow("CR LF") << u"## 1.2.0\r\n- A\r\n## 1.1.0\r\n"_s << std::optional(u"## 1.2.0\n- A"_s);
        QTest::newRow("no section heading") << u"# Changes\n### Added\n- A\n##1.0\n"_s << std::optional<QString>();
        QTest::newRow("empty") << QString() << std::optional<QString>();
    }
    void extractsTheNewestSection()
    {
        QFETCH(QString, log);
        QFETCH(std::optional<QString>, section);
        QCOMPARE(LatestReleaseNotes::extract(log), section);
    }

    void rendersLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<ReleaseNotesText::Line::Kind>("kind");
        QTest::addColumn<QString>("text");
        using Kind = ReleaseNotesText::Line::Kind;
        QTest::newRow("list item") << u"- Fixed X"_s << Kind::listItem << u"• Fixed X"_s;
        QTest::newRow("third-level heading") << u"### Added"_s << Kind::headline << u"Added"_s;
        QTest::newRow("section heading") << u"## 1.2.0"_s << Kind::title << u"1.2.0"_s;
        QTest::newRow("hash without blank") << u"#Notes"_s << Kind::title << u"Notes"_s;
        QTest::newRow("dash without blank") << u"-x"_s << Kind::plain << u"-x"_s;
        QTest::newRow("plain with markdown") << u"See *this*"_s << Kind::plain << u"See *this*"_s;
    }
    void rendersLines()
    {
        QFETCH(QString, line);
        QFETCH(ReleaseNotesText::Line::Kind, kind);
        QFETCH(QString, text);
        QCOMPARE(ReleaseNotesText::lines(line), QList<ReleaseNotesText::Line>({{kind, text}}));
    }

    void loadsTheLanguagesChangeLog_data()
    {
        QTest::addColumn<AppLanguage>("language");
        QTest::addColumn<QString>("itemStart");
        QTest::newRow("English") << AppLanguage(AppLanguage::english) << u"- Plays"_s;
        QTest::newRow("German") << AppLanguage(AppLanguage::german) << u"- Spielt"_s;
        QTest::newRow("Hungarian") << AppLanguage(AppLanguage::hungarian) << u"- Korvane"_s;
    }
    void loadsTheLanguagesChangeLog()
    {
        QFETCH(AppLanguage, language);
        QFETCH(QString, itemStart);
        const QStringList lines = LatestReleaseNotes::load(u"" KVN_SOURCE_DIR "/resources"_s, language).split(u'\n');
        QCOMPARE(lines.first(), u"## 1.0.0"_s);
        QVERIFY2(lines.at(3).startsWith(itemStart), qPrintable(lines.at(3)));
    }

    void missingChangeLogSaysSo()
    {
        m_home.installLocalization();
        writeFile(m_home.root() + u"/notes/CHANGELOG.de.md"_s, "# Nothing yet\n", QFile::ReadOwner);
        for (const QString &resources : QStringList{m_home.root() + u"/notes"_s, m_home.root() + u"/nowhere"_s, QString()})
            QCOMPARE(LatestReleaseNotes::load(resources, AppLanguage::german), L("center.notes.unavailable"));
    }
};

QTEST_GUILESS_MAIN(TestRollbackBackup)
#include "tst_rollbackbackup.moc"
