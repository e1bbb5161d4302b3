#include "cli/context.h"
#include "cli/modelsession.h"

#include "core/bottlediscovery.h"
#include "core/launchermodel.h"
#include "core/settingstransferflow.h"
#include "platform/clock.h"
#include "platform/filepanels.h"
#include "preferences/languagesettings.h"
#include "servers/serverlistmodel.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// Without --yes korvanectl only shows what an import would do: the paths the document names
// that are missing here. Nothing is asked on the terminal, so scripts never hang on a prompt.
class CommandLineConfirmation final : public ConfirmationDialog {
public:
    CommandLineConfirmation(bool yes, QTextStream &out) : m_yes(yes), m_out(out) {}
    const SettingsTransferFlow *flow = nullptr;

    bool confirm(const QString &, const QString &, const QString &, const QString &) override
    {
        const QStringList missing = flow ? flow->missingPaths() : QStringList();
        if (!missing.isEmpty()) {
            m_out << L("transfer.missing") << '\n';
            for (const QString &path : missing)
                m_out << "  " << path << '\n';
        }
        if (!m_yes)
            m_out << "The file is valid. Nothing was changed; run again with --yes to apply it.\n";
        return m_yes;
    }

private:
    bool m_yes;
    QTextStream &m_out;
};

QJsonObject statusJson(const LauncherModel &model)
{
    QJsonArray checks;
    for (const EnvironmentCheck &check : model.checks())
        checks.append(QJsonObject{{u"title"_s, check.title}, {u"detail"_s, check.detail}, {u"ok"_s, check.ok}});
    QJsonArray bottles;
    for (const Bottle &bottle : model.bottles())
        bottles.append(bottle.path);
    const bool ready = model.isReady();
    return {{u"checks"_s, checks},
            {u"isReady"_s, ready},
            {u"status"_s, QJsonObject{{u"key"_s, model.statusMessage().key}, {u"text"_s, model.statusText()}}},
            {u"missingRequirement"_s, ready ? QJsonValue(QJsonValue::Null) : QJsonValue(model.missingRequirement().rawValue())},
            {u"bottles"_s, bottles},
            {u"selectedBottlePath"_s, model.selectedBottlePath()},
            {u"game"_s, model.game().rawValue()},
            {u"gameDirectory"_s, model.gameDirectory()},
            {u"manualGameDirectory"_s, model.manualGameDirectory()},
            {u"bottlesDirectory"_s, model.bottlesDirectory()},
            {u"winePath"_s, model.winePath()}};
}

void printStatusTable(const LauncherModel &model, QTextStream &out)
{
    const QList<EnvironmentCheck> checks = model.checks();
    qsizetype width = 0;
    for (const EnvironmentCheck &check : checks)
        width = std::max(width, check.title.size());
    for (const EnvironmentCheck &check : checks)
        out << (check.ok ? "[ok] " : "[--] ") << check.title.leftJustified(width + 2) << check.detail << '\n';
    out << '\n' << model.statusText() << '\n';
    if (!model.isReady())
        out << "missing: " << model.missingRequirement().title() << '\n';
    out << '\n' << "game:           " << model.game().rawValue() << '\n';
    out << "bottle:         " << (model.selectedBottlePath().isEmpty() ? u"-"_s : model.selectedBottlePath()) << '\n';
    out << "game directory: " << model.gameDirectory() << (model.manualGameDirectory() ? " (chosen by hand)" : "") << '\n';
    out << "bottles in " << model.bottlesDirectory() << ':' << (model.bottles().isEmpty() ? " none" : "") << '\n';
    for (const Bottle &bottle : model.bottles())
        out << (bottle.path == model.selectedBottlePath() ? "  * " : "    ") << bottle.path << '\n';
}

QString absolutePath(const QString &path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

} // namespace

int statusCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    if (!rest.isEmpty()) {
        context.err << "usage: korvanectl status [--json]\n";
        return 2;
    }
    ModelSession session(context);
    if (json)
        context.out << QJsonDocument(statusJson(*session.model)).toJson(QJsonDocument::Indented);
    else
        printStatusTable(*session.model, context.out);
    return 0;
}

int selectCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto bottle = takeOption(rest, u"--bottle"_s, &missing);
    const auto game = takeOption(rest, u"--game"_s, &missing);
    const auto gameDirectory = takeOption(rest, u"--game-dir"_s, &missing);
    const bool automatic = takeSwitch(rest, u"--auto-game-dir"_s);
    if (missing || !rest.isEmpty() || (!bottle && !game && !gameDirectory && !automatic)
        || (gameDirectory && automatic)) {
        context.err << "usage: korvanectl select --bottle PATH | --game ets2|ats | --game-dir PATH | --auto-game-dir\n";
        return 2;
    }
    std::optional<GameKind> kind;
    if (!readGameOption(context, game, &kind))
        return 2;
    if (gameDirectory && !QFileInfo(*gameDirectory).isDir()) {
        context.err << "korvanectl: " << *gameDirectory << " is not a directory\n";
        return 1;
    }

    ModelSession session(context);
    LauncherModel &model = *session.model;
    // The game first: it brings its own bottle and directory, which the other options then override.
    if (kind)
        model.setGame(*kind);
    if (bottle) {
        const QString path = absolutePath(*bottle);
        session.panels.path = path;
        model.chooseBottle();
        if (model.selectedBottlePath() != path) {
            context.err << L("HIBA: A kiválasztott mappa nem CrossOver-palack.\n");
            return 1;
        }
    }
    if (gameDirectory) {
        session.panels.path = absolutePath(*gameDirectory);
        model.chooseGameDirectory();
    }
    if (automatic)
        model.resetGameDirectory();
    printStatusTable(model, context.out);
    return 0;
}

int settingsCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool yes = takeSwitch(rest, u"--yes"_s);
    const QString usage = u"usage: korvanectl settings export FILE | korvanectl settings import FILE [--yes]\n"_s;
    if (rest.size() != 2 || (rest.first() != "export"_L1 && rest.first() != "import"_L1)
        || (yes && rest.first() == "export"_L1)) {
        context.err << usage;
        return 2;
    }
    const bool exporting = rest.first() == "export"_L1;

    ModelSession session(context);
    SystemClock clock;
    ServerListModel servers(*context.defaults, clock, ServiceConfiguration::standard());
    LanguageSettings language(*context.defaults);
    CommandLineConfirmation confirmation(yes, context.out);
    SettingsTransferFlow flow(*session.model, servers, language, session.panels, confirmation);
    confirmation.flow = &flow;
    session.panels.path = absolutePath(rest.at(1));

    const std::optional<LocalizedMessage> result = exporting ? flow.exportSettings() : flow.importSettings();
    if (!result) {
        if (!flow.isAvailable()) {
            context.err << "korvanectl: settings cannot be transferred while a game, an update or the setup is in progress\n";
            return 1;
        }
        return 0; // an import without --yes stops at the question
    }
    const bool failed = result->key == "transfer.failed"_L1;
    (failed ? context.err : context.out) << result->text() << '\n';
    if (failed && !flow.lastError().isEmpty())
        context.err << flow.lastError() << '\n';
    if (!exporting && !failed)
        context.out << "backup: " << flow.lastBackupPath() << '\n';
    return failed ? 1 : 0;
}
