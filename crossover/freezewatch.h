#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

// What the game's and the client's logs say about a loading attempt: the game (or the client)
// came up, or the game hangs at the same line it always hangs at. The file reading runs off the
// main thread on plain values; the verdict is a pure function of what was read.
namespace FreezeWatch {

// Plain, case-sensitive substrings. The client log counts only from where it stood when the
// attempt started; the game log counts as a whole, when it was written during the attempt.
inline const QStringList clientMarkers{QStringLiteral("[cb_radio] Speaker initialized"),
                                       QStringLiteral("[client] SteamID:"),
                                       QStringLiteral("[client] Initializing gameplay")};
inline const QStringList gameMarkers{QStringLiteral("Set profile finished"), QStringLiteral("Map loaded"),
                                     QStringLiteral("Desktop screen config switched")};
inline const QString hangMarker = QStringLiteral("Enforcing 'floor_reflection");

// Which of `needles` occur in the file's bytes from `offset` on (in `needles` order). Nothing
// when the file cannot be read or those bytes are not valid UTF-8. Reads in bounded chunks, so
// a log of any size costs the same memory.
std::optional<QList<bool>> find(const QString &path, qint64 offset, const QStringList &needles);

// The size of a file, 0 when it cannot be read.
qint64 sizeOf(const QString &path);

// The newest "client_*.txt" in the client's log folder (not hidden; by content modification
// date, the first listed among equals); nothing when there is none or no folder.
std::optional<QString> newestClientLog(const QString &directory);

// One look at both logs.
struct Observation {
    // Which client markers the new part of the client log holds; nothing when it could not be
    // read or decoded, or there is no client log.
    std::optional<QList<bool>> client;
    // The game log's modification date, nothing when it cannot be read.
    std::optional<QDateTime> gameModified;
    // Which of the game markers and then the hang marker it holds; nothing when unreadable.
    std::optional<QList<bool>> game;
};

struct Watch {
    QString gameLog;
    std::optional<QString> clientLog;
    qint64 clientOffset = 0;
    QDateTime start;
};

// Reads what `observe` needs; blocking, for a worker thread. The game log is only read when it
// was written after the start.
Observation observe(const Watch &watch);

enum class Verdict { watching, clientLoaded, gameLoaded, frozen };

// The game loaded, or froze: the hang marker in a log that has not moved for `freezeAge`.
Verdict assess(const Observation &observation, const QDateTime &start, const QDateTime &now,
               std::chrono::milliseconds freezeAge);

} // namespace FreezeWatch
