#include "sessions/diagnosticarchive.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
struct Run {
    int exitCode = -1;
    QByteArray out;
};

// The POSIX mode bits, which Qt's permission flags only approximate.
int mode(const QString &path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

Run run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput()};
}

// Python's own zip reader, independent of libzip: integrity check, names, and the report.
// Everything goes through the one binary stream: mixing it with the text stream reorders the
// output unless Python happens to run unbuffered.
const char *pythonCheck = R"py(
import sys, zipfile
out = sys.stdout.buffer
with zipfile.ZipFile(sys.argv[1]) as z:
    assert z.testzip() is None
    out.write(("|".join(z.namelist()) + "\n").encode("utf-8"))
    out.write(z.read("Diagnostics/report.txt"))
)py";
} // namespace

class TestDiagnosticArchive : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_temporary;

    QStringList leftovers() const
    {
        return QDir(m_temporary).entryList({u"Korvane-Diagnostics-*"_s}, QDir::AllEntries | QDir::Hidden);
    }

private Q_SLOTS:
    void init()
    {
        m_temporary = m_dir.filePath(u"tmp"_s);
        QDir(m_temporary).removeRecursively();
        QVERIFY(QDir().mkpath(m_temporary));
    }

    void roundTrip_data()
    {
        QTest::addColumn<QString>("report");
        QTest::addColumn<bool>("replacing");
        QTest::newRow("empty report") << QString() << false;
        QTest::newRow("accents, emoji and CR LF") << u"\u00C1rv\u00EDzt\u0171r\u0151 t\u00FCk\u00F6rf\u00FAr\u00F3g\u00E9p \U0001F69B\r\nend"_s << false;
        QTest::newRow("replacing a world-readable file") << u"new"_s << true;
        QString large; // distinct lines, so that the compressed stream is large too
        for (int i = 0; i < 20000; ++i)
            large += u"line "_s + QString::number(i) + u" of the game log\n"_s;
        QTest::newRow("half a megabyte") << large << false;
    }

    void roundTrip()
    {
        QFETCH(QString, report);
        QFETCH(bool, replacing);
        const QString destination = m_dir.filePath(u"out/Korvane-Diagnostics.zip"_s);
        QVERIFY(QDir().mkpath(QFileInfo(destination).path()));
        QFile::remove(destination);
        if (replacing) {
            QFile old(destination);
            QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old content") > 0);
            old.close();
            QVERIFY(QFile::setPermissions(destination, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther));
        }

        DiagnosticArchive::save(report, destination, m_temporary);

        QCOMPARE(mode(destination), 0600);
        QVERIFY(leftovers().isEmpty());

        const Run python = run(u"/usr/bin/python3"_s, {u"-c"_s, QString::fromUtf8(pythonCheck), destination});
        QCOMPARE(python.exitCode, 0);
        QCOMPARE(python.out, "Diagnostics/|Diagnostics/report.txt\n" + report.toUtf8());

        // Unpacked by unzip, it is one folder holding one readable file.
        const QString unpacked = m_dir.filePath(u"unpacked"_s);
        QDir(unpacked).removeRecursively();
        QCOMPARE(run(u"unzip"_s, {u"-q"_s, destination, u"-d"_s, unpacked}).exitCode, 0);
        QCOMPARE(QDir(unpacked).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{u"Diagnostics"_s});
        QFile file(unpacked + u"/Diagnostics/report.txt"_s);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), report.toUtf8());
    }

    void failureLeavesNothingBehind_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<bool>("temporaryMissing");
        QTest::newRow("destination folder missing") << u"missing/x.zip"_s << false;
        QTest::newRow("destination is a folder") << u"folder"_s << false;
        QTest::newRow("temporary directory missing") << u"kept.zip"_s << true;
    }

    void failureLeavesNothingBehind()
    {
        QFETCH(QString, destination);
        QFETCH(bool, temporaryMissing);
        const QString target = m_dir.filePath(destination);
        QVERIFY(QDir().mkpath(m_dir.filePath(u"folder"_s)));
        QFile kept(m_dir.filePath(u"kept.zip"_s));
        QVERIFY(kept.open(QIODevice::WriteOnly));
        kept.write("untouched");
        kept.close();
        const QString temporary = temporaryMissing ? m_dir.filePath(u"no/such/dir"_s) : m_temporary;

        QVERIFY_THROWS_EXCEPTION(DiagnosticArchive::Error, DiagnosticArchive::save(u"report"_s, target, temporary));

        QVERIFY(leftovers().isEmpty());
        QVERIFY(!QFileInfo::exists(m_dir.filePath(u"no"_s)));
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("untouched"));
    }

    // A save killed half-way leaves its working folder; the next save removes it, but not the
    // folder of a save still running in another process, nor folders that are not ours.
    void leftoversOfKilledSavesAreRemoved_data()
    {
        QTest::addColumn<QString>("owner"); // "gone", "running" or a literal name suffix
        QTest::addColumn<bool>("removed");
        QTest::newRow("process gone") << u"gone"_s << true;
        QTest::newRow("process running") << u"running"_s << false;
        QTest::newRow("not a process id") << u"x-not-a-save"_s << false;
    }
    void leftoversOfKilledSavesAreRemoved()
    {
        QFETCH(QString, owner);
        QFETCH(bool, removed);
        QString suffix = owner;
        if (owner == u"gone") {
            QProcess finished;
            finished.start(u"/bin/true"_s);
            QVERIFY(finished.waitForStarted());
            suffix = QString::number(finished.processId());
            QVERIFY(finished.waitForFinished());
        } else if (owner == u"running") {
            suffix = QString::number(QCoreApplication::applicationPid());
        }
        const QString leftover = m_temporary + u"/Korvane-Diagnostics-"_s + suffix + u"-0F0E0D0C-0B0A-0908-0706-050403020100"_s;
        QVERIFY(QDir().mkpath(leftover + u"/Diagnostics"_s));
        QFile report(leftover + u"/Diagnostics/report.txt"_s);
        QVERIFY(report.open(QIODevice::WriteOnly) && report.write("private") > 0);
        report.close();

        DiagnosticArchive::save(u"report"_s, m_dir.filePath(u"next.zip"_s), m_temporary);

        QCOMPARE(!QFileInfo::exists(leftover), removed);
        QCOMPARE(leftovers().size(), removed ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestDiagnosticArchive)
#include "tst_diagnosticarchive.moc"
