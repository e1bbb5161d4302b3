#pragma once

#include <QString>

#include <optional>

// The one redaction routine for everything that leaves the machine, and the bounded log
// reader. Free of state; safe on any thread.
namespace DiagnosticPrivacy {

// Rewrites `text` line by line: a line naming a sensitive key becomes one fixed line; the home
// path and everything after it becomes "[PATH]"; e-mail addresses, web addresses, long
// numbers, IP addresses, paths under the usual roots and UUIDs become markers. Lines are
// joined with "\n" whatever separated them.
QString redact(const QString &text, const QString &home);
// The same with the running user's home directory.
QString redact(const QString &text);

inline constexpr qint64 defaultTailBytes = 131072;
inline const QString unavailable = QStringLiteral("[unavailable]");
inline const QString redactedLine = QStringLiteral("[REDACTED: potentially identifying line]");

// The last `maximum` bytes of a regular file as text, without the partial first line when the
// file is longer; "[unavailable]" for anything that is not a readable regular file (symbolic
// links are never followed). Reads at most `maximum` bytes whatever the file's size. Not
// redacted.
QString tail(const QString &path, qint64 maximum = defaultTailBytes);
// The same, telling an unavailable file apart from one that holds "[unavailable]".
std::optional<QString> readTail(const QString &path, qint64 maximum = defaultTailBytes);

// The last `count` user-perceived characters (grapheme clusters) of `text`.
QString lastCharacters(const QString &text, qsizetype count);

} // namespace DiagnosticPrivacy
