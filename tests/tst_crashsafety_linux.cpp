// kill -9 of a process that is writing one of the launcher's files, at random moments, many
// times: the file is always one whole generation (the one before the kill or the one being
// written), nothing half-written is left beside it, and the launcher starts on what is there.
// The update installation has the same check in its own test.

#include "core/launchermodel.h"
#include "core/settingstransferflow.h"
#include "preferences/applanguage.h"
#include "preferences/settingstransfer.h"
#include "servers/serverlistmodel.h"
#include "sessions/diagnosticarchive.h"
#include "sessions/failurereport.h"
#include "sessions/sessionactivity.h"
#include "support/crashwriting.h"
#include "support/launcherrig.h"
#include "support/testfiles.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>
#include <QtTest>

#include <zip.h>

#include <csignal>

namespace {

// Each writer gets at most this many kills, and stops earlier when its share of the time is
// spent, so that a slow machine still finishes the test in its time.
constexpr int minimumKills = 20;
constexpr int maximumKills = 200;
constexpr qint64 budgetPerWriterMs = 5000;

// What a check found in one file after a kill.
struct Found {
    qint64 generation = -1; // -1: the file carries no generation
    QString problem;        // empty: whole
};

// The one entry of a diagnostics archive, read with libzip after a consistency check of the
// whole archive; nothing when the archive does not open or lacks the entry.
std::optional<QByteArray> archivedReport(const QString &path)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    if (!archive)
        return std::nullopt;
    std::optional<QByteArray> report;
    zip_stat_t stat;
    if (zip_stat(archive, "Diagnostics/report.txt", 0, &stat) == 0 && (stat.valid & ZIP_STAT_SIZE)) {
        if (zip_file_t *file = zip_fopen(archive, "Diagnostics/report.txt", 0)) {
            QByteArray bytes(qsizetype(stat.size), Qt::Uninitialized);
            if (zip_fread(file, bytes.data(), stat.size) == zip_int64_t(stat.size))
                report = bytes;
            zip_fclose(file);
        }
    }
    zip_discard(archive);
    return report;
}

// Every entry below `folder`, relative to it, hidden ones included.
QStringList entriesBelow(const QString &folder)
{
    QStringList entries;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        entries.append(QDir(folder).relativeFilePath(it.next()));
    entries.sort();
    return entries;
}

} // namespace

class TestCrashSafety : public QObject {
    Q_OBJECT

    const QString m_writer = QStringLiteral(KVN_BINARY_DIR "/tests/crashwriter_linux");

    // The defaults document parses as a whole and was never found damaged.
    static QString defaultsProblem(const CrashWriting::Home &home)
    {
        if (QFileInfo::exists(home.defaultsPath() + u".damaged"_s))
            return u"the defaults were found damaged"_s;
        const QByteArray bytes = TestFiles::read(home.defaultsPath());
        if (QFileInfo::exists(home.defaultsPath()) && !QJsonDocument::fromJson(bytes).isObject())
            return u"the defaults are not a whole document (%1 bytes)"_s.arg(bytes.size());
        return {};
    }

    static Found check(const QString &kind, const CrashWriting::Home &home)
    {
        Found found;
        found.problem = defaultsProblem(home);
        if (!found.problem.isEmpty())
            return found;
        if (kind == u"defaults") {
            // The launcher writes the defaults too: a document without the record is one from
            // before the first write.
            const JsonUserDefaults defaults(home.defaultsPath());
            if (!defaults.contains(CrashWriting::recordKey))
                return found;
            const QVariantMap record = defaults.object(CrashWriting::recordKey).toMap();
            found.generation = record.value(u"generation"_s, -2).toLongLong();
            if (record.value(u"payload"_s).toByteArray() != CrashWriting::payload(found.generation))
                found.problem = u"the record of generation %1 is torn"_s.arg(found.generation);
        } else if (kind == u"sessions") {
            const JsonUserDefaults defaults(home.defaultsPath());
            for (const QString &key : {SessionActivity::activeKey, SessionActivity::latestKey})
                if (defaults.contains(key) && !PlaySession::fromJson(defaults.data(key)))
                    found.problem = key + u" does not decode"_s;
            if (defaults.contains(SessionActivity::historyKey) && !PlaySession::listFromJson(defaults.data(SessionActivity::historyKey)))
                found.problem = u"the history does not decode"_s;
            if (defaults.contains(SessionActivity::failureKey) && !FailureReport::fromJson(defaults.data(SessionActivity::failureKey)))
                found.problem = u"the failure report does not decode"_s;
        } else if (kind == u"export") {
            if (!QFileInfo::exists(home.exportPath()))
                return found;
            try {
                const SettingsTransfer document = SettingsTransfer::decode(TestFiles::read(home.exportPath()));
                found.generation = document.favorites.value(0, -1);
            } catch (const SettingsTransferError &error) {
                found.problem = u"the export does not decode: "_s + QString::fromUtf8(error.what());
            }
        } else if (kind == u"import") {
            const QString backups = home.paths.applicationSupport;
            for (const QString &entry : entriesBelow(backups)) {
                if (!entry.contains(SettingsTransferFlow::backupFolderName) || QFileInfo(backups + u'/' + entry).isDir())
                    continue;
                try {
                    SettingsTransfer::decode(TestFiles::read(backups + u'/' + entry));
                } catch (const SettingsTransferError &error) {
                    found.problem = entry + u" does not decode: "_s + QString::fromUtf8(error.what());
                }
            }
            // An import is saved as one: the language, the game and the favourites on disk all
            // come from the same document (or from none).
            const JsonUserDefaults defaults(home.defaultsPath());
            if (const auto language = defaults.string(AppLanguage::defaultsKey)) {
                const SettingsTransfer document = CrashWriting::importDocument(*language == u"de"_s ? 1 : 0);
                QList<qint64> favorites;
                for (const QVariant &id : defaults.array(ServerListModel::favoritesKey))
                    favorites.append(id.toLongLong());
                if (defaults.string(LauncherModel::gameKey) != document.game || favorites != document.favorites)
                    found.problem = u"the settings mix two imports"_s;
            } else if (defaults.contains(ServerListModel::favoritesKey)) {
                found.problem = u"favourites were saved without the language of their import"_s;
            }
        } else if (kind == u"diagnostics") {
            if (!QFileInfo::exists(home.archivePath()))
                return found;
            const auto report = archivedReport(home.archivePath());
            if (!report)
                return {-1, u"the archive does not open"_s};
            const QByteArray firstLine = report->left(report->indexOf('\n'));
            found.generation = firstLine.mid(7).toLongLong();
            if (!firstLine.startsWith("report ") || *report != CrashWriting::report(found.generation).toUtf8())
                found.problem = u"the archived report is torn"_s;
        }
        return found;
    }

    // The generation a file of this kind holds, compared: the export records only the
    // favourite, which repeats every hundred generations.
    static bool sameGeneration(const QString &kind, qint64 onDisk, qint64 generation)
    {
        if (kind == u"export")
            return onDisk == CrashWriting::favorites(generation).value(0);
        return onDisk == generation;
    }

    // Nothing but the files the writer means to leave, which a reader listing the folder could
    // take for one of them. Two kinds of leftovers are expected: the working folders of killed
    // diagnostics saves, which the next save removes, and the "<name>.XXXXXX" that QSaveFile
    // links its unnamed file to just before renaming it over <name>, when the kill falls
    // between the two calls; no reader opens either.
    static QString strayFiles(const CrashWriting::Home &home)
    {
        QStringList stray;
        for (const QString &entry : entriesBelow(home.root)) {
            static const QRegularExpression expected(
                uR"(^(defaults\.json|home(/.*)?|tmp|tmp/Korvane-Diagnostics-[0-9]+-[-0-9A-F]{36}(/.*)?|export|export/Korvane-Settings\.json|archive|archive/report\.zip|import-[01]\.json)$)"_s);
            static const QRegularExpression backup(uR"(/SettingsBackups/\{?[0-9a-fA-F-]{36}\}?\.json$)"_s);
            static const QRegularExpression linkedBeforeRename(
                uR"(^(defaults\.json|export/Korvane-Settings\.json|archive/report\.zip|home/.*/SettingsBackups/[^/]+\.json)\.[A-Za-z0-9]{6}$)"_s);
            if (linkedBeforeRename.match(entry).hasMatch())
                continue;
            if (expected.match(entry).hasMatch() && !(entry.contains(u"SettingsBackups/"_s) && !backup.match(entry).hasMatch()))
                continue;
            stray.append(entry);
        }
        return stray.join(u", "_s);
    }

private Q_SLOTS:
    void killedWriterLeavesWholeFiles_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char *kind : {"defaults", "sessions", "export", "import", "diagnostics"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }

    void killedWriterLeavesWholeFiles()
    {
        QFETCH(QString, kind);
        LauncherRig rig;
        const CrashWriting::Home home(rig.home.root());
        QDir().mkpath(QFileInfo(home.exportPath()).absolutePath());
        QDir().mkpath(QFileInfo(home.archivePath()).absolutePath());
        for (int parity = 0; parity < 2; ++parity)
            TestFiles::write(home.importPath(parity), CrashWriting::importDocument(parity).encoded(true));

        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        qInfo() << "seed" << seed;

        QElapsedTimer clock;
        clock.start();
        const bool numbered = kind == u"defaults" || kind == u"export" || kind == u"diagnostics";
        qint64 next = 1; // the first generation the next writer writes
        int kills = 0, caughtUp = 0, inFirstWrite = 0, later = 0;
        // The kill comes within this many microseconds of the writer being ready; it adapts
        // so that kills land both in the first write and after some, however fast the writes.
        quint32 window = 20000;
        while (kills < minimumKills || (kills < maximumKills && clock.elapsed() < budgetPerWriterMs)) {
            QProcess writer;
            writer.start(m_writer, {kind, home.root, QString::number(next)});
            QVERIFY2(writer.waitForStarted(10000), qPrintable(writer.errorString()));
            QByteArray output;
            while (!output.contains("ready\n")) {
                QVERIFY2(writer.waitForReadyRead(10000), writer.readAllStandardError().constData());
                output += writer.readAllStandardOutput();
            }
            QThread::usleep(random.bounded(window));
            ::kill(pid_t(writer.processId()), SIGKILL);
            QVERIFY(writer.waitForFinished(10000));
            QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
            ++kills;

            output += writer.readAllStandardOutput();
            const QList<QByteArray> lines = output.mid(output.indexOf("ready\n") + 6).split('\n');
            // The last whole line: a number cut short by the kill was never finished.
            const qint64 reported = lines.size() >= 2 ? lines[lines.size() - 2].toLongLong() : next - 1;

            const Found found = check(kind, home);
            QVERIFY2(found.problem.isEmpty(), qPrintable(u"kill %1: "_s.arg(kills) + found.problem));
            const QString stray = strayFiles(home);
            QVERIFY2(stray.isEmpty(), qPrintable(u"kill %1 left: "_s.arg(kills) + stray));
            const qint64 completed = reported - (next - 1);
            ++(completed == 0 ? inFirstWrite : later);
            window = completed == 0 ? std::min<quint32>(window * 2, 2'000'000) : completed > 3 ? std::max<quint32>(window / 2, 1000) : window;
            next = reported + 1;
            if (numbered) {
                // The generation reported last, or the one whose file was in place before the
                // writer could say so. Only before the first write is there no file at all.
                const bool old = reported == 0 ? found.generation < 0 : sameGeneration(kind, found.generation, reported);
                const bool replaced = sameGeneration(kind, found.generation, reported + 1);
                QVERIFY2(old || replaced, qPrintable(u"kill %1: generation %2 on disk, %3 reported"_s.arg(kills)
                                                         .arg(found.generation).arg(reported)));
                if (replaced) {
                    ++caughtUp;
                    ++next;
                }
            }

            // The launcher starts on what is there.
            LauncherModel &model = rig.start();
            if (kind == u"sessions")
                QVERIFY2(!model.activity().current(), "a session left open was not closed as interrupted");
            QVERIFY(defaultsProblem(home).isEmpty());
        }
        qInfo() << kind << "kills:" << kills << "in" << clock.elapsed() << "ms; in the first write:" << inFirstWrite
                << "later:" << later << "; between a replacement and its report:" << caughtUp
                << "; generations written:" << next - 1;
        QVERIFY(inFirstWrite > 0);
        QVERIFY(later > 0);

        if (kind == u"diagnostics") {
            // The next save clears what the killed ones left in the temporary directory.
            DiagnosticArchive::save(u"after"_s, home.archivePath(), home.paths.temporary);
            QCOMPARE(entriesBelow(home.paths.temporary), QStringList());
        }
    }
};

QTEST_GUILESS_MAIN(TestCrashSafety)
#include "tst_crashsafety_linux.moc"
