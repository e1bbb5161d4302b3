#pragma once

#include <QMap>
#include <QString>

// The one graphics and synchronisation setup the launcher runs the game with (D3DMetal for
// Direct3D 11, MSync), and the editor that writes it into a bottle's cxbottle.conf.
namespace CompatibilityProfile {

inline const QString graphicsBackend = QStringLiteral("d3dmetal");
inline const QString graphicsName = QStringLiteral("D3DMetal");
inline const QString msync = QStringLiteral("1");

// CX_GRAPHICS_BACKEND and WINEMSYNC: what the editor writes and what the launcher's own Wine
// commands get. Ordered by key, the order in which new settings are added.
const QMap<QString, QString> &environment();

struct ConfigurationUpdate {
    QString text;
    bool changed = false;
};

// Why a cxbottle.conf was left alone: the editor will not guess which of two sections or two
// settings is meant, nor rewrite a setting line it does not understand.
enum class ConfigurationError { ambiguousSection, ambiguousSetting, malformedSetting };

// The file's text with the profile's settings in its [EnvironmentVariables] section. Touches
// only the values of the profile's keys and the lines it adds; every other byte, the line
// ending style and the final line break stay. Throws ConfigurationError.
ConfigurationUpdate updatingBottleConfiguration(const QString &text);

// The pending-restart marker of a bottle in the launcher's data directory. Every spelling of
// the same bottle directory (a "." component, a symbolic link) gives the same marker.
QString restartMarker(const QString &directory, const QString &bottle);

// The bottle directory as one text per directory: absolute, without "." or "..", symbolic links
// resolved as far as the path exists.
QString canonicalBottlePath(const QString &bottle);

} // namespace CompatibilityProfile
