// GameVersion::read on a 256,000,000-byte executable whose version record sits near the end,
// against a plain memmem scan of the same mapped bytes: the reader should cost little more
// than the unavoidable pass over the file.

#include "games/gameversion.h"
#include "ratio.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstring>

namespace {
QString executablePath;

void writeExecutable(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        std::abort();
    // Mostly noise-like content, so the search cannot skip through it trivially.
    QByteArray block(1 << 20, '\0');
    quint32 state = 12345;
    for (char &c : block) {
        state = state * 1103515245u + 12345u;
        c = char(state >> 24);
    }
    block[0] = 'M';
    block[1] = 'Z';
    const qint64 size = GameVersion::maximumExecutableSize;
    for (qint64 written = 0; written < size; written += block.size()) {
        file.write(block.constData(), std::min<qint64>(block.size(), size - written));
        block[0] = block[1] = 0;
    }
    // VS_VERSIONINFO record 4 KiB before the end.
    QByteArray record(92, '\0');
    record[0] = 92;
    record[2] = 52;
    const char key[] = "VS_VERSION_INFO";
    for (int i = 0; i < 16; ++i)
        record[6 + 2 * i] = key[i];
    const unsigned char signature[] = {0xBD, 0x04, 0xEF, 0xFE};
    std::memcpy(record.data() + 40, signature, 4);
    record[40 + 18] = 1;
    record[40 + 16] = 53;
    file.seek(size - 4096);
    file.write(record);
}

void BM_memmemBaseline(benchmark::State &state)
{
    QFile file(executablePath);
    file.open(QIODevice::ReadOnly);
    const qint64 size = file.size();
    uchar *data = file.map(0, size);
    const char key[] = "V\0S\0_\0V\0E\0R\0S\0I\0O\0N\0_\0I\0N\0F\0O\0\0";
    for (auto _ : state) {
        const void *hit = ::memmem(data, size_t(size), key, 32);
        benchmark::DoNotOptimize(hit);
    }
    file.unmap(data);
}

void BM_gameVersionRead(benchmark::State &state)
{
    for (auto _ : state) {
        const auto version = GameVersion::read(executablePath);
        if (!version)
            state.SkipWithError("no version read");
        benchmark::DoNotOptimize(version);
    }
}

BENCHMARK(BM_memmemBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gameVersionRead)->Unit(benchmark::kMillisecond);
} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/kvn-bench-XXXXXX"));
    executablePath = dir.filePath(QStringLiteral("eurotrucks2.exe"));
    writeExecutable(executablePath);
    return kvnbench::runWithRatios(argc, argv, {{"BM_gameVersionRead", "BM_memmemBaseline", 1.3}});
}
