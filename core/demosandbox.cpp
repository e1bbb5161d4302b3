#include "core/demosandbox.h"

#include "games/gamekind.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

bool write(const QString &path, const QByteArray &bytes, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return false;
    if (executable)
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser);
    return file.commit();
}

bool link(const QString &target, const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile::remove(path);
    return QFile::link(target, path);
}

QJsonObject print(const QString &text) { return {{u"print"_s, text}}; }
QJsonObject pause(double seconds) { return {{u"sleep"_s, seconds}}; }

// The first attempt freezes where the game is known to hang; the retry loads, plays a little and
// ends normally.
QJsonObject scenario()
{
    const QJsonArray updating{print(u"Korvane CLI 0.11.0\r\n"_s), pause(0.6), print(u"Checking mod files…\r\n"_s),
                              QJsonObject{{u"progress"_s, QJsonArray{u"Downloading  12%"_s, u"Downloading  47%"_s,
                                                                      u"Downloading  88%"_s, u"Downloading 100%"_s}}},
                              print(u"\r\nMod files are up to date.\r\n"_s), pause(0.8),
                              print(u"Starting game\r\n"_s), pause(0.8)};
    QJsonArray frozen = updating;
    frozen.append(QJsonObject{{u"freeze"_s, true}});
    QJsonArray playing = updating;
    for (const QJsonValue &step : QJsonArray{
             QJsonObject{{u"gameLog"_s, u"00:00:04.000 : [sys] Map loaded\n"_s}},
             QJsonObject{{u"clientLog"_s, u"[client] Initializing gameplay\n"_s}},
             print(u"[client] Connected to the demo server\r\n"_s), pause(6),
             print(u"[client] Session ended by the player\r\n"_s)})
        playing.append(step);
    return {{u"steam"_s, u"exits"_s},
            {u"cli"_s, QJsonArray{QJsonObject{{u"steps"_s, frozen}}, QJsonObject{{u"steps"_s, playing}}}}};
}

} // namespace

namespace DemoSandbox {

QString simulatorBeside(const QString &programDirectory)
{
    const QString candidate = programDirectory + u"/simcrossover"_s;
    return QFileInfo(candidate).isExecutable() ? candidate : QString();
}

QByteArray executableWithVersion(const QList<quint16> &version)
{
    QByteArray data(64, '\0');
    data[0] = 'M';
    data[1] = 'Z';
    const auto word = [](quint16 value) {
        const char bytes[2] = {char(value & 0xff), char(value >> 8)};
        return QByteArray(bytes, 2);
    };
    QByteArray record = word(92) + word(52) + word(0);
    for (char c : QByteArrayLiteral("VS_VERSION_INFO"))
        record += QByteArray(&c, 1) + QByteArray(1, '\0');
    record += QByteArray(4, '\0'); // the key's terminator, then padding to a four-byte boundary
    QByteArray fixed(52, '\0');
    fixed.replace(0, 4, QByteArray("\xBD\x04\xEF\xFE", 4));
    fixed.replace(16, 2, word(version.value(1)));
    fixed.replace(18, 2, word(version.value(0)));
    fixed.replace(20, 2, word(version.value(3)));
    fixed.replace(22, 2, word(version.value(2)));
    return data + record + fixed + QByteArray(32, '\0');
}

std::optional<Setup> prepare(const QString &simulator, const QString &resources, QString *error)
{
    const auto fail = [error](const QString &why) -> std::optional<Setup> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    if (simulator.isEmpty() || !QFileInfo(simulator).isExecutable())
        return fail(u"the simulated CrossOver (simcrossover) is not installed beside the launcher"_s);
    if (!QFileInfo::exists(resources + u"/en.lproj/Localizable.strings"_s))
        return fail(u"no string tables in %1"_s.arg(resources));

    QTemporaryDir made(QDir::tempPath() + u"/korvane-demo-XXXXXX"_s);
    if (!made.isValid())
        return fail(made.errorString());
    made.setAutoRemove(false);
    Setup setup;
    setup.root = made.path();
    setup.home = setup.root + u"/home"_s;
    const QString cxRoot = setup.root + u"/cxoffice"_s;
    const QString demoResources = setup.root + u"/resources"_s;

    bool ok = link(simulator, cxRoot + u"/bin/wine"_s) && link(simulator, cxRoot + u"/bin/wineserver"_s)
        && link(simulator, demoResources + u"/CLI/korvane-cli"_s)
        && write(demoResources + u"/CLI/_internal/korvane_cli/korvane-cli.exe"_s, "MZ");
    const QDir tables(resources);
    for (const QString &entry : tables.entryList({u"*.lproj"_s, u"CHANGELOG*"_s}, QDir::Dirs | QDir::Files))
        ok = ok && link(tables.absoluteFilePath(entry), demoResources + u'/' + entry);

    setup.bottle = setup.home + u"/.cxoffice/Steam"_s;
    ok = ok && write(setup.bottle + u"/cxbottle.conf"_s, "[EnvironmentVariables]\n")
        && write(setup.bottle + u"/drive_c/Program Files (x86)/Steam/steam.exe"_s, "MZ");
    for (GameKind game : GameKind::allCases())
        ok = ok
            && write(setup.bottle + u"/drive_c/Program Files (x86)/Steam/steamapps/common/"_s + game.rawValue()
                         + u"/bin/win_x64/"_s + game.executable(),
                     executableWithVersion({1, 53, 3, 14}));
    ok = ok && write(cxRoot + u"/simulator/scenario.json"_s, QJsonDocument(scenario()).toJson());
    if (!ok)
        return fail(u"cannot lay out the demo in %1"_s.arg(setup.root));

    qputenv("HOME", setup.home.toLocal8Bit());
    qunsetenv("XDG_CONFIG_HOME");
    qunsetenv("XDG_DATA_HOME");
    qputenv("CX_ROOT", cxRoot.toLocal8Bit());
    qputenv("KORVANE_RESOURCES_DIR", demoResources.toLocal8Bit());
    // Nothing listens there: the demo asks no real service, so the version check answers
    // "unknown" and the launcher asks whether to launch anyway, as it would offline.
    qputenv("KORVANE_API_URL", "https://127.0.0.1:9");
    qputenv("KORVANE_REPORT_URL", "https://127.0.0.1:9/korvane/api/reports");
    qputenv(activeVariable, setup.root.toLocal8Bit());
    return setup;
}

std::optional<QString> activeRoot()
{
    const QString root = qEnvironmentVariable(activeVariable);
    return root.isEmpty() ? std::nullopt : std::optional<QString>(root);
}

LaunchTimings timings()
{
    LaunchTimings timings;
    timings.statusPoll = 500ms;
    timings.watchdogPoll = 1000ms;
    timings.freezeAge = 4000ms;
    timings.bottleRestartSeconds = 2;
    return timings;
}

} // namespace DemoSandbox
