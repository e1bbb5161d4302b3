#include "platform/terminalprocess.h"

#include <QList>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <climits>
#include <iterator>
#include <utility>

#include <csignal>

#include <libproc.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The BSD script utility makes the pty, runs zsh in a new session on it and copies the
// terminal's output to its own standard output, our pipe; its transcript goes to /dev/null.
// With standard input at /dev/null, script sends the terminal's end-of-file character once,
// so a read by the client ends at once. script itself does not set the window size (it has no
// terminal to copy one from): the launch script's first command does.
class MacTerminalProcess final : public TerminalProcess {
public:
    explicit MacTerminalProcess(QObject *parent) : TerminalProcess(parent)
    {
        m_killTimer.setSingleShot(true);
        connect(&m_killTimer, &QTimer::timeout, this, [this] { signalGroup(SIGKILL); });
        connect(&m_process, &QProcess::readyReadStandardOutput, this,
                [this] { Q_EMIT output(m_process.readAllStandardOutput()); });
        connect(&m_process, &QProcess::finished, this, [this](int code, QProcess::ExitStatus status) {
            const QByteArray rest = m_process.readAllStandardOutput();
            if (!rest.isEmpty())
                Q_EMIT output(rest);
            m_finished = true;
            // On Unix QProcess reports the terminating signal as the exit code of a crash.
            Q_EMIT finished(status == QProcess::CrashExit ? TerminalExit{0, code} : TerminalExit{code, 0});
        });
    }

    ~MacTerminalProcess() override
    {
        if (m_process.state() != QProcess::NotRunning) {
            signalGroup(SIGKILL);
            m_process.waitForFinished(-1);
        }
    }

    bool start(const QString &scriptPath, const QMap<QString, QString> &environment,
               const QString &workingDirectory) override
    {
        if (m_process.state() != QProcess::NotRunning || m_finished) {
            m_error = u"The terminal process was already started"_s;
            return false;
        }
        QProcessEnvironment processEnvironment;
        for (auto entry = environment.cbegin(); entry != environment.cend(); ++entry)
            processEnvironment.insert(entry.key(), entry.value());
        m_process.setProgram(u"/usr/bin/script"_s);
        m_process.setArguments({u"-q"_s, u"/dev/null"_s, u"/bin/zsh"_s, scriptPath});
        m_process.setProcessEnvironment(processEnvironment);
        m_process.setWorkingDirectory(workingDirectory);
        m_process.setStandardInputFile(QProcess::nullDevice());
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        // script in a process group of its own, so that signalling the group never reaches
        // the launcher.
        m_process.setChildProcessModifier([] { ::setpgid(0, 0); });
        m_process.start();
        if (!m_process.waitForStarted(10000)) {
            m_error = m_process.errorString();
            return false;
        }
        m_pid = m_process.processId();
        return true;
    }

    QString errorString() const override { return m_error; }
    qint64 processId() const override { return m_pid; }
    bool isRunning() const override { return m_pid > 0 && !m_finished; }

    void signalGroup(int signal) override
    {
        if (m_pid <= 0)
            return;
        // zsh leads the session that script made for it, so its group is not script's: it and
        // everything it started are reached through script's children.
        // Once script has ended it has no children to ask for, so the groups found earlier are
        // remembered: the kill after a stop's grace still reaches what ignored the terminate.
        if (!m_finished) {
            pid_t children[64];
            const int count = ::proc_listchildpids(pid_t(m_pid), children, int(sizeof children));
            for (int index = 0; index < std::min(count, int(std::size(children))); ++index)
                if (children[index] > 0 && !m_sessions.contains(children[index]))
                    m_sessions.append(children[index]);
        }
        for (const pid_t session : std::as_const(m_sessions))
            ::kill(-session, signal);
        if (!m_finished)
            ::kill(-pid_t(m_pid), signal);
    }

    void stop(std::chrono::milliseconds grace) override
    {
        signalGroup(SIGTERM);
        m_killTimer.start(grace);
    }

    bool waitForFinished(std::chrono::milliseconds timeout) override
    {
        if (m_finished)
            return true;
        return m_process.waitForFinished(int(std::min<qint64>(timeout.count(), INT_MAX)));
    }

private:
    QProcess m_process;
    QTimer m_killTimer;
    QList<pid_t> m_sessions;
    qint64 m_pid = 0;
    bool m_finished = false;
    QString m_error;
};

} // namespace

std::unique_ptr<TerminalProcess> TerminalProcess::create(QObject *parent)
{
    return std::make_unique<MacTerminalProcess>(parent);
}
