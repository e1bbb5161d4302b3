#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The version of an installed game, read from the product version of the Windows
// executable's version resource.
class GameVersion {
public:
    explicit GameVersion(QList<quint16> parts) : m_parts(std::move(parts)) {}

    const QList<quint16> &parts() const { return m_parts; }
    // Dotted decimal, e.g. 1.53.3.14.
    QString text() const;

    // Larger executables are not read at all.
    static constexpr qint64 maximumExecutableSize = 256'000'000;

    // Nothing on any failure: missing, empty, oversized or unreadable file, no or conflicting
    // version records. Blocking; run it off the main thread.
    static std::optional<GameVersion> read(const QString &executablePath);
    // Scans the raw bytes of a PE file for VS_VERSIONINFO records without walking its headers.
    static std::optional<GameVersion> parse(QByteArrayView data);
    // The validated pieces of a supported-version text as the service publishes it
    // ("1.53.3.14s", "1.53", "1.*.3"), or nothing when the text is not acceptable.
    static std::optional<QStringList> supportedParts(const QString &supported);

    // True or false, or nothing when this version or the supported text cannot be compared.
    std::optional<bool> matches(const QString &supported) const;

    bool operator==(const GameVersion &) const = default;

private:
    QList<quint16> m_parts;
};
