#pragma once

#include "games/gamekind.h"
#include "platform/crossover.h"
#include "platform/paths.h"
#include "preferences/settingstransfer.h"

#include <QList>
#include <QString>
#include <QVariantMap>

// What the crash-safety test and its writer child agree on: where a test home keeps its
// files, and what each generation of a file holds, so that the test can tell one whole
// generation from another and from a torn write.
namespace CrashWriting {

// The layout TestHome and LauncherRig give a temporary home.
struct Home {
    explicit Home(const QString &root)
        : root(root)
    {
        paths = Paths::underHome(root + QStringLiteral("/home"));
        paths.applicationSupport = paths.home + QStringLiteral("/Library/Application Support");
        paths.temporary = root + QStringLiteral("/tmp");
        paths.resources = QStringLiteral(KVN_SOURCE_DIR "/resources");
        crossOver = {root + QStringLiteral("/cxoffice/bin/wine"), root + QStringLiteral("/cxoffice/bin/wineserver"),
                     paths.home + QStringLiteral("/.cxoffice")};
    }
    QString defaultsPath() const { return root + QStringLiteral("/defaults.json"); }
    QString exportPath() const { return root + QStringLiteral("/export/Korvane-Settings.json"); }
    QString importPath(qint64 generation) const
    {
        return root + QStringLiteral("/import-%1.json").arg(generation % 2);
    }
    QString archivePath() const { return root + QStringLiteral("/archive/report.zip"); }

    QString root;
    Paths paths;
    CrossOverLocation crossOver;
};

inline const QString recordKey = QStringLiteral("crash.record");

// Sizes vary from a few bytes to 300 KB, so a kill lands in short and long writes alike.
inline QByteArray payload(qint64 generation)
{
    const qsizetype size = qsizetype((generation * 7919) % 300000);
    return QByteArray::number(generation).leftJustified(size, char('a' + generation % 26));
}

inline QVariantMap record(qint64 generation)
{
    return {{QStringLiteral("generation"), generation}, {QStringLiteral("payload"), payload(generation)}};
}

inline QList<qint64> favorites(qint64 generation)
{
    return {generation % SettingsTransfer::maximumFavorites + 1};
}

inline QString report(qint64 generation)
{
    return QStringLiteral("report %1\n").arg(generation) + QString::fromLatin1(payload(generation));
}

// The two documents the import alternates between.
inline SettingsTransfer importDocument(qint64 generation)
{
    SettingsTransfer document;
    document.language = generation % 2 ? QStringLiteral("de") : QStringLiteral("hu");
    document.game = (generation % 2 ? GameKind(GameKind::ats) : GameKind(GameKind::ets2)).rawValue();
    for (const GameKind game : GameKind::allCases()) {
        GameProfile profile;
        profile.skipIntro = generation % 2;
        profile.hide = !(generation % 2);
        document.profiles.insert(game.rawValue(), profile);
    }
    document.favorites = generation % 2 ? QList<qint64>{2, 4, 6} : QList<qint64>{1, 3};
    return document;
}

} // namespace CrashWriting
