#pragma once

#include <QProcessEnvironment>
#include <QVariantMap>

// Whether this build can update itself at all, decided from the information dictionary.
namespace UpdateConfiguration {

// True only for a non-empty dictionary whose "SUFeedURL" is an https URL with a host and
// without user name or password, and whose "SUPublicEDKey" is standard base64, with nothing
// ignored, of exactly 32 bytes (an Ed25519 public key).
bool isReady(const QVariantMap &info);

// The dictionary with KORVANE_FEED_URL and KORVANE_PUBLIC_ED_KEY, where set in `environment`,
// in place of the bundle's feed and key: support and tests point a build at another feed.
QVariantMap withOverrides(QVariantMap info, const QProcessEnvironment &environment);

// The build's own release line, "development" when the dictionary names none.
QString releaseChannel(const QVariantMap &info);

} // namespace UpdateConfiguration
