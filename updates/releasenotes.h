#pragma once

#include "preferences/applanguage.h"

#include <QList>
#include <QString>

#include <optional>

// The release notes of the update centre: the newest section of the change log.
namespace LatestReleaseNotes {

// The section that begins at the first line starting with "## " and runs up to the next such
// line, heading included, trimmed; nothing when the text has no such line. CR LF counts as LF.
std::optional<QString> extract(const QString &text);

// "CHANGELOG.md", "CHANGELOG.de.md" or "CHANGELOG.hu.md".
QString fileName(AppLanguage language);

// Change logs larger than this are not the launcher's own; they are not read.
inline constexpr qint64 maximumFileSize = 1024 * 1024;

// The newest section of the language's change log in `resources`, or the text of
// center.notes.unavailable when the file is missing, unreadable or has no section.
QString load(const QString &resources, AppLanguage language);

} // namespace LatestReleaseNotes

// How the notes view shows a notes text, one element per line.
namespace ReleaseNotesText {

struct Line {
    enum class Kind {
        // A heading that begins with "###".
        headline,
        // Any other heading ("#", "##").
        title,
        listItem,
        plain,
    };
    Kind kind = Kind::plain;
    // The heading without its number signs and blanks; a list item with "• " in place of "- ".
    // Markdown inside the line is left to the view.
    QString text;
    bool operator==(const Line &) const = default;
};

QList<Line> lines(const QString &notes);

} // namespace ReleaseNotesText
