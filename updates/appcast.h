#pragma once

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <exception>
#include <optional>

// One downloadable release of a Sparkle appcast: the item and the enclosure meant for this
// operating system.
struct AppcastItem {
    QString title;
    QString version;      // sparkle:version, what versions are compared by
    QString shortVersion; // sparkle:shortVersionString, what the user is shown (may be empty)
    QString channel;      // sparkle:channel; empty for the default channel every user sees
    QUrl url;             // https only
    qint64 length = 0;    // bytes of the archive
    QByteArray edSignature; // sparkle:edSignature, decoded: 64 bytes

    // The version the user reads: the short version string, or the version when there is none.
    QString displayVersion() const { return shortVersion.isEmpty() ? version : shortVersion; }
};

class AppcastError : public std::exception {
public:
    enum Code {
        tooLarge,  // over the size cap; not parsed at all
        malformed, // not well-formed XML, or it declares a document type
        notAFeed,  // well-formed XML, but not an RSS document with a channel
    };
    explicit AppcastError(Code code, QString detail = {}) : m_code(code), m_detail(std::move(detail)) {}
    Code code() const { return m_code; }
    QString detail() const { return m_detail; }
    const char *what() const noexcept override;

private:
    Code m_code;
    QString m_detail;
};

namespace Appcast {

constexpr qint64 maximumFeedSize = 1024 * 1024;
inline const QString sparkleNamespace = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

// The operating system whose enclosures this build installs: "linux" here, "macos" on macOS.
// An enclosure without sparkle:os is Sparkle's, so it counts as "macos".
QString currentOperatingSystem();

// The items of a feed that name a complete release for `operatingSystem`. An item without a
// version, or whose enclosure lacks an https url, a positive length or a 64-byte signature, is
// left out; the feed as a whole is refused only when it is too large or not an RSS channel.
// Throws AppcastError.
QList<AppcastItem> parse(const QByteArray &xml, const QString &operatingSystem = currentOperatingSystem());

// The newest item on the default channel or one of `allowedChannels` that is newer than
// `runningVersion`; the first of equal versions in feed order.
std::optional<AppcastItem> best(const QList<AppcastItem> &items, const QSet<QString> &allowedChannels,
                                const QString &runningVersion);

} // namespace Appcast
