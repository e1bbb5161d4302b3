#pragma once

#include "games/gamekind.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <optional>

class TestHome;

// A CrossOver installation made of the simulated CrossOver (simulator/simcrossover.cpp): a root
// with bin/wine and bin/wineserver, bottles under ~/.cxoffice, and a resource folder whose CLI
// holds the simulated client beside the real string tables. The scenario file chooses how the
// simulated programs behave; the call log and the bottles' state tell what they were asked.
//
// Its folders are those LauncherRig uses ("cxoffice" and "resources" beside the home), so a
// model built by the rig runs against it.
class CrossOverSandbox {
public:
    CrossOverSandbox(const QString &root, const QString &home);
    explicit CrossOverSandbox(const TestHome &home);

    QString root;
    QString home;
    QString cxRoot;
    QString resources;
    QString bottlesDirectory;

    QString winePath() const { return cxRoot + QStringLiteral("/bin/wine"); }
    QString wineServerPath() const { return cxRoot + QStringLiteral("/bin/wineserver"); }
    QString cliPath() const { return resources + QStringLiteral("/CLI/korvane-cli"); }
    QString simulatorDirectory() const { return cxRoot + QStringLiteral("/simulator"); }
    // The built simulator program.
    static QString simulatorProgram();

    // A bottle ~/.cxoffice/NAME with its cxbottle.conf, Windows Steam when asked, and the
    // game's executable in Steam's library when a game is given. Returns its path.
    QString addBottle(const QString &name = QStringLiteral("Steam"), std::optional<GameKind> game = GameKind::ets2,
                      bool withSteam = true) const;

    void writeScenario(const QJsonObject &scenario) const;
    // The calls the simulated programs recorded, oldest first; only those of `role` when given.
    QList<QJsonObject> calls(const QString &role = {}) const;
    // The Windows paths of the programs recorded as running in a bottle.
    QStringList running(const QString &bottle) const;
    void setRunning(const QString &bottle, const QStringList &windowsPaths) const;

    // What a launcher run against this sandbox needs beside its home: CX_ROOT and
    // KORVANE_RESOURCES_DIR.
    QProcessEnvironment environment() const;
    // The smallest environment that selects a bottle for a Wine command.
    QMap<QString, QString> bottleEnvironment(const QString &bottle) const;

private:
    QString statePath(const QString &bottle) const;
};
