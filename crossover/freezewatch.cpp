#include "crossover/freezewatch.h"

#include <QByteArrayMatcher>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace FreezeWatch {

namespace {

constexpr qint64 chunkSize = 1 << 20;

// How many bytes at the end of `bytes` begin a UTF-8 sequence that the next chunk completes.
qsizetype incompleteTail(QByteArrayView bytes)
{
    for (qsizetype back = 1; back <= 3 && back <= bytes.size(); ++back) {
        const auto byte = quint8(bytes.at(bytes.size() - back));
        if ((byte & 0xC0) == 0x80)
            continue; // a continuation byte: its lead is further back
        const qsizetype length = (byte & 0xE0) == 0xC0 ? 2 : (byte & 0xF0) == 0xE0 ? 3 : (byte & 0xF8) == 0xF0 ? 4 : 1;
        return length > back ? back : 0;
    }
    return 0;
}

} // namespace

std::optional<QList<bool>> find(const QString &path, qint64 offset, const QStringList &needles)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || (offset > 0 && !file.seek(offset)))
        return std::nullopt;
    QList<QByteArrayMatcher> matchers;
    qsizetype overlap = 0;
    for (const QString &needle : needles) {
        matchers.append(QByteArrayMatcher(needle.toUtf8()));
        overlap = std::max(overlap, needle.toUtf8().size() - 1);
    }
    QList<bool> found(needles.size(), false);
    // Chunks are split at character boundaries, so each one decodes on its own; the bytes that
    // could start a marker cut by the chunk's end are searched again with the next chunk.
    QByteArray carry;
    QByteArray previousEnd;
    for (;;) {
        const QByteArray read = file.read(chunkSize);
        if (read.isEmpty() && file.error() != QFileDevice::NoError)
            return std::nullopt;
        QByteArray chunk = carry + read;
        const bool atEnd = read.isEmpty();
        const qsizetype keep = atEnd ? 0 : incompleteTail(chunk);
        carry = chunk.right(keep);
        chunk.chop(keep);
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        (void)QString(decoder.decode(chunk));
        if (decoder.hasError())
            return std::nullopt;
        const QByteArray searched = previousEnd + chunk;
        for (qsizetype index = 0; index < matchers.size(); ++index)
            if (!found.at(index) && matchers.at(index).indexIn(searched) >= 0)
                found[index] = true;
        previousEnd = searched.right(overlap);
        if (atEnd)
            return found;
    }
}

qint64 sizeOf(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() ? info.size() : 0;
}

std::optional<QString> newestClientLog(const QString &directory)
{
    if (!QFileInfo(directory).isDir())
        return std::nullopt;
    std::optional<QString> newest;
    QDateTime newestDate;
    QDirIterator entries(directory, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
    while (entries.hasNext()) {
        entries.next();
        const QFileInfo info = entries.fileInfo();
        if (!info.fileName().startsWith(u"client_"_s) || info.suffix() != u"txt"_s)
            continue;
        // A date that cannot be read counts as the distant past.
        QDateTime date = info.lastModified().toUTC();
        if (!date.isValid())
            date = QDateTime::fromMSecsSinceEpoch(std::numeric_limits<qint64>::min() / 2, Qt::UTC);
        if (!newest || date > newestDate) {
            newest = info.filePath();
            newestDate = date;
        }
    }
    return newest;
}

Observation observe(const Watch &watch)
{
    Observation observation;
    if (watch.clientLog && sizeOf(*watch.clientLog) > watch.clientOffset)
        observation.client = find(*watch.clientLog, watch.clientOffset, clientMarkers);
    const QFileInfo game(watch.gameLog);
    if (game.isFile()) {
        observation.gameModified = game.lastModified().toUTC();
        if (observation.gameModified->isValid() && *observation.gameModified >= watch.start)
            observation.game = find(watch.gameLog, 0, gameMarkers + QStringList{hangMarker});
    }
    return observation;
}

Verdict assess(const Observation &observation, const QDateTime &start, const QDateTime &now,
               std::chrono::milliseconds freezeAge)
{
    const auto any = [](const QList<bool> &found, qsizetype count) {
        return std::any_of(found.cbegin(), found.cbegin() + std::min(count, found.size()), [](bool b) { return b; });
    };
    if (observation.client && any(*observation.client, clientMarkers.size()))
        return Verdict::clientLoaded;
    if (!observation.game || !observation.gameModified || !observation.gameModified->isValid()
        || *observation.gameModified < start)
        return Verdict::watching;
    const QList<bool> &game = *observation.game;
    if (any(game, gameMarkers.size()))
        return Verdict::gameLoaded;
    const bool hangs = game.size() > gameMarkers.size() && game.at(gameMarkers.size());
    if (hangs && observation.gameModified->msecsTo(now) >= freezeAge.count())
        return Verdict::frozen;
    return Verdict::watching;
}

} // namespace FreezeWatch
