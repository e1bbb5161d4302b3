#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QtTest>

// Files of a test tree, written and read back in one line each.
namespace TestFiles {

// Writes `bytes` to `path`, creating the folders above it; a test fails where this fails.
inline void write(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
    file.close();
    if (permissions)
        QVERIFY(file.setPermissions(permissions));
}

// The file's bytes; empty when it cannot be read.
inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace TestFiles
