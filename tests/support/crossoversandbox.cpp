#include "support/crossoversandbox.h"

#include "support/bottletree.h"
#include "support/testhome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {
void linkTo(const QString &target, const QString &linkPath)
{
    QDir().mkpath(QFileInfo(linkPath).absolutePath());
    QFile::remove(linkPath);
    if (!QFile::link(target, linkPath))
        qFatal("cannot link %s to %s", qPrintable(linkPath), qPrintable(target));
}

void writeJson(const QString &path, const QJsonObject &object)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(object).toJson()) < 0 || !file.commit())
        qFatal("cannot write %s", qPrintable(path));
}
} // namespace

CrossOverSandbox::CrossOverSandbox(const QString &root, const QString &home)
    : root(root), home(home), cxRoot(root + u"/cxoffice"_s), resources(root + u"/resources"_s),
      bottlesDirectory(home + u"/.cxoffice"_s)
{
    const QString program = simulatorProgram();
    if (!QFileInfo(program).isExecutable())
        qFatal("the simulated CrossOver is not built: %s", qPrintable(program));
    linkTo(program, winePath());
    linkTo(program, wineServerPath());
    linkTo(program, cliPath());
    BottleTree::touch(resources + u"/CLI/_internal/korvane_cli/korvane-cli.exe"_s);
    const QDir tables(QStringLiteral(KVN_SOURCE_DIR "/resources"));
    for (const QString &language : tables.entryList({u"*.lproj"_s}, QDir::Dirs))
        linkTo(tables.filePath(language), resources + u'/' + language);
    QDir().mkpath(bottlesDirectory);
    QDir().mkpath(simulatorDirectory());
}

CrossOverSandbox::CrossOverSandbox(const TestHome &testHome) : CrossOverSandbox(testHome.root(), testHome.paths.home) {}

QString CrossOverSandbox::simulatorProgram()
{
    return QStringLiteral(KVN_BINARY_DIR "/bin/simcrossover");
}

QString CrossOverSandbox::addBottle(const QString &name, std::optional<GameKind> game, bool withSteam) const
{
    const QString bottle = BottleTree::makeBottle(bottlesDirectory, name, withSteam);
    if (game)
        BottleTree::installGame(bottle, *game);
    return bottle;
}

void CrossOverSandbox::writeScenario(const QJsonObject &scenario) const
{
    writeJson(simulatorDirectory() + u"/scenario.json"_s, scenario);
}

QList<QJsonObject> CrossOverSandbox::calls(const QString &role) const
{
    QList<QJsonObject> found;
    QFile file(simulatorDirectory() + u"/calls.jsonl"_s);
    if (!file.open(QIODevice::ReadOnly))
        return found;
    while (!file.atEnd()) {
        const QJsonObject call = QJsonDocument::fromJson(file.readLine()).object();
        if (role.isEmpty() || call.value(u"role"_s).toString() == role)
            found.append(call);
    }
    return found;
}

QString CrossOverSandbox::statePath(const QString &bottle) const
{
    const QByteArray prefix = QDir::cleanPath(bottle).toUtf8();
    const QByteArray digest = QCryptographicHash::hash(prefix, QCryptographicHash::Sha1).toHex();
    return simulatorDirectory() + u"/state/"_s + QString::fromLatin1(digest) + u".json"_s;
}

QStringList CrossOverSandbox::running(const QString &bottle) const
{
    QFile file(statePath(bottle));
    QStringList paths;
    if (!file.open(QIODevice::ReadOnly))
        return paths;
    const QJsonArray processes = QJsonDocument::fromJson(file.readAll()).object().value(u"processes"_s).toArray();
    for (const QJsonValue &process : processes)
        paths.append(process.toObject().value(u"path"_s).toString());
    return paths;
}

void CrossOverSandbox::setRunning(const QString &bottle, const QStringList &windowsPaths) const
{
    QJsonArray processes;
    for (const QString &path : windowsPaths)
        processes.append(QJsonObject{{u"path"_s, path}});
    writeJson(statePath(bottle), {{u"prefix"_s, QDir::cleanPath(bottle)}, {u"processes"_s, processes}});
}

QProcessEnvironment CrossOverSandbox::environment() const
{
    QProcessEnvironment environment;
    environment.insert(u"CX_ROOT"_s, cxRoot);
    environment.insert(u"KORVANE_RESOURCES_DIR"_s, resources);
    return environment;
}

QMap<QString, QString> CrossOverSandbox::bottleEnvironment(const QString &bottle) const
{
    return {{u"HOME"_s, home},         {u"WINEPREFIX"_s, bottle},       {u"CX_BOTTLE"_s, bottle},
            {u"WINE"_s, winePath()}, {u"WINESERVER"_s, wineServerPath()}};
}
