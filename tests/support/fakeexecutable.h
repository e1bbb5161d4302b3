#pragma once

#include "core/demosandbox.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

// The smallest file the version reader accepts as a Windows executable, with the given product
// version; the demo installs the same.
inline QByteArray fakeGameExecutable(const QList<quint16> &version)
{
    return DemoSandbox::executableWithVersion(version);
}

inline bool writeFakeGameExecutable(const QString &path, const QList<quint16> &version)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(fakeGameExecutable(version)) >= 0;
}
