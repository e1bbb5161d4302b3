#include "cli/context.h"
#include "cli/modelsession.h"

#include "core/consolelog.h"
#include "core/launchermodel.h"
#include "sessions/sessionactivity.h"

#include <QEventLoop>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <functional>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The write end of the socket pair that carries a caught signal to the event loop; a handler may
// do little more than write(2).
int signalSocket = -1;

void forwardSignal(int signal)
{
    const int saved = errno;
    const char byte = char(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalSocket, &byte, 1);
    errno = saved;
}

// SIGINT and SIGTERM become a call of `stop` on the event loop, so that Ctrl-C ends a launch the
// way the stop button does: the bottle is stopped and the session closes as cancelled. The
// previous handlers come back when the object goes.
class StopOnSignals {
public:
    explicit StopOnSignals(std::function<void()> stop)
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, m_sockets) != 0)
            return;
        signalSocket = m_sockets[1];
        m_notifier = std::make_unique<QSocketNotifier>(m_sockets[0], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this, stop] {
            char bytes[16];
            while (::read(m_sockets[0], bytes, sizeof bytes) > 0) {}
            // One stop is enough; a second signal while it settles changes nothing.
            if (!m_stopped) {
                m_stopped = true;
                stop();
            }
        });
        struct sigaction action = {};
        action.sa_handler = forwardSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, &m_previousInterrupt);
        ::sigaction(SIGTERM, &action, &m_previousTerminate);
        m_installed = true;
    }

    ~StopOnSignals()
    {
        if (m_installed) {
            ::sigaction(SIGINT, &m_previousInterrupt, nullptr);
            ::sigaction(SIGTERM, &m_previousTerminate, nullptr);
        }
        m_notifier.reset();
        signalSocket = -1;
        for (int socket : m_sockets)
            if (socket >= 0)
                ::close(socket);
    }

    StopOnSignals(const StopOnSignals &) = delete;
    StopOnSignals &operator=(const StopOnSignals &) = delete;

    bool stopped() const { return m_stopped; }

private:
    int m_sockets[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> m_notifier;
    struct sigaction m_previousInterrupt = {};
    struct sigaction m_previousTerminate = {};
    bool m_installed = false;
    bool m_stopped = false;
};

// Everything the console log gets while the object lives, as it arrives: appended pieces as they
// stand, and the whole new text when it is replaced (a launch starts with its header).
class ConsoleEcho {
public:
    ConsoleEcho(ConsoleLog &console, QTextStream &stream) : m_console(console), m_stream(stream)
    {
        m_appended = QObject::connect(&console, &ConsoleLog::appended, [this](const QString &piece, qsizetype) {
            m_stream << piece;
            m_stream.flush();
        });
        m_replaced = QObject::connect(&console, &ConsoleLog::replaced, [this] {
            m_stream << m_console.text();
            m_stream.flush();
        });
    }
    ~ConsoleEcho()
    {
        QObject::disconnect(m_appended);
        QObject::disconnect(m_replaced);
    }

    ConsoleEcho(const ConsoleEcho &) = delete;
    ConsoleEcho &operator=(const ConsoleEcho &) = delete;

private:
    ConsoleLog &m_console;
    QTextStream &m_stream;
    QMetaObject::Connection m_appended;
    QMetaObject::Connection m_replaced;
};

int exitCodeFor(LaunchStage stage)
{
    switch (stage) {
    case LaunchStage::finished:
        return 0;
    case LaunchStage::cancelled:
        return 2;
    default:
        return 1;
    }
}

// Why a session ended other than finished, in one line for the terminal.
QString endingLine(LauncherModel &model, const PlaySession &session, bool declined, bool interrupted)
{
    if (declined) {
        const std::optional<CompatibilityResult> result = model.compatibility();
        const auto text = [](const std::optional<QString> &version) { return version.value_or(u"unknown"_s); };
        return model.statusText() + u" (installed: "_s + text(result ? result->installed : std::nullopt)
            + u", supported: "_s + text(result ? result->supported : std::nullopt)
            + u"). Not launched; run again with --yes to launch anyway."_s;
    }
    if (interrupted)
        return u"the launch was stopped."_s;
    if (session.stage == LaunchStage::cancelled)
        return model.statusText();
    QString line = model.issue() ? model.issue()->title() : model.statusText();
    const std::optional<FailureReport> failure = model.activity().failure();
    if (failure && !failure->reason.isEmpty())
        line += u" ("_s + failure->reason + u')';
    return line;
}

// Runs a command of the window that acts on the bottle at once and prints the console text it
// added: on stdout when the status line became `success`, else on stderr. Tells which.
bool runBottleCommand(CliContext &context, LauncherModel &model, void (LauncherModel::*command)(),
                      const QString &success)
{
    QString console;
    QTextStream stream(&console);
    {
        const ConsoleEcho echo(model.console(), stream);
        (model.*command)();
    }
    stream.flush();
    const bool succeeded = model.statusMessage().key == success;
    (succeeded ? context.out : context.err) << console;
    return succeeded;
}

} // namespace

int launchCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto game = takeOption(rest, u"--game"_s, &missing);
    const bool yes = takeSwitch(rest, u"--yes"_s);
    const bool json = takeSwitch(rest, u"--json"_s);
    if (missing || !rest.isEmpty()) {
        context.err << "usage: korvanectl launch [--game ets2|ats] [--yes] [--json]\n";
        return 2;
    }
    std::optional<GameKind> kind;
    if (!readGameOption(context, game, &kind))
        return 2;

    ModelSession session(context);
    LauncherModel &model = *session.model;
    SessionActivity &activity = model.activity();
    if (kind)
        model.setGame(*kind);

    QEventLoop loop;
    bool ended = false;
    bool declined = false;
    QObject::connect(&activity, &SessionActivity::currentChanged, &loop, [&] {
        if (activity.current())
            return;
        ended = true;
        loop.quit();
    });
    // Answered once the version check has finished setting its state, as a user's click would be.
    QObject::connect(&model, &LauncherModel::pendingCompatibilityChanged, &loop, [&] {
        if (!model.pendingCompatibility())
            return;
        QMetaObject::invokeMethod(
            &loop,
            [&] {
                if (!model.pendingCompatibility())
                    return;
                if (yes) {
                    model.confirmCompatibilityLaunch();
                } else {
                    declined = true;
                    model.cancelCompatibilityLaunch(true);
                }
            },
            Qt::QueuedConnection);
    });
    const StopOnSignals stopper([&] { model.stopBottle(); });
    const ConsoleEcho echo(model.console(), context.out);

    model.launchKorvane();
    if (!ended && activity.current())
        loop.exec();

    const std::optional<PlaySession> last = activity.latest();
    if (!ended || !last) {
        context.err << "korvanectl: the launch did not start: " << model.statusText() << '\n';
        return 1;
    }
    if (last->stage != LaunchStage::finished)
        context.err << "korvanectl: " << endingLine(model, *last, declined, stopper.stopped()) << '\n';
    if (json) {
        if (const std::optional<QByteArray> record = last->toJson())
            context.out << QString::fromUtf8(*record) << '\n';
    }
    return exitCodeFor(last->stage);
}

int stopCommand(CliContext &context, const QStringList &arguments)
{
    if (!arguments.isEmpty()) {
        context.err << "usage: korvanectl stop\n";
        return 2;
    }
    ModelSession session(context);
    LauncherModel &model = *session.model;
    if (!requireBottle(context, model))
        return 1;
    if (runBottleCommand(context, model, &LauncherModel::stopBottle, u"Leállítás elküldve"_s))
        return 0;
    if (!LauncherModel::isExecutableFile(model.wineServerPath()))
        context.err << "korvanectl: CrossOver's wineserver was not found at " << model.wineServerPath()
                    << "; nothing was stopped\n";
    return 1;
}

int steamCommand(CliContext &context, const QStringList &arguments)
{
    if (!arguments.isEmpty()) {
        context.err << "usage: korvanectl steam\n";
        return 2;
    }
    ModelSession session(context);
    return runBottleCommand(context, *session.model, &LauncherModel::openSteam, u"Steam elindítva"_s) ? 0 : 1;
}
