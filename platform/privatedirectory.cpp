#include "platform/privatedirectory.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

bool failed(QString *error, const QString &path, int code)
{
    if (error)
        *error = path + u": "_s + QString::fromLocal8Bit(std::strerror(code));
    return false;
}

bool isDirectory(const QByteArray &path)
{
    struct stat info {};
    return ::stat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

bool PrivateDirectory::create(const QString &path, QString *error)
{
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    // Every prefix that ends before a separator, then the whole path; the root always exists.
    QStringList prefixes;
    for (qsizetype at = absolute.indexOf(u'/', 1); at > 0; at = absolute.indexOf(u'/', at + 1))
        prefixes.append(absolute.left(at));
    prefixes.append(absolute);

    for (const QString &prefix : std::as_const(prefixes)) {
        const QByteArray encoded = QFile::encodeName(prefix);
        if (isDirectory(encoded))
            continue;
        if (::mkdir(encoded.constData(), 0700) != 0) {
            const int code = errno;
            // Another process may have made it in the meantime; then it is not ours to change.
            if (code == EEXIST && isDirectory(encoded))
                continue;
            return failed(error, prefix, code);
        }
        // The umask may have taken bits from the owner too.
        if (::chmod(encoded.constData(), 0700) != 0)
            return failed(error, prefix, errno);
    }
    return true;
}
