#include "games/gameversion.h"

#include <QFile>
#include <QFileInfo>

#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {
// "VS_VERSION_INFO" and its NUL terminator in UTF-16LE.
constexpr std::array<char, 32> versionInfoKey = [] {
    std::array<char, 32> key{};
    const char ascii[] = "VS_VERSION_INFO";
    for (std::size_t i = 0; i < 16; ++i) {
        key[2 * i] = ascii[i]; // includes the terminating NUL
        key[2 * i + 1] = 0;
    }
    return key;
}();

constexpr qsizetype recordHeaderSize = 6;   // wLength, wValueLength, wType
constexpr qsizetype fixedFileInfoSize = 52; // VS_FIXEDFILEINFO
constexpr quint16 minimumRecordLength = 92;

// Reads a little-endian word; false when it would fall outside the data.
bool readWord(QByteArrayView data, qsizetype offset, quint16 &out)
{
    if (offset < 0 || offset + 2 > data.size())
        return false;
    const auto *bytes = reinterpret_cast<const unsigned char *>(data.data()) + offset;
    out = quint16(bytes[0] | (bytes[1] << 8));
    return true;
}

const char *find(const char *from, const char *end)
{
    if (end - from < qsizetype(versionInfoKey.size()))
        return nullptr;
    return static_cast<const char *>(
        ::memmem(from, std::size_t(end - from), versionInfoKey.data(), versionInfoKey.size()));
}
} // namespace

QString GameVersion::text() const
{
    QStringList pieces;
    pieces.reserve(m_parts.size());
    for (quint16 part : m_parts)
        pieces.append(QString::number(part));
    return pieces.join(u'.');
}

std::optional<GameVersion> GameVersion::read(const QString &executablePath)
{
    const QFileInfo info(executablePath);
    if (!info.isFile())
        return std::nullopt;
    const qint64 size = info.size();
    if (size <= 0 || size > maximumExecutableSize)
        return std::nullopt;

    QFile file(executablePath);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // The file may have changed since the size check: map no more than we looked at, and
    // never more than the cap.
    const qint64 length = std::min(file.size(), size);
    if (length <= 0)
        return std::nullopt;
    if (uchar *mapped = file.map(0, length)) {
        auto result = parse(QByteArrayView(reinterpret_cast<const char *>(mapped), length));
        file.unmap(mapped);
        return result;
    }
    // Some file systems cannot map; a plain read stays within the same bound.
    const QByteArray bytes = file.read(length);
    if (bytes.size() != length)
        return std::nullopt;
    return parse(bytes);
}

std::optional<GameVersion> GameVersion::parse(QByteArrayView data)
{
    if (data.size() < 65 || data[0] != 'M' || data[1] != 'Z')
        return std::nullopt;

    const char *const begin = data.data();
    const char *const end = begin + data.size();
    std::optional<std::array<quint16, 4>> first;
    bool conflicting = false;

    for (const char *hit = find(begin, end); hit; hit = find(hit + versionInfoKey.size(), end)) {
        const qsizetype keyStart = hit - begin;
        const qsizetype keyEnd = keyStart + qsizetype(versionInfoKey.size());
        const qsizetype record = keyStart - recordHeaderSize;
        if (record < 0)
            continue;
        quint16 length = 0, valueLength = 0, type = 0;
        if (!readWord(data, record, length) || length < minimumRecordLength
            || record + length > data.size())
            continue;
        if (!readWord(data, record + 2, valueLength) || valueLength < fixedFileInfoSize)
            continue;
        if (!readWord(data, record + 4, type) || type != 0)
            continue;
        const qsizetype value = (keyEnd + 3) & ~qsizetype(3);
        if (value + fixedFileInfoSize > record + length)
            continue;
        static constexpr unsigned char signature[] = {0xBD, 0x04, 0xEF, 0xFE};
        if (std::memcmp(begin + value, signature, sizeof signature) != 0)
            continue;
        std::array<quint16, 4> parts{};
        if (!readWord(data, value + 18, parts[0]) || !readWord(data, value + 16, parts[1])
            || !readWord(data, value + 22, parts[2]) || !readWord(data, value + 20, parts[3]))
            continue;
        if (parts[0] == 0)
            continue;
        if (!first)
            first = parts;
        else if (*first != parts)
            conflicting = true;
    }

    // Conflicting records mean the version is unknown, not whichever came first.
    if (!first || conflicting)
        return std::nullopt;
    return GameVersion(QList<quint16>(first->begin(), first->end()));
}

std::optional<QStringList> GameVersion::supportedParts(const QString &supported)
{
    QString text = supported;
    if (text.endsWith(u's'))
        text.chop(1);
    const QStringList pieces = text.split(u'.', Qt::KeepEmptyParts);
    if (pieces.size() < 2 || pieces.size() > 4)
        return std::nullopt;
    for (const QString &piece : pieces) {
        if (piece == "*"_L1)
            continue;
        if (piece.isEmpty())
            return std::nullopt;
        // Only ASCII digits: toUInt alone would take signs, blanks and other scripts' digits.
        for (QChar c : piece)
            if (c < u'0' || c > u'9')
                return std::nullopt;
        bool ok = false;
        const uint value = piece.toUInt(&ok);
        if (!ok || value > 65535)
            return std::nullopt;
    }
    if (pieces.first() == "*"_L1)
        return std::nullopt;
    return pieces;
}

std::optional<bool> GameVersion::matches(const QString &supported) const
{
    if (m_parts.size() != 4)
        return std::nullopt;
    const auto pieces = supportedParts(supported);
    if (!pieces)
        return std::nullopt;
    for (qsizetype i = 0; i < pieces->size(); ++i) {
        const QString &piece = pieces->at(i);
        if (piece == "*"_L1)
            continue;
        if (piece.toUInt() != m_parts.at(i))
            return false;
    }
    return true;
}
