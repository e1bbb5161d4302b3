#include "platform/terminalprocess.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <vector>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// When the child has ended, what it wrote last may still be on its way through the pty; the
// master reports end of file once every copy of the terminal is closed. A process the script
// left behind may keep a copy open for as long as it lives, so the wait for that end of file
// is bounded.
constexpr std::chrono::milliseconds drainLimit{2000};
// One read burst per wake-up, so that a child flooding the terminal cannot starve the event loop.
constexpr qsizetype readBurst = 256 * 1024;

// What the child reports through the close-on-exec pipe when it cannot become zsh.
struct ChildFailure {
    int step; // 0: chdir, 1: exec
    int error;
};

void closeDescriptor(int &fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// The notifier goes first: it must never report on a descriptor number that is closed and
// perhaps already reused.
void closeWatched(QSocketNotifier *&watch, int &fd)
{
    if (watch) {
        watch->setEnabled(false);
        delete watch;
        watch = nullptr;
    }
    closeDescriptor(fd);
}

int openExitDescriptor(pid_t pid)
{
#ifdef SYS_pidfd_open
    return int(::syscall(SYS_pidfd_open, pid, 0));
#else
    Q_UNUSED(pid);
    return -1;
#endif
}

class LinuxTerminalProcess final : public TerminalProcess {
public:
    explicit LinuxTerminalProcess(QObject *parent) : TerminalProcess(parent)
    {
        m_exitPoll.setInterval(20);
        connect(&m_exitPoll, &QTimer::timeout, this, &LinuxTerminalProcess::collectExit);
        m_drainTimer.setSingleShot(true);
        connect(&m_drainTimer, &QTimer::timeout, this, [this] {
            readTerminal();
            closeTerminal();
            finishIfDone();
        });
        m_killTimer.setSingleShot(true);
        connect(&m_killTimer, &QTimer::timeout, this, [this] { signalGroup(SIGKILL); });
    }

    ~LinuxTerminalProcess() override
    {
        // Abandoning a child must not leave it running or as a zombie: the group is killed and
        // the child reaped here (quick after SIGKILL).
        if (m_pid > 0 && !m_reaped) {
            ::kill(-m_pid, SIGKILL);
            int status = 0;
            while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {}
        } else if (m_killTimer.isActive()) {
            signalGroup(SIGKILL);
        }
        closeTerminal();
        closeExitWatch();
    }

    bool start(const QString &scriptPath, const QMap<QString, QString> &environment,
               const QString &workingDirectory) override
    {
        if (m_pid != 0) {
            m_error = u"The terminal process was already started"_s;
            return false;
        }
        // Everything the child needs is prepared before the fork: between fork and exec only
        // async-signal-safe calls are allowed, and allocating is not one of them.
        const QByteArray shell = QByteArrayLiteral("/bin/zsh");
        const QByteArray script = QFile::encodeName(scriptPath);
        const QByteArray directory = QFile::encodeName(workingDirectory);
        std::vector<QByteArray> entries;
        for (auto entry = environment.cbegin(); entry != environment.cend(); ++entry)
            entries.push_back(entry.key().toLocal8Bit() + '=' + entry.value().toLocal8Bit());
        std::vector<char *> envp;
        for (QByteArray &entry : entries)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        char *argv[] = {const_cast<char *>("zsh"), const_cast<char *>(script.constData()), nullptr};

        int nullInput = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        int report[2] = {-1, -1};
        if (nullInput < 0 || ::pipe2(report, O_CLOEXEC) != 0) {
            m_error = QString::fromLocal8Bit(std::strerror(errno));
            closeDescriptor(nullInput);
            return false;
        }
        winsize window{};
        window.ws_row = rows;
        window.ws_col = columns;
        int master = -1;
        const pid_t pid = ::forkpty(&master, nullptr, nullptr, &window);
        if (pid == 0)
            runChild(nullInput, report[1], directory.constData(), shell.constData(), argv, envp.data());
        const int forkError = errno;
        closeDescriptor(nullInput);
        closeDescriptor(report[1]);
        if (pid < 0) {
            closeDescriptor(report[0]);
            m_error = u"Could not open a terminal: %1"_s.arg(QString::fromLocal8Bit(std::strerror(forkError)));
            return false;
        }

        // forkpty hands over the master without close-on-exec; any other child started from
        // now on would otherwise hold it and the end of file would never come.
        ::fcntl(master, F_SETFD, FD_CLOEXEC);
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);

        ChildFailure failure{};
        ssize_t got;
        while ((got = ::read(report[0], &failure, sizeof failure)) < 0 && errno == EINTR) {}
        closeDescriptor(report[0]);
        if (got == ssize_t(sizeof failure)) {
            int status = 0;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
            ::close(master);
            const QString reason = QString::fromLocal8Bit(std::strerror(failure.error));
            m_error = failure.step == 0 ? u"Cannot enter %1: %2"_s.arg(workingDirectory, reason)
                                        : u"Cannot run /bin/zsh: %1"_s.arg(reason);
            return false;
        }

        m_pid = pid;
        m_master = master;
        m_outputWatch = new QSocketNotifier(qintptr(m_master), QSocketNotifier::Read, this);
        connect(m_outputWatch, &QSocketNotifier::activated, this, [this] { readTerminal(); });
        m_exitDescriptor = openExitDescriptor(pid);
        if (m_exitDescriptor >= 0) {
            ::fcntl(m_exitDescriptor, F_SETFD, FD_CLOEXEC);
            m_exitWatch = new QSocketNotifier(qintptr(m_exitDescriptor), QSocketNotifier::Read, this);
            connect(m_exitWatch, &QSocketNotifier::activated, this, &LinuxTerminalProcess::collectExit);
        } else {
            m_exitPoll.start(); // kernels before 5.3 have no process descriptors
        }
        return true;
    }

    QString errorString() const override { return m_error; }
    qint64 processId() const override { return m_pid; }
    bool isRunning() const override { return m_pid > 0 && !m_finishedSent; }

    void signalGroup(int signal) override
    {
        // The group's id stays reserved while any member lives, so this reaches only our
        // processes; once the group is known to be empty nothing is sent any more.
        if (m_pid <= 0 || m_groupGone)
            return;
        if (::kill(-m_pid, signal) != 0 && errno == ESRCH && m_reaped)
            m_groupGone = true;
    }

    void stop(std::chrono::milliseconds grace) override
    {
        signalGroup(SIGTERM);
        if (!m_groupGone)
            m_killTimer.start(grace);
    }

    bool waitForFinished(std::chrono::milliseconds timeout) override
    {
        if (m_pid <= 0)
            return false;
        const QDeadlineTimer deadline(timeout);
        while (!m_finishedSent) {
            if (deadline.hasExpired())
                return false;
            pollfd watched[2] = {{m_master, POLLIN, 0}, {m_exitDescriptor, POLLIN, 0}};
            // Without a process descriptor the exit is noticed by asking every few milliseconds.
            const qint64 slice = m_exitDescriptor >= 0 ? deadline.remainingTime() : 10;
            const qint64 drainLeft = m_reaped ? m_drainDeadline.remainingTime() : -1;
            qint64 wait = slice < 0 ? 1000 : std::min<qint64>(slice, 1000);
            if (drainLeft >= 0)
                wait = std::min(wait, drainLeft);
            ::poll(watched, 2, int(wait));
            readTerminal();
            collectExit();
            if (m_reaped && m_master >= 0 && m_drainDeadline.hasExpired()) {
                closeTerminal();
                finishIfDone();
            }
        }
        return true;
    }

private:
    [[noreturn]] static void runChild(int nullInput, int report, const char *directory, const char *shell,
                                      char *const argv[], char *const envp[])
    {
        // Standard input is empty: every read gives end of file at once, so a client that asks
        // a question fails instead of waiting forever for an answer nobody can type. The pty
        // stays the controlling terminal (/dev/tty) and receives the output.
        ::dup2(nullInput, STDIN_FILENO);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        // Ignored signals stay ignored across exec; the launcher's choices are not the child's.
        for (int signal = 1; signal < NSIG; ++signal)
            if (signal != SIGKILL && signal != SIGSTOP)
                ::signal(signal, SIG_DFL);
        ChildFailure failure{0, 0};
        if (::chdir(directory) == 0) {
            ::execve(shell, argv, envp);
            failure.step = 1;
        }
        failure.error = errno;
        [[maybe_unused]] const ssize_t written = ::write(report, &failure, sizeof failure);
        ::_exit(127);
    }

    void readTerminal()
    {
        if (m_master < 0)
            return;
        QByteArray bytes;
        char buffer[16384];
        bool endOfFile = false;
        while (bytes.size() < readBurst) {
            const ssize_t count = ::read(m_master, buffer, sizeof buffer);
            if (count > 0) {
                bytes.append(buffer, count);
                continue;
            }
            if (count < 0 && errno == EINTR)
                continue;
            // EIO is how a Linux pty master says that no process holds the terminal any more.
            endOfFile = count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
            break;
        }
        if (!bytes.isEmpty())
            Q_EMIT output(bytes);
        if (endOfFile) {
            closeTerminal();
            finishIfDone();
        }
    }

    void collectExit()
    {
        if (m_pid <= 0 || m_reaped)
            return;
        int status = 0;
        pid_t result;
        while ((result = ::waitpid(m_pid, &status, WNOHANG)) < 0 && errno == EINTR) {}
        if (result != m_pid)
            return;
        m_reaped = true;
        m_exit = WIFSIGNALED(status) ? TerminalExit{0, WTERMSIG(status)} : TerminalExit{WEXITSTATUS(status), 0};
        m_exitPoll.stop();
        closeExitWatch();
        readTerminal();
        if (m_master >= 0) {
            m_drainDeadline = QDeadlineTimer(drainLimit);
            m_drainTimer.start(drainLimit);
        }
        finishIfDone();
    }

    void finishIfDone()
    {
        if (!m_reaped || m_master >= 0 || m_finishedSent)
            return;
        m_finishedSent = true;
        m_drainTimer.stop();
        if (::kill(-m_pid, 0) != 0 && errno == ESRCH)
            m_groupGone = true;
        Q_EMIT finished(m_exit);
    }

    void closeTerminal() { closeWatched(m_outputWatch, m_master); }
    void closeExitWatch() { closeWatched(m_exitWatch, m_exitDescriptor); }

    pid_t m_pid = 0;
    int m_master = -1;
    int m_exitDescriptor = -1;
    QSocketNotifier *m_outputWatch = nullptr;
    QSocketNotifier *m_exitWatch = nullptr;
    QTimer m_exitPoll;
    QTimer m_drainTimer;
    QTimer m_killTimer;
    QDeadlineTimer m_drainDeadline;
    bool m_reaped = false;
    bool m_groupGone = false;
    bool m_finishedSent = false;
    TerminalExit m_exit;
    QString m_error;
};

} // namespace

std::unique_ptr<TerminalProcess> TerminalProcess::create(QObject *parent)
{
    return std::make_unique<LinuxTerminalProcess>(parent);
}
