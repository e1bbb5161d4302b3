#pragma once

#include <QString>

// Orders version strings the way Sparkle does on macOS, so that the Linux updater and Sparkle
// offer the same item of one appcast.
namespace SparkleVersion {

// Negative when `a` is older than `b`, zero when they are the same version, positive when newer.
int compare(const QString &a, const QString &b);

} // namespace SparkleVersion
