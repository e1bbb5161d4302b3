#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

namespace AtomicFile {

// Writes the whole file or nothing: the bytes go to a temporary file beside `path`, which gets
// `permissions` before it is renamed over the old one, so the file never shows other
// permissions than it ends with and a crash never leaves half of it. False, with the reason in
// `error` when given, when anything fails; the old file is then untouched.
bool write(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions,
           QString *error = nullptr);

} // namespace AtomicFile
