#pragma once

#include <QString>

#include <optional>

// Facts about the machine that reports and diagnostics name.
namespace SystemInfo {

// The operating system's human-readable version, as the platform words it
// ("Version 14.4 (Build 23E214)" on macOS, the distribution's pretty name elsewhere).
QString operatingSystemVersion();

// The installed CrossOver's version: the application bundle's short version on macOS, the
// installation's version file under CX_ROOT (default /opt/cxoffice) on Linux. Nothing when
// CrossOver or its version cannot be found.
std::optional<QString> crossOverVersion();

} // namespace SystemInfo
