#pragma once

#include <QString>
#include <QVariantMap>

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

// The same facts and the application's information dictionary, as one object a front end hands
// to the launcher model: a model built in a test then quotes the test's machine, not this one.
class SystemFacts {
public:
    virtual ~SystemFacts() = default;
    // "CFBundleShortVersionString", "CFBundleVersion" and the build-time settings (BundleInfo).
    virtual QVariantMap bundleInfo() const = 0;
    virtual QString operatingSystemVersion() const = 0;
    // Asked anew each time: CrossOver may be installed or updated while the launcher runs.
    virtual std::optional<QString> crossOverVersion() const = 0;

    // This machine and this build: BundleInfo::main() and the functions above.
    static const SystemFacts &system();
};
