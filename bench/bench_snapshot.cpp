// The process listing of a bottle with 10,000 processes, parsed into a snapshot, against a plain
// split of the same text into lines: what the regular expression costs over reading the lines.

#include "ratio.h"

#include "crossover/bottleprocesssnapshot.h"

#include <QString>

using namespace Qt::StringLiterals;

namespace {
QString listing()
{
    QString text = u" pid      threads  executable (all id:s are in hex)\n"_s;
    for (int index = 0; index < 10'000; ++index) {
        const QString pid = QString::number(0x20 + index * 8, 16).rightJustified(8, u'0');
        const QString marker = index % 3 ? u"\\_ "_s : QString();
        text += u' ' + pid + u' ' + QString::number(index % 40 + 1).leftJustified(8) + marker
            + u"'C:\\Program Files\\App "_s + QString::number(index % 500) + u"\\Program"_s + QString::number(index)
            + u".exe'\n"_s;
    }
    return text;
}

const QString &input()
{
    static const QString text = listing();
    return text;
}

void BM_snapshotParse(benchmark::State &state)
{
    for (auto _ : state) {
        const BottleProcessSnapshot snapshot(input());
        benchmark::DoNotOptimize(snapshot.executables.size());
    }
    state.SetBytesProcessed(state.iterations() * input().size() * qsizetype(sizeof(QChar)));
}

void BM_lineSplit(benchmark::State &state)
{
    for (auto _ : state) {
        const QStringList lines = input().split(u'\n');
        benchmark::DoNotOptimize(lines.size());
    }
    state.SetBytesProcessed(state.iterations() * input().size() * qsizetype(sizeof(QChar)));
}
} // namespace

BENCHMARK(BM_snapshotParse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_lineSplit)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    // One expression per line plus a set insertion against one scan for line breaks (about 7
    // when measured); within the target a listing of 10,000 processes parses in well under the
    // probe's own start-up time.
    return kvnbench::runWithRatios(argc, argv, {{"BM_snapshotParse", "BM_lineSplit", 20.0}});
}
