#include "platform/applicationcopy.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

ApplicationCopy ApplicationCopy::system()
{
    ApplicationCopy copy;
    copy.isApplication = [](const QString &path) {
        const QFileInfo program(path + QStringLiteral("/bin/korvane-launcher"));
        return QFileInfo(path).isDir() && program.isFile() && program.isExecutable();
    };
    copy.copy = &ApplicationCopy::copyTree;
    return copy;
}

QString ApplicationCopy::runningApplication()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
}
