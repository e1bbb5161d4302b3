// The server list answer: an accepted answer holds only valid servers of the two games, each
// once, in display order; one byte over the size cap is refused before parsing.
#include "fuzzcheck.h"
#include "serviceanswer.h"

#include "platform/jsondecoding.h"
#include "platform/urlerror.h"
#include "servers/serverlistmodel.h"

#include <QSet>

namespace {
std::optional<QList<TruckServer>> parsed(const QByteArray &body, UrlError::Code *refusal = nullptr)
{
    return decodedAnswer([](const QByteArray &answer) { return ServerResponse::parse(answer); }, body, refusal);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Trailing blanks are valid JSON: at the cap the answer is read, one byte more refuses it.
    QByteArray body = R"({"error":false,"response":[{"id":1,"game":"ETS2","name":"Sim 1","online":true,)"
                      R"("players":3,"queue":0,"maxplayers":10}]})";
    body.append(QByteArray(ServerResponse::maximumBodySize - body.size(), ' '));
    FUZZ_CHECK(parsed(body) && parsed(body)->size() == 1);
    body.append(' ');
    UrlError::Code refusal = UrlError::unknown;
    FUZZ_CHECK(!parsed(body, &refusal) && refusal == UrlError::dataLengthExceedsMaximum);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<QList<TruckServer>> servers = parsed(FuzzSupport::bytes(data, size));
    if (!servers)
        return 0;
    QSet<qint64> ids;
    for (qsizetype i = 0; i < servers->size(); ++i) {
        const TruckServer &server = servers->at(i);
        FUZZ_CHECK(server.game == QLatin1String("ETS2") || server.game == QLatin1String("ATS"));
        FUZZ_CHECK(server.players >= 0 && server.queue >= 0 && server.maxplayers >= 0);
        FUZZ_CHECK(!ids.contains(server.id));
        ids.insert(server.id);
        const double occupancy = server.occupancy();
        FUZZ_CHECK(occupancy >= 0 && occupancy <= 1);
        if (i > 0) {
            const TruckServer &before = servers->at(i - 1);
            FUZZ_CHECK(before.displayorder.value_or(before.id) <= server.displayorder.value_or(server.id));
        }
    }
    return 0;
}
