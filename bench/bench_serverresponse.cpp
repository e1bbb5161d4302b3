// Parsing the service's server list: our validating parse against Qt's bare JSON parse of the
// same bytes, on an answer as large as we accept.

#include "ratio.h"

#include "servers/serverlistmodel.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// Servers as the real service describes them, with the members we do not read, until the
// answer is just under the cap; blanks fill it to the byte.
const QByteArray &realisticAnswer()
{
    static const QByteArray answer = []() -> QByteArray {
        const QByteArray head = R"({"error":false,"response":[)";
        const QByteArray tail = "]}";
        QByteArray encoded = head;
        for (int id = 1;; ++id) {
            const bool ats = id % 3 == 0;
            QJsonObject server{
                {u"id"_s, id},
                {u"game"_s, ats ? u"ATS"_s : u"ETS2"_s},
                {u"ip"_s, u"185.%1.%2.%3"_s.arg(id % 250).arg(id % 199).arg(id % 97)},
                {u"port"_s, 42000 + id % 1000},
                {u"name"_s, u"[%1] Simulation %2 — Freight Convoy"_s.arg(ats ? u"US"_s : u"EU"_s).arg(id)},
                {u"shortname"_s, u"SIM%1"_s.arg(id)},
                {u"idprefix"_s, u"%1"_s.arg(id % 90 + 10)},
                {u"online"_s, id % 11 != 0},
                {u"players"_s, (id * 37) % 4000},
                {u"queue"_s, id % 7 == 0 ? (id * 13) % 200 : 0},
                {u"maxplayers"_s, 4300},
                {u"mapid"_s, id % 5},
                {u"speedlimiter"_s, id % 2},
                {u"collisions"_s, true},
                {u"carsforplayers"_s, id % 4 == 0},
                {u"policecarsforplayers"_s, false},
                {u"afkenabled"_s, true},
                {u"event"_s, id % 50 == 0},
                {u"specialEvent"_s, false},
                {u"promods"_s, id % 9 == 0},
                {u"syncdelay"_s, 100 + id % 150},
            };
            if (id % 4 != 0)
                server.insert(u"displayorder"_s, (id * 7919) % 5000);
            const QByteArray piece = (id == 1 ? QByteArray() : QByteArray(",")) + QJsonDocument(server).toJson(QJsonDocument::Compact);
            if (encoded.size() + piece.size() + tail.size() > ServerResponse::maximumBodySize)
                break;
            encoded += piece;
        }
        encoded += tail;
        return encoded + QByteArray(ServerResponse::maximumBodySize - encoded.size(), ' ');
    }();
    return answer;
}

void BM_QJsonDocumentFromJson(benchmark::State &state)
{
    const QByteArray &answer = realisticAnswer();
    for (auto _ : state) {
        QJsonDocument document = QJsonDocument::fromJson(answer);
        benchmark::DoNotOptimize(document);
    }
    state.SetBytesProcessed(state.iterations() * answer.size());
}
BENCHMARK(BM_QJsonDocumentFromJson)->Unit(benchmark::kMillisecond);

void BM_ServerResponseParse(benchmark::State &state)
{
    const QByteArray &answer = realisticAnswer();
    for (auto _ : state) {
        QList<TruckServer> servers = ServerResponse::parse(answer);
        benchmark::DoNotOptimize(servers);
    }
    state.SetBytesProcessed(state.iterations() * answer.size());
}
BENCHMARK(BM_ServerResponseParse)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    return kvnbench::runWithRatios(argc, argv, {{"BM_ServerResponseParse", "BM_QJsonDocumentFromJson", 1.5}});
}
