#pragma once

#include <QByteArray>

#include <optional>

// The status file an attempt's script leaves behind: its exit code in decimal and a line break.
namespace StatusFile {

// The exit code, when the contents are one: white space around it is allowed, an optional sign,
// decimal digits that fit 32 bits. Anything else (not yet written, half written) is nothing, and
// the file is read again later.
std::optional<int> exitCode(const QByteArray &contents);

} // namespace StatusFile
