#include "cli/context.h"

#include "core/demosandbox.h"
#include "platform/bundleinfo.h"
#include "preferences/l10n.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {
struct CommandEntry {
    QLatin1StringView name;
    CliCommand run;
    QLatin1StringView usage;
};

const CommandEntry commands[] = {
    {"game-version"_L1, gameVersionCommand, "game-version PATH"_L1},
    {"text"_L1, textCommand, "text KEY [ARG...] [--lang en|de|hu]"_L1},
    {"status"_L1, statusCommand, "status [--json]"_L1},
    {"select"_L1, selectCommand, "select --bottle PATH | --game ets2|ats | --game-dir PATH | --auto-game-dir"_L1},
    {"bottle-config"_L1, bottleConfigCommand, "bottle-config [--check | --restore]"_L1},
    {"launch-script"_L1, launchScriptCommand, "launch-script --mode reuseSteam|coldStart|profileChange|recovery"_L1},
    {"settings"_L1, settingsCommand, "settings export FILE | settings import FILE [--yes]"_L1},
    {"servers"_L1, serversCommand, "servers [--game ets2|ats] [--json]"_L1},
    {"favorite"_L1, favoriteCommand, "favorite ID"_L1},
    {"compat"_L1, compatCommand, "compat [--game ets2|ats] [--exe PATH] [--json]"_L1},
    {"report-send"_L1, reportSendCommand, "report-send --id UUID FILE"_L1},
    {"redact"_L1, redactCommand, "redact [--home PATH] < INPUT"_L1},
    {"tail"_L1, tailCommand, "tail FILE [--max BYTES]"_L1},
    {"diagnostics"_L1, diagnosticsCommand, "diagnostics [-o FILE.zip] [--print]"_L1},
    {"sessions"_L1, sessionsCommand, "sessions [--json]"_L1},
    {"probe"_L1, probeCommand, "probe [--timeout SECONDS] [--json]"_L1},
    {"launch"_L1, launchCommand, "launch [--game ets2|ats] [--yes] [--json]"_L1},
    {"stop"_L1, stopCommand, "stop"_L1},
    {"steam"_L1, steamCommand, "steam"_L1},
    {"update"_L1, updateCommand,
     "update status [--json] | channel stable|beta [--yes] | check [--json] | install [--yes] | backup"
     " | notes [--lang en|de|hu]"_L1},
};

void printUsage(QTextStream &stream)
{
    stream << "usage: korvanectl [--demo] COMMAND [OPTIONS] | --version | --help\n\n"
              "  --demo  runs the command on a throwaway home with the simulated CrossOver\n\ncommands:\n";
    for (const CommandEntry &command : commands)
        stream << "  korvanectl " << command.usage << '\n';
    stream.flush();
}
} // namespace

std::optional<QString> takeOption(QStringList &arguments, const QString &name, bool *missing)
{
    const qsizetype index = arguments.indexOf(name);
    if (index < 0)
        return std::nullopt;
    if (index + 1 >= arguments.size()) {
        arguments.removeAt(index);
        if (missing)
            *missing = true;
        return std::nullopt;
    }
    const QString value = arguments.at(index + 1);
    arguments.remove(index, 2);
    return value;
}

bool takeSwitch(QStringList &arguments, const QString &name)
{
    return arguments.removeAll(name) > 0;
}

std::optional<GameKind> gameFromOption(const QString &name)
{
    if (name == "ets2"_L1)
        return GameKind(GameKind::ets2);
    if (name == "ats"_L1)
        return GameKind(GameKind::ats);
    return GameKind::fromRawValue(name);
}

bool readGameOption(CliContext &context, const std::optional<QString> &value, std::optional<GameKind> *game)
{
    *game = value ? gameFromOption(*value) : std::nullopt;
    if (!value || *game)
        return true;
    context.err << "korvanectl: unknown game \"" << *value << "\" (ets2 or ats)\n";
    return false;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"korvanectl"_s);

    QTextStream out(stdout);
    QTextStream err(stderr);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty() || arguments.first() == "--help"_L1 || arguments.first() == "-h"_L1) {
        printUsage(arguments.isEmpty() ? err : out);
        return arguments.isEmpty() ? 2 : 0;
    }
    if (arguments.first() == "--version"_L1) {
        out << "korvanectl " << BundleInfo::versionText(BundleInfo::main()) << '\n';
        return 0;
    }

    std::optional<DemoSandbox::Setup> demo;
    if (arguments.first() == "--demo"_L1) {
        arguments.removeFirst();
        QString error;
        if (!(demo = DemoSandbox::prepare(DemoSandbox::simulatorBeside(QCoreApplication::applicationDirPath()),
                                          Paths::system().resources, &error))) {
            err << "korvanectl: no demo: " << error << '\n';
            return 1;
        }
        if (arguments.isEmpty()) {
            printUsage(err);
            return 2;
        }
    }

    const QString name = arguments.takeFirst();
    for (const CommandEntry &command : commands) {
        if (name != command.name)
            continue;
        CliContext context{UserDefaults::openStandard(), Paths::system(), out, err};
        L10n::install(context.defaults.get(),
                      std::make_shared<const StringTables>(StringTables::load(context.paths.resources)));
        const int status = command.run(context, arguments);
        out.flush();
        err.flush();
        // A demo's home is thrown away with the command that used it.
        if (demo)
            QDir(demo->root).removeRecursively();
        return status;
    }
    err << "korvanectl: unknown command \"" << name << "\"\n";
    printUsage(err);
    return 2;
}
