// Memory under load: the peak resident size of the launcher's code facing a console flood, a
// huge log, a server answer at its cap and one byte over, and a bottle of 100,000 files. Each
// case runs in a child process of its own, so that one case's peak does not hide another's,
// and is printed against the same child doing nothing but start up. The figures that must not
// grow with the input are checked: the console and the log cost what their bounds allow, a
// 2 GiB log costs what a 200 MiB one costs, an answer over the cap is turned away unparsed.

#include "core/bottlediscovery.h"
#include "core/consolelog.h"
#include "crossover/freezewatch.h"
#include "platform/urlerror.h"
#include "servers/serverlistmodel.h"
#include "sessions/diagnosticprivacy.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 MiB = 1024 * 1024;

// The process's peak resident size so far, in KiB.
long peakKiB()
{
    FILE *status = std::fopen("/proc/self/status", "r");
    if (!status)
        return -1;
    char line[256];
    long peak = -1;
    while (std::fgets(line, sizeof line, status))
        if (std::strncmp(line, "VmHWM:", 6) == 0)
            peak = std::strtol(line + 6, nullptr, 10);
    std::fclose(status);
    return peak;
}

[[noreturn]] void die(const QString &why)
{
    std::fprintf(stderr, "bench_limits: %s\n", qPrintable(why));
    std::exit(2);
}

// The last lines of a game log as the game writes them: frames, a home path, the markers.
QByteArray logEnd()
{
    QByteArray out;
    for (int i = 0; out.size() < 512 * 1024; ++i)
        out += "00:12:" + QByteArray::number(i % 60).rightJustified(2, '0') + ".500 : [sys] frame " + QByteArray::number(i)
               + " rendered from /home/player/.cxoffice/Steam/drive_c/users/player/Documents\n";
    return out + "00:13:00.000 : Set profile finished\n00:13:01.000 : Enforcing 'floor_reflection' 0\n";
}

// Sparse: the size is set, only the end takes space on disk.
void writeLog(const QString &path, qint64 size)
{
    const QByteArray end = logEnd();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(size) || !file.seek(size - end.size()) || file.write(end) != end.size())
        die(u"cannot write "_s + path);
}

// Servers until the answer is as long as `size`, blanks filling it to the byte.
QByteArray serverAnswer(qint64 size)
{
    const QByteArray tail = "]}";
    QByteArray answer = R"({"error":false,"response":[)";
    for (int id = 1;; ++id) {
        const QByteArray piece = (id == 1 ? "" : ",") + QByteArray(R"({"id":)") + QByteArray::number(id)
                                 + R"(,"game":"ETS2","ip":"10.0.0.1","port":42000,"name":"Simulation )" + QByteArray::number(id)
                                 + R"(","shortname":"SIM","online":true,"players":12,"queue":0,"maxplayers":4300})";
        if (answer.size() + piece.size() + tail.size() > std::min(size, ServerResponse::maximumBodySize))
            break;
        answer += piece;
    }
    answer += tail;
    return answer + QByteArray(size - answer.size(), ' ');
}

// One bottle whose Windows tree holds `count` files, 100 to a folder.
void makeBottle(const QString &root, int count)
{
    const QString bottle = root + u"/Steam"_s;
    QDir().mkpath(bottle);
    QFile marker(bottle + u'/' + BottleDiscovery::markerName);
    if (!marker.open(QIODevice::WriteOnly))
        die(u"cannot write "_s + marker.fileName());
    marker.write("[Bottle]\n");
    marker.close();
    for (int folder = 0; folder * 100 < count; ++folder) {
        const QByteArray directory =
            QFile::encodeName(bottle + u"/drive_c/windows/system32/folder%1"_s.arg(folder));
        QDir().mkpath(QFile::decodeName(directory));
        for (int file = 0; file < 100 && folder * 100 + file < count; ++file) {
            const QByteArray path = directory + "/file" + QByteArray::number(file) + ".dll";
            const int descriptor = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            if (descriptor < 0)
                die(QFile::decodeName(path));
            ::close(descriptor);
        }
    }
}

// What a case does in its child, over the shared files below `data`.
const std::map<std::string, std::function<void(const QString &data)>> &cases()
{
    static const std::map<std::string, std::function<void(const QString &)>> all{
        {"start-up", [](const QString &) {}},
        {"console flood, 200 M characters", [](const QString &) {
             ConsoleLog log;
             QString line = u"00:12:00.500 : [sys] frame rendered, streaming sector data "_s.repeated(64) + u'\n';
             for (qint64 appended = 0; appended < 200 * MiB; appended += line.size()) {
                 line[0] = QChar(u'0' + int(appended % 10));
                 log.append(line);
             }
             if (log.text().size() > ConsoleLog::limit)
                 die(u"the console kept %1 characters"_s.arg(log.text().size()));
         }},
        {"log of 200 MiB", [](const QString &data) {
             const QString path = data + u"/200m.log"_s;
             const QString text = DiagnosticPrivacy::redact(DiagnosticPrivacy::tail(path), u"/home/player"_s);
             const auto found = FreezeWatch::find(path, 0, FreezeWatch::gameMarkers + QStringList{FreezeWatch::hangMarker});
             if (!found || !found->value(0) || !found->value(3) || text.contains(u"/home/player"_s))
                 die(u"the 200 MiB log was not read"_s);
         }},
        {"log of 2 GiB", [](const QString &data) {
             const QString path = data + u"/2g.log"_s;
             const QString text = DiagnosticPrivacy::redact(DiagnosticPrivacy::tail(path), u"/home/player"_s);
             const auto found = FreezeWatch::find(path, 0, FreezeWatch::gameMarkers + QStringList{FreezeWatch::hangMarker});
             if (!found || !found->value(0) || !found->value(3) || text.contains(u"/home/player"_s))
                 die(u"the 2 GiB log was not read"_s);
         }},
        {"server answer at the cap", [](const QString &) {
             const QList<TruckServer> servers = ServerResponse::parse(serverAnswer(ServerResponse::maximumBodySize));
             if (servers.size() < 1000)
                 die(u"the answer at the cap held %1 servers"_s.arg(servers.size()));
         }},
        {"server answer one byte over", [](const QString &) {
             try {
                 ServerResponse::parse(serverAnswer(ServerResponse::maximumBodySize + 1));
                 die(u"the answer over the cap was accepted"_s);
             } catch (const UrlError &error) {
                 if (error.code() != UrlError::dataLengthExceedsMaximum)
                     die(u"the answer over the cap failed otherwise"_s);
             }
         }},
        {"bottle of 100,000 files", [](const QString &data) {
             if (BottleDiscovery::find(data + u"/bottles"_s).size() != 1)
                 die(u"the bottle was not found"_s);
         }},
    };
    return all;
}

// Runs one case in a fresh copy of this program; its peak in KiB.
long peakOfChild(const std::string &name, const QString &data)
{
    const std::string command = "'" + QFile::encodeName(QCoreApplication::applicationFilePath()).toStdString()
                                + "' --case '" + name + "' '" + QFile::encodeName(data).toStdString() + "'";
    FILE *child = ::popen(command.c_str(), "r");
    if (!child)
        die(u"cannot run a case"_s);
    long peak = -1;
    if (std::fscanf(child, "%ld", &peak) != 1)
        peak = -1;
    if (::pclose(child) != 0 || peak <= 0)
        die(QString::fromStdString("the case \"" + name + "\" failed"));
    return peak;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    // In the child: run one case, print the peak.
    if (argc == 4 && std::strcmp(argv[1], "--case") == 0) {
        const auto found = cases().find(argv[2]);
        if (found == cases().end())
            die(u"no case "_s + QString::fromLocal8Bit(argv[2]));
        found->second(QFile::decodeName(argv[3]));
        std::printf("%ld\n", peakKiB());
        return 0;
    }
    // Other arguments (the benchmark library's, which `./kvn bench` passes to every program)
    // do not apply here.

    QTemporaryDir data(QDir::tempPath() + u"/kvn-bench-limits-XXXXXX"_s);
    if (!data.isValid())
        die(u"no temporary folder"_s);
    writeLog(data.filePath(u"200m.log"_s), 200 * MiB);
    writeLog(data.filePath(u"2g.log"_s), 2048 * MiB);
    makeBottle(data.filePath(u"bottles"_s), 100'000);

    const long baseline = peakOfChild("start-up", data.path());
    std::printf("peak resident size, start-up alone: %.1f MiB\n", baseline / 1024.0);
    std::map<std::string, long> peaks;
    for (const auto &[name, run] : cases()) {
        if (name == "start-up")
            continue;
        peaks[name] = peakOfChild(name, data.path());
        std::printf("peak %-36s %7.1f MiB, %5.2f x start-up (+%.1f MiB)\n", (name + ':').c_str(),
                    peaks[name] / 1024.0, double(peaks[name]) / baseline, (peaks[name] - baseline) / 1024.0);
    }

    // The bounds. The console keeps at most ConsoleLog::limit UTF-16 characters, copied a few
    // times while it trims; the log readers work in chunks; the answer at the cap is held with
    // its parsed document; one over the cap is only ever the bytes themselves.
    struct Bound {
        std::string name;
        double mebibytesOverStartUp;
    };
    const Bound bounds[] = {{"console flood, 200 M characters", 16},   {"log of 200 MiB", 16},
                            {"log of 2 GiB", 16},             {"server answer at the cap", 64},
                            {"server answer one byte over", 8}, {"bottle of 100,000 files", 32}};
    int status = 0;
    for (const Bound &bound : bounds) {
        const double over = (peaks[bound.name] - baseline) / 1024.0;
        if (over > bound.mebibytesOverStartUp) {
            std::printf("OVER: %s grew %.1f MiB over start-up (bound %.0f MiB)\n", bound.name.c_str(), over,
                        bound.mebibytesOverStartUp);
            status = 1;
        }
    }
    const double growth = double(peaks["log of 2 GiB"]) / peaks["log of 200 MiB"];
    std::printf("ratio peak log of 2 GiB / log of 200 MiB: %.3f (target <= 1.05) %s\n", growth,
                growth <= 1.05 ? "ok" : "OVER TARGET");
    if (growth > 1.05)
        status = 1;
    return status;
}
