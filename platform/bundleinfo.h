#pragma once

#include <QVariantMap>

// The application's information dictionary: "CFBundleIdentifier", "CFBundleShortVersionString",
// "CFBundleVersion", "SUFeedURL", "SUPublicEDKey", "KVNReportDeliveryEnabled" (bool) and
// "KVNReleaseChannel".
// Code that needs these takes the dictionary as a parameter, so a test can hand it any one.
namespace BundleInfo {
// The running application's dictionary: the bundle's Info.plist on macOS, the values compiled
// in from the same CMake settings elsewhere (and for korvanectl, which has no bundle).
QVariantMap main();
// The values this build was configured with.
QVariantMap compiledIn();
// What `--version` prints after the program's name: "1.2.0 (45)", the short version and the
// build number; "development" for a dictionary without a version.
QString versionText(const QVariantMap &info);

inline const QString identifierKey = QStringLiteral("CFBundleIdentifier");
inline const QString shortVersionKey = QStringLiteral("CFBundleShortVersionString");
inline const QString buildVersionKey = QStringLiteral("CFBundleVersion");
inline const QString feedURLKey = QStringLiteral("SUFeedURL");
inline const QString publicEDKeyKey = QStringLiteral("SUPublicEDKey");
inline const QString reportDeliveryEnabledKey = QStringLiteral("KVNReportDeliveryEnabled");
inline const QString releaseChannelKey = QStringLiteral("KVNReleaseChannel");
} // namespace BundleInfo
