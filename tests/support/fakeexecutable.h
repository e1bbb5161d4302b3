#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

// The smallest file the version reader accepts as a Windows executable: an MZ header and one
// VS_VERSION_INFO record whose product version is the given one.
inline QByteArray fakeGameExecutable(const QList<quint16> &version)
{
    QByteArray data(64, '\0');
    data[0] = 'M';
    data[1] = 'Z';
    auto word = [](quint16 value) {
        const char bytes[2] = {char(value & 0xff), char(value >> 8)};
        return QByteArray(bytes, 2);
    };
    QByteArray record = word(92) + word(52) + word(0);
    for (char c : QByteArrayLiteral("VS_VERSION_INFO"))
        record += QByteArray(&c, 1) + QByteArray(1, '\0');
    record += QByteArray(4, '\0'); // the key's terminator, then padding to a four-byte boundary
    QByteArray fixed(52, '\0');
    fixed.replace(0, 4, QByteArray("\xBD\x04\xEF\xFE", 4));
    fixed.replace(16, 2, word(version.value(1)));
    fixed.replace(18, 2, word(version.value(0)));
    fixed.replace(20, 2, word(version.value(3)));
    fixed.replace(22, 2, word(version.value(2)));
    return data + record + fixed + QByteArray(32, '\0');
}

inline bool writeFakeGameExecutable(const QString &path, const QList<quint16> &version)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(fakeGameExecutable(version)) >= 0;
}
