#include "cli/context.h"

#include "cli/modelsession.h"
#include "games/compatibilityservice.h"
#include "platform/bundleinfo.h"
#include "platform/clock.h"
#include "platform/recordcoding.h"
#include "platform/urlerror.h"
#include "servers/serverlistmodel.h"
#include "sessions/reportdelivery.h"

#include <QEventLoop>
#include <QFile>
#include <QFutureWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// The game named by --game, else the game the launcher has stored, else ETS2.
std::optional<GameKind> chosenGame(CliContext &context, QStringList &arguments, bool *bad)
{
    bool missing = false;
    const auto name = takeOption(arguments, u"--game"_s, &missing);
    if (missing) {
        *bad = true;
        return std::nullopt;
    }
    if (name) {
        const auto game = gameFromOption(*name);
        *bad = !game;
        return game;
    }
    if (const auto stored = context.defaults->string(u"game"_s))
        if (const auto game = GameKind::fromRawValue(*stored))
            return game;
    return GameKind(GameKind::ets2);
}

template <typename T>
void waitFor(const QFuture<T> &future)
{
    QFutureWatcher<T> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcher<T>::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
}

QJsonValue optionalText(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

} // namespace

int serversCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    bool bad = false;
    const std::optional<GameKind> game = chosenGame(context, rest, &bad);
    if (bad || !rest.isEmpty()) {
        context.err << "usage: korvanectl servers [--game ets2|ats] [--json]\n";
        return 2;
    }
    SystemClock clock;
    const ServiceConfiguration service = ServiceConfiguration::standard();
    ServerListModel model(*context.defaults, clock, service);
    QEventLoop loop;
    QObject::connect(&model, &ServerListModel::loadingChanged, &loop, [&] {
        if (!model.loading())
            loop.quit();
    });
    model.refresh();
    if (model.loading())
        loop.exec();
    if (model.failed()) {
        context.err << "korvanectl: the server list could not be fetched from "
                    << service.apiURL(u"/v2/servers"_s).toString() << '\n';
        return 1;
    }

    const QList<TruckServer> servers = model.servers(*game);
    if (json) {
        QJsonArray array;
        for (const TruckServer &server : servers) {
            array.append(QJsonObject{
                {u"id"_s, server.id},
                {u"game"_s, server.game},
                {u"name"_s, server.name},
                {u"online"_s, server.online},
                {u"players"_s, server.players},
                {u"queue"_s, server.queue},
                {u"maxplayers"_s, server.maxplayers},
                {u"displayorder"_s, server.displayorder ? QJsonValue(*server.displayorder) : QJsonValue()},
                {u"occupancy"_s, server.occupancy()},
                {u"favorite"_s, model.isFavorite(server.id)},
            });
        }
        context.out << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        return 0;
    }
    for (const TruckServer &server : servers) {
        context.out << (model.isFavorite(server.id) ? "* " : "  ") << server.id << '\t' << server.name << '\t'
                    << (server.online ? "online" : "offline") << '\t' << server.players << '/' << server.maxplayers;
        if (server.queue > 0)
            context.out << " (queue " << server.queue << ')';
        context.out << '\n';
    }
    return 0;
}

int favoriteCommand(CliContext &context, const QStringList &arguments)
{
    bool isNumber = false;
    const qint64 id = arguments.size() == 1 ? arguments.first().toLongLong(&isNumber) : 0;
    if (!isNumber) {
        context.err << "usage: korvanectl favorite ID\n";
        return 2;
    }
    SystemClock clock;
    ServerListModel model(*context.defaults, clock, ServiceConfiguration::standard());
    model.toggleFavorite(id);
    for (qint64 favorite : model.favoriteList())
        context.out << favorite << '\n';
    return 0;
}

int compatCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    bool bad = false;
    const std::optional<GameKind> game = chosenGame(context, rest, &bad);
    bool missing = false;
    std::optional<QString> executable = takeOption(rest, u"--exe"_s, &missing);
    if (bad || missing || !rest.isEmpty()) {
        context.err << "usage: korvanectl compat [--game ets2|ats] [--exe PATH] [--json]\n";
        return 2;
    }
    if (!executable) {
        // The executable the launch would check: that of the selected bottle and game directory.
        // Those belong to the selected game only; another game's needs its path named.
        ModelSession session(context);
        if (session.model->game() != *game) {
            context.err << "korvanectl: " << game->rawValue()
                        << " is not the selected game: name its executable with --exe, or select it first\n";
            return 2;
        }
        executable = session.model->gameExecutablePath();
    }
    CompatibilityService compatibility(ServiceConfiguration::standard());
    const QFuture<CompatibilityResult> future = compatibility.check(*game, *executable);
    waitFor(future);
    const CompatibilityResult result = future.result();
    if (json) {
        const QJsonObject object{{u"state"_s, CompatibilityResult::stateName(result.state)},
                                 {u"installed"_s, optionalText(result.installed)},
                                 {u"supported"_s, optionalText(result.supported)}};
        context.out << QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
        return 0;
    }
    context.out << "state: " << CompatibilityResult::stateName(result.state) << '\n'
                << "installed: " << result.installed.value_or(u"-"_s) << '\n'
                << "supported: " << result.supported.value_or(u"-"_s) << '\n';
    return 0;
}

int reportSendCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto idText = takeOption(rest, u"--id"_s, &missing);
    const QUuid id = idText ? QUuid::fromString(*idText) : QUuid();
    if (missing || id.isNull() || rest.size() != 1) {
        context.err << "usage: korvanectl report-send --id UUID FILE\n";
        return 2;
    }
    QFile file(rest.first());
    // Anything this large would be refused anyway; do not read it to find out.
    constexpr qint64 readLimit = 4 * ReportDelivery::maximumReportBytes;
    if (!file.open(QIODevice::ReadOnly)) {
        context.err << "korvanectl: cannot read " << file.fileName() << ": " << file.errorString() << '\n';
        return 1;
    }
    if (file.size() > readLimit) {
        context.err << "korvanectl: not sent: the report is too long\n";
        return 1;
    }
    const QString text = QString::fromUtf8(file.readAll());
    QFuture<void> delivery = ReportDelivery::send(id, text, ServiceConfiguration::standard());
    waitFor(delivery);
    try {
        delivery.waitForFinished();
    } catch (const UrlError &error) {
        context.err << "korvanectl: not sent: "
                    << (ReportDelivery::enabled(BundleInfo::main()) ? UrlError::name(error.code())
                                                                    : u"report delivery is switched off in this build"_s)
                    << '\n';
        return 1;
    } catch (const DecodingError &error) {
        context.err << "korvanectl: not sent: unreadable receipt (" << error.message() << ")\n";
        return 1;
    }
    context.out << "sent " << RecordCoding::uuidText(id) << '\n';
    return 0;
}
