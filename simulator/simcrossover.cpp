// simcrossover: a stand-in for CrossOver's wine and wineserver and for the bundled Korvane
// client, for the tests and the demo mode. One program; it plays the part of the name it was
// started as (the sandbox makes symbolic links named after the parts):
//
//   wine        `wine winedbg --command "info process"` prints a process listing in the layout
//               of Wine's debugger, made from the bottle's state; `wine PATH.exe [ARGS]` records
//               that Windows program as running in the bottle; anything else is recorded only.
//   wineserver  `wineserver -k` ends everything recorded as running in the bottle (and the
//               simulated processes that stayed) and empties the bottle's state; `-k0` only
//               answers whether anything still runs there.
//   korvane-cli plays the multiplayer client: prints, writes the game's and the client's logs
//               into ~/Documents, hangs or freezes, and ends with a chosen exit code.
//
// Where its files are. The launcher runs Wine commands with a from-scratch environment, so the
// simulator finds everything from how it was called: wine and wineserver from their own path
// ($CX_ROOT/bin/wine gives $CX_ROOT), korvane-cli from $WINE (which the launch script always
// sets; $CX_ROOT/bin/wine again). Below $CX_ROOT/simulator:
//
//   scenario.json   the behaviour (below); absent or {} means a well-behaved CrossOver
//   calls.jsonl     one JSON object a line per call: "role", "argv", "cwd", "pid", "ppid",
//                   "pgid", "sid", "env" (the whole environment), "stdin", "stdout" and
//                   "stderr" (each "null", "tty", "pipe", "file", "other" or "closed"),
//                   "terminal" ({"rows", "columns"} of
//                   the terminal on standard output, else standard input; null without one),
//                   "controllingTerminal" (whether /dev/tty opens), "time" (ms since the epoch)
//   state/*.json    per bottle (its WINEPREFIX, or ~/.wine): {"prefix": PATH, "processes":
//                   [{"path": WINDOWS PATH, "pid": UNIX PID of a simulated process that stays}]}
//
// scenario.json, every member optional:
//
//   "winedbg": "listing"          the listing (default)
//              "failure"          the listing, then exit status 1
//              "garbage"          an error message of Wine instead of a listing, exit status 0
//              "headerOnly"       the header line and no process
//              "notUtf8"          a listing with a Latin-1 byte in a program's name
//              "hang"             never ends (until a signal)
//              "hangIgnoringTerm" never ends and ignores SIGTERM
//   "winedbgOutput": TEXT         printed verbatim instead of the listing made from the state
//   "steam": "exits" | "stays"    `wine ...steam.exe` returns at once (default) or stays
//                                 running until the bottle is stopped
//   "wineserverExitCode": N       exit status of `wineserver -k`; by default 1 when nothing ran
//                                 in the bottle and 0 otherwise, as Debian's Wine 8 answers
//   "wineserverSurvivesKill": BOOL `wineserver -k0` (is a server running?) answers yes even
//                                 after a kill; by default it answers from the bottle's state
//   "cli": RUN or [RUN, ...]      the client; with a list the n-th call plays the n-th entry (the
//                                 last one again once the list is used up), for retries
//
// A RUN: {"steps": [STEP, ...], "exitCode": N (default 0), "ignoreTerm": BOOL (default false)}.
// Its steps, in order:
//
//   {"print": TEXT}         TEXT to standard output as it stands
//   {"progress": [T, ...]}  each T followed by a carriage return, the way progress bars redraw
//   {"flood": N}            N numbered lines of filler
//   {"sleep": SECONDS}
//   {"gameLog": TEXT}       appends to ~/Documents/<game>/game.log.txt
//   {"clientLog": TEXT}     appends to ~/Documents/<ETS2KVN|ATSKVN>/logs/client_<time>_<pid>.txt
//   {"run": WINDOWS PATH}   records that program as running in the bottle ($WINEPREFIX)
//   {"freeze": true}        the game's log ends at "Enforcing 'floor_reflection", then hangs
//   {"hang": true}          hangs (until a signal)
//
// The game is American Truck Simulator when the last argument is "atskvn", else Euro Truck
// Simulator 2.

#include <QByteArray>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QString>
#include <QStringList>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

extern char **environ;

using namespace Qt::StringLiterals;

namespace {

QString simulatorRoot; // $CX_ROOT/simulator

[[noreturn]] void fail(const QString &message)
{
    std::fprintf(stderr, "simcrossover: %s\n", qPrintable(message));
    std::_Exit(127);
}

void writeAll(int fd, const QByteArray &bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return; // the reader went away; the simulator goes on as a real client would
        done += count;
    }
}

void sleepSeconds(double seconds)
{
    if (seconds <= 0)
        return;
    timespec remaining{time_t(seconds), long((seconds - double(time_t(seconds))) * 1e9)};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {}
}

[[noreturn]] void hang()
{
    for (;;)
        ::pause();
}

// An exclusive lock on a file beside the data, held while the object lives: the simulated
// processes of one test may run at the same time.
class Lock {
public:
    explicit Lock(const QString &path)
    {
        m_fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (m_fd >= 0)
            while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {}
    }
    ~Lock()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

private:
    int m_fd = -1;
};

QJsonObject readJson(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        fail(u"%1 is not a JSON object: %2"_s.arg(path, error.errorString()));
    return document.object();
}

QJsonObject scenario()
{
    static const QJsonObject loaded = readJson(simulatorRoot + u"/scenario.json"_s);
    return loaded;
}

// --- What the call looked like -------------------------------------------------------------

QString describeStream(int fd)
{
    struct stat info{};
    if (::fstat(fd, &info) != 0)
        return u"closed"_s;
    if (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode))
        return u"pipe"_s;
    if (S_ISREG(info.st_mode))
        return u"file"_s;
    if (S_ISCHR(info.st_mode)) {
        if (::isatty(fd))
            return u"tty"_s;
        struct stat null{};
        if (::stat("/dev/null", &null) == 0 && null.st_rdev == info.st_rdev)
            return u"null"_s;
    }
    return u"other"_s;
}

QJsonValue terminalSize()
{
    for (int fd : {STDOUT_FILENO, STDIN_FILENO}) {
        winsize window{};
        if (::ioctl(fd, TIOCGWINSZ, &window) == 0)
            return QJsonObject{{u"rows"_s, int(window.ws_row)}, {u"columns"_s, int(window.ws_col)}};
    }
    return QJsonValue::Null;
}

void recordCall(const QString &role, int argc, char **argv)
{
    QJsonArray arguments;
    for (int index = 0; index < argc; ++index)
        arguments.append(QString::fromLocal8Bit(argv[index]));
    QJsonObject environment;
    for (char **entry = environ; *entry; ++entry) {
        const QString text = QString::fromLocal8Bit(*entry);
        const qsizetype equals = text.indexOf(u'=');
        if (equals > 0)
            environment.insert(text.left(equals), text.mid(equals + 1));
    }
    const int tty = ::open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (tty >= 0)
        ::close(tty);
    const QJsonObject call{
        {u"role"_s, role},
        {u"argv"_s, arguments},
        {u"cwd"_s, QDir::currentPath()},
        {u"pid"_s, qint64(::getpid())},
        {u"ppid"_s, qint64(::getppid())},
        {u"pgid"_s, qint64(::getpgrp())},
        {u"sid"_s, qint64(::getsid(0))},
        {u"env"_s, environment},
        {u"stdin"_s, describeStream(STDIN_FILENO)},
        {u"stdout"_s, describeStream(STDOUT_FILENO)},
        {u"stderr"_s, describeStream(STDERR_FILENO)},
        {u"terminal"_s, terminalSize()},
        {u"controllingTerminal"_s, tty >= 0},
        {u"time"_s, QDateTime::currentMSecsSinceEpoch()},
    };
    const QByteArray line = QJsonDocument(call).toJson(QJsonDocument::Compact) + '\n';
    const Lock lock(simulatorRoot + u"/calls.lock"_s);
    const int fd = ::open(QFile::encodeName(simulatorRoot + u"/calls.jsonl"_s).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        fail(u"cannot write the call log in %1"_s.arg(simulatorRoot));
    writeAll(fd, line);
    ::close(fd);
}

// --- The bottle's state ----------------------------------------------------------------------

QString bottlePrefix()
{
    const QString prefix = qEnvironmentVariable("WINEPREFIX");
    return prefix.isEmpty() ? qEnvironmentVariable("HOME") + u"/.wine"_s : QDir::cleanPath(prefix);
}

QString statePath(const QString &prefix)
{
    const QByteArray digest = QCryptographicHash::hash(prefix.toUtf8(), QCryptographicHash::Sha1).toHex();
    return simulatorRoot + u"/state/"_s + QString::fromLatin1(digest) + u".json"_s;
}

QJsonArray readProcesses(const QString &prefix)
{
    return readJson(statePath(prefix)).value(u"processes"_s).toArray();
}

void writeProcesses(const QString &prefix, const QJsonArray &processes)
{
    QDir().mkpath(simulatorRoot + u"/state"_s);
    QSaveFile file(statePath(prefix));
    if (!file.open(QIODevice::WriteOnly))
        fail(u"cannot write the state of %1"_s.arg(prefix));
    file.write(QJsonDocument(QJsonObject{{u"prefix"_s, prefix}, {u"processes"_s, processes}}).toJson());
    if (!file.commit())
        fail(u"cannot write the state of %1"_s.arg(prefix));
}

void addProcess(const QString &windowsPath, qint64 pid = 0)
{
    const QString prefix = bottlePrefix();
    const Lock lock(simulatorRoot + u"/state.lock"_s);
    QJsonArray processes = readProcesses(prefix);
    QJsonObject process{{u"path"_s, windowsPath}};
    if (pid > 0)
        process.insert(u"pid"_s, pid);
    processes.append(process);
    writeProcesses(prefix, processes);
}

// A Unix path inside the bottle's drive_c as Windows names it; any other path as Wine's Z:.
QString windowsPath(const QString &path)
{
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    const QString driveC = bottlePrefix() + u"/drive_c/"_s;
    QString windows;
    if (path.size() > 1 && path.at(1) == u':')
        windows = path;
    else if (absolute.startsWith(driveC))
        windows = u"C:/"_s + absolute.mid(driveC.size());
    else
        windows = u"Z:"_s + absolute;
    return windows.replace(u'/', u'\\');
}

// --- wine ------------------------------------------------------------------------------------

QByteArray listing(const QJsonArray &processes)
{
    QByteArray text = " pid      threads  executable (all id:s are in hex)\n";
    auto line = [&text](char mark, int pid, int threads, bool child, const QString &name) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%c%08x %-8d %s", mark, pid, threads, child ? "\\_ " : "");
        text += QByteArray(buffer) + '\'' + name.toUtf8() + "'\n";
    };
    line(' ', 0x20, 1, false, u"start.exe"_s);
    line('=', 0x28, 1, true, u"winedbg.exe"_s);
    line(' ', 0x48, 2, false, u"explorer.exe"_s);
    line(' ', 0x40, 12, false, u"services.exe"_s);
    line(' ', 0xec, 7, true, u"rpcss.exe"_s);
    line(' ', 0xd4, 3, true, u"svchost.exe"_s);
    line(' ', 0xb4, 4, true, u"plugplay.exe"_s);
    line(' ', 0x80, 7, true, u"winedevice.exe"_s);
    int pid = 0x100;
    for (const QJsonValue &process : processes) {
        line(' ', pid, 3, false, process.toObject().value(u"path"_s).toString());
        pid += 8;
    }
    return text;
}

int debugger()
{
    const QString behaviour = scenario().value(u"winedbg"_s).toString(u"listing"_s);
    if (behaviour == "hang"_L1)
        hang();
    if (behaviour == "hangIgnoringTerm"_L1) {
        std::signal(SIGTERM, SIG_IGN);
        hang();
    }
    if (behaviour == "garbage"_L1) {
        writeAll(STDOUT_FILENO, "wine: could not load kernel32.dll, status c0000135\n");
        return 0;
    }
    if (behaviour == "notUtf8"_L1) {
        writeAll(STDOUT_FILENO, listing({}) + " 00000100 1        'C:\\Spiele\\caf\xe9.exe'\n");
        return 0;
    }
    if (behaviour == "headerOnly"_L1) {
        writeAll(STDOUT_FILENO, " pid      threads  executable (all id:s are in hex)\n");
        return 0;
    }
    const QJsonValue verbatim = scenario().value(u"winedbgOutput"_s);
    writeAll(STDOUT_FILENO,
             verbatim.isString() ? verbatim.toString().toUtf8() : listing(readProcesses(bottlePrefix())));
    return behaviour == "failure"_L1 ? 1 : 0;
}

int wine(int argc, char **argv)
{
    if (argc < 2)
        return 0;
    const QString program = QString::fromLocal8Bit(argv[1]);
    if (program == "winedbg"_L1)
        return debugger();
    if (!program.endsWith(u".exe"_s, Qt::CaseInsensitive))
        return 0;
    const bool stays = scenario().value(u"steam"_s).toString() == "stays"_L1
        && program.endsWith(u"steam.exe"_s, Qt::CaseInsensitive);
    addProcess(windowsPath(program), stays ? qint64(::getpid()) : 0);
    if (stays)
        hang();
    return 0;
}

// --- wineserver ------------------------------------------------------------------------------

int wineServer(int argc, char **argv)
{
    bool kill = false;
    bool probeOnly = false; // -k0 sends no signal: it only asks whether a server runs
    for (int index = 1; index < argc; ++index) {
        const QByteArray argument(argv[index]);
        kill = kill || argument.startsWith("-k");
        probeOnly = probeOnly || argument == "-k0";
    }
    if (!kill)
        return 0;
    const QString prefix = bottlePrefix();
    if (probeOnly) {
        if (scenario().value(u"wineserverSurvivesKill"_s).toBool())
            return 0;
        const Lock lock(simulatorRoot + u"/state.lock"_s);
        return readProcesses(prefix).isEmpty() ? 1 : 0;
    }
    QJsonArray processes;
    {
        const Lock lock(simulatorRoot + u"/state.lock"_s);
        processes = readProcesses(prefix);
        writeProcesses(prefix, {});
    }
    for (const QJsonValue &process : std::as_const(processes))
        if (const qint64 pid = process.toObject().value(u"pid"_s).toInteger(); pid > 0)
            ::kill(pid_t(pid), SIGKILL);
    const QJsonValue chosen = scenario().value(u"wineserverExitCode"_s);
    if (chosen.isDouble())
        return chosen.toInt();
    return processes.isEmpty() ? 1 : 0;
}

// --- korvane-cli -----------------------------------------------------------------------------

struct Game {
    QString folder; // in Documents
    QString multiplayerFolder;
};

Game gameOf(int argc, char **argv)
{
    const bool ats = argc > 1 && QByteArray(argv[argc - 1]) == "atskvn";
    return ats ? Game{u"American Truck Simulator"_s, u"ATSKVN"_s} : Game{u"Euro Truck Simulator 2"_s, u"ETS2KVN"_s};
}

void appendTo(const QString &path, const QString &text)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::Append))
        fail(u"cannot write %1"_s.arg(path));
    file.write(text.toUtf8());
}

// How many times the client ran before this call, from the call log (this call is in it).
qsizetype earlierClientRuns()
{
    QFile file(simulatorRoot + u"/calls.jsonl"_s);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    qsizetype runs = 0;
    while (!file.atEnd())
        if (QJsonDocument::fromJson(file.readLine()).object().value(u"role"_s).toString() == "korvane-cli"_L1)
            ++runs;
    return std::max<qsizetype>(runs - 1, 0);
}

int client(int argc, char **argv)
{
    const QJsonValue chosen = scenario().value(u"cli"_s);
    QJsonObject run = chosen.toObject();
    if (chosen.isArray() && !chosen.toArray().isEmpty()) {
        const QJsonArray runs = chosen.toArray();
        run = runs.at(std::min(earlierClientRuns(), runs.size() - 1)).toObject();
    }
    if (run.value(u"ignoreTerm"_s).toBool())
        std::signal(SIGTERM, SIG_IGN);

    const Game game = gameOf(argc, argv);
    const QString documents = qEnvironmentVariable("HOME") + u"/Documents/"_s;
    const QString gameLog = documents + game.folder + u"/game.log.txt"_s;
    const QString clientLog = documents + game.multiplayerFolder + u"/logs/client_"_s
        + QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HH-mm-ss"_s) + u'_' + QString::number(::getpid())
        + u".txt"_s;

    for (const QJsonValue &value : run.value(u"steps"_s).toArray()) {
        const QJsonObject step = value.toObject();
        if (step.contains(u"print"_s))
            writeAll(STDOUT_FILENO, step.value(u"print"_s).toString().toUtf8());
        if (step.contains(u"progress"_s))
            for (const QJsonValue &text : step.value(u"progress"_s).toArray())
                writeAll(STDOUT_FILENO, text.toString().toUtf8() + '\r');
        if (step.contains(u"flood"_s)) {
            const int lines = step.value(u"flood"_s).toInt();
            QByteArray chunk;
            for (int line = 1; line <= lines; ++line) {
                chunk += "[flood] console line " + QByteArray::number(line) + " of " + QByteArray::number(lines)
                    + ": the quick brown fox jumps over the lazy dog\n";
                if (chunk.size() >= 65536 || line == lines) {
                    writeAll(STDOUT_FILENO, chunk);
                    chunk.clear();
                }
            }
        }
        if (step.contains(u"sleep"_s))
            sleepSeconds(step.value(u"sleep"_s).toDouble());
        if (step.contains(u"gameLog"_s))
            appendTo(gameLog, step.value(u"gameLog"_s).toString());
        if (step.contains(u"clientLog"_s))
            appendTo(clientLog, step.value(u"clientLog"_s).toString());
        if (step.contains(u"run"_s))
            addProcess(step.value(u"run"_s).toString());
        if (step.value(u"freeze"_s).toBool()) {
            appendTo(gameLog, u"00:00:05.120 : [sys] Loading map\n"
                              u"00:00:06.480 : [gfx] Enforcing 'floor_reflection' to 'off'\n"_s);
            hang();
        }
        if (step.value(u"hang"_s).toBool())
            hang();
    }
    return run.value(u"exitCode"_s).toInt(0);
}

QString parentOfParent(const QString &path)
{
    return QFileInfo(QFileInfo(path).absolutePath()).absolutePath();
}

// The program's path as it was started, also when it was found through PATH.
QString invokedPath(const char *argv0)
{
    const QString given = QString::fromLocal8Bit(argv0);
    if (given.contains(u'/'))
        return QDir::cleanPath(QFileInfo(given).absoluteFilePath());
    for (const QString &directory : qEnvironmentVariable("PATH").split(u':', Qt::SkipEmptyParts))
        if (QFileInfo candidate(directory + u'/' + given); candidate.isExecutable())
            return QDir::cleanPath(candidate.absoluteFilePath());
    return given;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 1)
        return 127;
    const QString invoked = invokedPath(argv[0]);
    const QString role = QFileInfo(invoked).fileName();
    QString crossOverRoot;
    if (role == "wine"_L1 || role == "wineserver"_L1) {
        crossOverRoot = parentOfParent(invoked);
    } else if (role == "korvane-cli"_L1) {
        const QString wine = qEnvironmentVariable("WINE");
        if (wine.isEmpty())
            fail(u"korvane-cli needs $WINE, the path of CrossOver's wine"_s);
        crossOverRoot = parentOfParent(wine);
    } else {
        fail(u"start me as wine, wineserver or korvane-cli (through a link of that name), not as %1"_s.arg(role));
    }
    simulatorRoot = crossOverRoot + u"/simulator"_s;
    QDir().mkpath(simulatorRoot);

    recordCall(role, argc, argv);
    if (role == "wine"_L1)
        return wine(argc, argv);
    if (role == "wineserver"_L1)
        return wineServer(argc, argv);
    return client(argc, argv);
}
