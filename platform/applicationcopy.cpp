#include "platform/applicationcopy.h"

#include <QFile>

#include <filesystem>

bool ApplicationCopy::copyTree(const QString &from, const QString &to, QString *error)
{
    namespace fs = std::filesystem;
    const fs::path source(QFile::encodeName(from).toStdString());
    const fs::path destination(QFile::encodeName(to).toStdString());
    std::error_code failure;
    // A link at the top would be followed by copy(); the application itself must be a folder.
    if (!fs::is_directory(fs::symlink_status(source, failure))) {
        if (error)
            *error = from + QStringLiteral(": not a folder");
        return false;
    }
    if (fs::exists(fs::symlink_status(destination, failure))) {
        if (error)
            *error = to + QStringLiteral(": already exists");
        return false;
    }
    fs::copy(source, destination, fs::copy_options::recursive | fs::copy_options::copy_symlinks, failure);
    if (failure) {
        if (error)
            *error = QString::fromStdString(failure.message());
        return false;
    }
    return true;
}
