#pragma once

#include <QString>

// The launcher's own folders (settings, data, backups, diagnostics) hold the user's bottle paths,
// play history and reports, so nobody else on the machine may list or read them.
namespace PrivateDirectory {

// Creates `path` and every missing folder above it, each with mode 0700 whatever the umask;
// folders that already exist keep their mode. Returns false, with the reason in `error` when
// given, when some part of the path exists and is not a folder or cannot be created.
bool create(const QString &path, QString *error = nullptr);

} // namespace PrivateDirectory
