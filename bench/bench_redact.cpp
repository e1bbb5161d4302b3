// Redaction of three log tails, the most a diagnostics text holds, against the cheapest pass
// over the same text: splitting it into lines.

#include "ratio.h"

#include "sessions/diagnosticprivacy.h"

#include <QString>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace {
const QString home = u"/Users/anna"_s;

// Lines of the kinds the game, the client and the launcher write, most of them harmless.
QString realisticLog()
{
    const QStringList lines = {
        u"00:00:01.016 : [sys] Initializing game systems"_s,
        u"00:00:02.100 : Loading profile from /Users/anna/Documents/Euro Truck Simulator 2/profiles/4A61"_s,
        u"[2026-03-01 20:00:05] INFO  Connecting to 192.168.1.20:27015"_s,
        u"[2026-03-01 20:00:05] INFO  Resolved api host 2001:db8:85a3::8a2e:370:7334"_s,
        u"[2026-03-01 20:00:06] INFO  Fetching https://api.korvane.example/v2/servers?lang=en"_s,
        u"[2026-03-01 20:00:07] DEBUG Owner 76561198012345678 joined server 12"_s,
        u"[2026-03-01 20:00:07] DEBUG session 123e4567-e89b-12d3-a456-426614174000 started"_s,
        u"Updating mod files (12/48) korvane_core.scs"_s,
        u"Wine: loading C:\\Program Files (x86)\\Steam\\steamclient64.dll"_s,
        u"0024:fixme:ntdll:NtQuerySystemInformation info_class SYSTEM_PERFORMANCE_INFORMATION"_s,
        u"Starting game with arguments -nointro -64bit"_s,
        u"[MP] Player with id 42 connected, ping 38 ms"_s,
        u"contact support at help@korvane.example if this persists"_s,
        u"Mounted /Volumes/Games/SteamLibrary/steamapps/common"_s,
    };
    QString text;
    for (int i = 0; text.toUtf8().size() < 3 * 131072; ++i)
        text += lines.at(i % lines.size()) + u'\n';
    return text;
}

const QString &sample()
{
    static const QString text = realisticLog();
    return text;
}

void BM_redact(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(DiagnosticPrivacy::redact(sample(), home));
    state.SetBytesProcessed(state.iterations() * sample().toUtf8().size());
}

void BM_lineSplit(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(sample().split(u'\n'));
    state.SetBytesProcessed(state.iterations() * sample().toUtf8().size());
}
} // namespace

BENCHMARK(BM_redact)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_lineSplit)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // Eight expressions per line against one scan for line breaks: the ratio shows what the
    // privacy costs; a diagnostics text must still redact in a small fraction of a second.
    return kvnbench::runWithRatios(argc, argv, {{"BM_redact", "BM_lineSplit", 400.0}});
}
