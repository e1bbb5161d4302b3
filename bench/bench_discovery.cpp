// Bottle discovery over bottles of realistic size (a Windows tree and a Steam library each),
// against find(1) walking the same tree for the same file name in the same run.

#include "bench/ratio.h"
#include "core/bottlediscovery.h"

#include <QDir>
#include <QTemporaryDir>

#include <cstdio>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

constexpr int bottleCount = 3;
constexpr int filesPerBottle = 100'000;
constexpr int filesPerDirectory = 40;

std::string root;

void makeFile(const std::string &path)
{
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        std::perror(path.c_str());
        std::exit(1);
    }
    ::close(descriptor);
}

void makeDirectory(const std::string &path)
{
    QDir().mkpath(QString::fromStdString(path));
}

// One bottle: its marker, Steam, and the rest of its files spread over nested folders of a
// Windows directory and a game, forty to a folder, as a real drive_c holds them.
void makeBottle(const std::string &bottle)
{
    makeDirectory(bottle);
    makeFile(bottle + "/cxbottle.conf");
    const std::string steam = bottle + "/drive_c/Program Files (x86)/Steam";
    makeDirectory(steam);
    makeFile(steam + "/steam.exe");
    int made = 2;
    int folder = 0;
    while (made < filesPerBottle) {
        const std::string area = folder % 2 == 0 ? bottle + "/drive_c/windows/system32"
                                                 : steam + "/steamapps/common/Euro Truck Simulator 2/def";
        const std::string directory = area + "/group" + std::to_string(folder % 50) + "/part" + std::to_string(folder);
        makeDirectory(directory);
        for (int file = 0; file < filesPerDirectory && made < filesPerBottle; ++file, ++made)
            makeFile(directory + "/file" + std::to_string(file) + ".dll");
        ++folder;
    }
}

void discovery(benchmark::State &state)
{
    const QString rootPath = QString::fromStdString(root);
    for (auto _ : state) {
        const QList<Bottle> bottles = BottleDiscovery::find(rootPath);
        if (bottles.size() != bottleCount)
            state.SkipWithError("wrong number of bottles found");
        benchmark::DoNotOptimize(bottles.constData());
    }
}

void findBaseline(benchmark::State &state)
{
    const char *arguments[] = {"find", root.c_str(), "-name", "cxbottle.conf", nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (::posix_spawnp(&child, "find", &actions, nullptr, const_cast<char **>(arguments), environ) != 0
            || ::waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            state.SkipWithError("find failed");
    }
    posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK(findBaseline)->Name("find")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(discovery)->Name("discovery")->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir directory(QDir::tempPath() + QStringLiteral("/kvn-bench-bottles-XXXXXX"));
    if (!directory.isValid())
        return 1;
    root = directory.path().toStdString() + "/Bottles";
    std::printf("generating %d bottles of %d files...\n", bottleCount, filesPerBottle);
    std::fflush(stdout);
    for (int bottle = 0; bottle < bottleCount; ++bottle)
        makeBottle(root + "/Bottle " + std::to_string(bottle));
    // The tree is removed with `directory` when main returns.
    return kvnbench::runWithRatios(argc, argv, {{"discovery/real_time", "find/real_time", 1.2}});
}
