#pragma once

#include <QString>

#include <stdexcept>

// The one zip writer: a report text packed as "Diagnostics/report.txt" below a top-level
// "Diagnostics/" folder, which is what the support team unpacks on any system.
namespace DiagnosticArchive {

class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writes the archive to `destination` atomically with permissions 0600, building it in a
// private (0700) working folder below `temporaryDirectory` that is removed on every path.
// Throws Error; the destination is left as it was unless the final write replaced it.
void save(const QString &report, const QString &destination, const QString &temporaryDirectory);
// The same in the platform's temporary directory.
void save(const QString &report, const QString &destination);

} // namespace DiagnosticArchive
