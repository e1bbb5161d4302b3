#pragma once

#include "platform/applicationcopy.h"
#include "platform/paths.h"
#include "preferences/l10n.h"

#include <QDateTime>
#include <QVariantMap>

#include <stdexcept>

// A verified copy of the running application, kept before an update may replace it, so that the
// user can go back by hand. Each backup is a new folder <root>/<UUID> holding the copy and a
// RESTORE.txt; the launcher never deletes one.
namespace RollbackBackup {

// Why no backup was made; the text is for the user.
class Error : public std::runtime_error {
public:
    explicit Error(LocalizedMessage message)
        : std::runtime_error(message.key.toStdString()), m_message(std::move(message)) {}
    const LocalizedMessage &message() const { return m_message; }
    QString description() const { return m_message.text(); }

private:
    LocalizedMessage m_message;
};

// <Application Support>/Korvane Mac Launcher/Backups/<bundle identifier>, "unknown" standing in
// for a missing identifier. Nothing is created.
QString directory(const Paths &paths, const QString &bundleIdentifier);
// The folder name of the copy: "Korvane Launcher Preview.app" for an identifier ending in
// ".preview" (so that a preview never takes the name of the release beside it), else the
// application's own folder name.
QString applicationName(const QString &application, const QString &bundleIdentifier);
// The restore note: version, build, creation time in UTC and what to do with the copy.
QByteArray restoreNote(const QVariantMap &info, const QDateTime &now);

// The text key that tells a user how to go back to a copy: with the Finder on macOS, with a
// file manager elsewhere.
#ifdef Q_OS_MACOS
inline constexpr char restoreHelpKey[] = "update.restore.help";
#else
inline constexpr char restoreHelpKey[] = "update.restore.help.linux";
#endif

struct Inputs {
    // The running application's information dictionary (identifier, version, build).
    QVariantMap info;
    // When the backup is made, for the restore note.
    QDateTime now;
    ApplicationCopy platform;
};

// Copies `application` into a new UUID folder below `root` (both made 0700), verifies the copy
// and writes RESTORE.txt beside it; returns the copy's path. Throws Error: nothing is created
// when `application` is no application, and the UUID folder is removed again when copying,
// verifying or writing the note fails, so no unverified copy is ever left behind.
QString save(const QString &application, const QString &root, const Inputs &inputs);

} // namespace RollbackBackup
