// Reading the end of a huge log must cost what reading the end of a small one costs: the tail
// of a 2 GiB sparse file against `tail -c 131072` of the same file, and against our own tail
// of a 1 MiB file with the same last lines.

#include "ratio.h"

#include "sessions/diagnosticprivacy.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {
QByteArray lastLines()
{
    QByteArray out;
    for (int i = 0; out.size() < 256 * 1024; ++i)
        out += "00:12:" + QByteArray::number(i % 60).rightJustified(2, '0') + ".500 : [sys] frame " + QByteArray::number(i) + " rendered\n";
    return out;
}

struct Files {
    QTemporaryDir dir{QDir::tempPath() + u"/kvn-bench-tail-XXXXXX"_s};
    QString huge;
    QString small;

    Files()
    {
        const QByteArray tail = lastLines();
        huge = write(u"huge.log"_s, qint64(2) << 30, tail);
        small = write(u"small.log"_s, qint64(1) << 20, tail);
    }

    QString write(const QString &name, qint64 size, const QByteArray &tail)
    {
        const QString path = dir.filePath(name);
        QFile file(path);
        // Sparse: the size is set, only the last lines take space on disk.
        if (!file.open(QIODevice::WriteOnly) || !file.resize(size) || !file.seek(size - tail.size())
            || file.write(tail) != tail.size()) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            std::exit(1);
        }
        return path;
    }
};

Files *files = nullptr;

void BM_tailHuge(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(DiagnosticPrivacy::tail(files->huge));
}

void BM_tailSmall(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(DiagnosticPrivacy::tail(files->small));
}

void BM_systemTail(benchmark::State &state)
{
    for (auto _ : state) {
        QProcess tail;
        tail.start(u"tail"_s, {u"-c"_s, u"131072"_s, files->huge});
        if (!tail.waitForFinished(60000) || tail.exitCode() != 0) {
            state.SkipWithError("tail failed");
            break;
        }
        benchmark::DoNotOptimize(tail.readAllStandardOutput());
    }
}
} // namespace

BENCHMARK(BM_tailHuge)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_tailSmall)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_systemTail)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    Files made;
    files = &made;
    // The temporary folder, and with it the 2 GiB file, goes when `made` does.
    return kvnbench::runWithRatios(argc, argv,
                                   {{"BM_tailHuge", "BM_systemTail", 2.0}, {"BM_tailHuge", "BM_tailSmall", 1.5}});
}
