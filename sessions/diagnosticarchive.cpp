#include "sessions/diagnosticarchive.h"

#include "platform/atomicfile.h"
#include "platform/paths.h"
#include "platform/privatedirectory.h"
#include "platform/recordcoding.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <zip.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const QString &what)
{
    throw DiagnosticArchive::Error(what.toStdString());
}


void writeAtomically(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions)
{
    if (QString reason; !AtomicFile::write(path, bytes, permissions, &reason))
        fail(path + u": "_s + reason);
}

QString zipError(zip_t *archive)
{
    return QString::fromUtf8(zip_strerror(archive));
}

// Writes the same archive `ditto -c -k --keepParent Diagnostics report.zip` makes: the folder
// as the top-level entry and the report below it, with Unix permissions so that unzip
// restores readable files.
void writeZip(const QString &zipPath, const QByteArray &report)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(zipPath).constData(), ZIP_CREATE | ZIP_EXCL, &error);
    if (!archive) {
        zip_error_t details;
        zip_error_init_with_code(&details, error);
        const QString message = QString::fromUtf8(zip_error_strerror(&details));
        zip_error_fini(&details);
        fail(zipPath + u": "_s + message);
    }
    const auto abandon = [&](const QString &what) {
        const QString message = what + u": "_s + zipError(archive);
        zip_discard(archive);
        fail(message);
    };

    const zip_int64_t folder = zip_dir_add(archive, "Diagnostics", ZIP_FL_ENC_UTF_8);
    if (folder < 0)
        abandon(u"Diagnostics/"_s);
    if (zip_file_set_external_attributes(archive, zip_uint64_t(folder), 0, ZIP_OPSYS_UNIX,
                                         zip_uint32_t(S_IFDIR | 0755) << 16) < 0)
        abandon(u"Diagnostics/"_s);

    // The buffer outlives the archive's use of it: zip_close() reads it before returning.
    zip_source_t *source = zip_source_buffer(archive, report.constData(), zip_uint64_t(report.size()), 0);
    if (!source)
        abandon(u"Diagnostics/report.txt"_s);
    const zip_int64_t file = zip_file_add(archive, "Diagnostics/report.txt", source, ZIP_FL_ENC_UTF_8);
    if (file < 0) {
        zip_source_free(source);
        abandon(u"Diagnostics/report.txt"_s);
    }
    if (zip_file_set_external_attributes(archive, zip_uint64_t(file), 0, ZIP_OPSYS_UNIX,
                                         zip_uint32_t(S_IFREG | 0644) << 16) < 0)
        abandon(u"Diagnostics/report.txt"_s);
    if (zip_close(archive) < 0)
        abandon(zipPath);
}


const QString workingPrefix = u"Korvane-Diagnostics-"_s;

// A save that was killed never ran its removal: its working folder, which holds a copy of the
// report, stays behind. The folder names its process, so a later save removes the folders of
// processes that are gone and leaves those of saves still running elsewhere.
void removeAbandonedWorkingFolders(const QString &temporaryDirectory)
{
    const QStringList names = QDir(temporaryDirectory).entryList({workingPrefix + u"*"_s}, QDir::Dirs | QDir::Hidden);
    for (const QString &name : names) {
        bool numeric = false;
        const qint64 pid = QStringView(name).mid(workingPrefix.size()).split(u'-').value(0).toLongLong(&numeric);
        if (numeric && pid > 0 && pid <= std::numeric_limits<pid_t>::max() && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            QDir(QDir(temporaryDirectory).filePath(name)).removeRecursively();
    }
}

} // namespace

void DiagnosticArchive::save(const QString &report, const QString &destination, const QString &temporaryDirectory)
{
    removeAbandonedWorkingFolders(temporaryDirectory);
    const QString workingPath = QDir(temporaryDirectory).filePath(
        workingPrefix + QString::number(::getpid()) + u'-' + RecordCoding::uuidText(QUuid::createUuid()));
    // mkdir, not mkpath: a missing temporary directory is an error, not something to create.
    if (::mkdir(QFile::encodeName(workingPath).constData(), 0700) != 0)
        fail(workingPath + u": "_s + QString::fromLocal8Bit(std::strerror(errno)));
    const PrivateDirectory::Removal working(workingPath);
    // The umask may have narrowed the mode; it must be exactly owner-only.
    if (::chmod(QFile::encodeName(workingPath).constData(), 0700) != 0)
        fail(workingPath + u": "_s + QString::fromLocal8Bit(std::strerror(errno)));

    const QString folder = working.path() + u"/Diagnostics"_s;
    if (QString error; !PrivateDirectory::create(folder, &error))
        fail(error);
    const QByteArray text = report.toUtf8();
    writeAtomically(folder + u"/report.txt"_s, text, QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    const QString zipPath = working.path() + u"/report.zip"_s;
    QFile reportFile(folder + u"/report.txt"_s);
    if (!reportFile.open(QIODevice::ReadOnly))
        fail(reportFile.fileName() + u": "_s + reportFile.errorString());
    writeZip(zipPath, reportFile.readAll());

    QFile zip(zipPath);
    if (!zip.open(QIODevice::ReadOnly))
        fail(zipPath + u": "_s + zip.errorString());
    writeAtomically(destination, zip.readAll(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void DiagnosticArchive::save(const QString &report, const QString &destination)
{
    save(report, destination, Paths::system().temporary);
}
