#pragma once

#include <QByteArray>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>

// How a child under the terminal ended: its exit code, or the signal that killed it.
struct TerminalExit {
    int code = 0;
    int signal = 0; // non-zero: killed by this signal, `code` means nothing then

    bool crashed() const { return signal != 0; }
    friend bool operator==(const TerminalExit &, const TerminalExit &) = default;
};
Q_DECLARE_METATYPE(TerminalExit)

// Runs a zsh script inside a pseudo-terminal, the way a user's Terminal would, so that the
// client behind it prints its live progress (many tools only do when they see a terminal):
// the pty is the child's controlling terminal, in a session and process group of its own, with
// a window of 120 columns by 30 rows; output and errors both arrive on the pty; standard input
// is empty. macOS runs "/usr/bin/script -q /dev/null /bin/zsh SCRIPT"; Linux makes the pty
// itself with forkpty and runs /bin/zsh.
//
// Lives on the thread that created it; its signals arrive there.
class TerminalProcess : public QObject {
    Q_OBJECT

public:
    static constexpr int columns = 120;
    static constexpr int rows = 30;

    using QObject::QObject;
    ~TerminalProcess() override = default;

    // The platform's implementation.
    static std::unique_ptr<TerminalProcess> create(QObject *parent = nullptr);

    // Starts /bin/zsh with the script in `workingDirectory` and with exactly `environment` as
    // its environment. False, with `errorString()` telling why, when the child could not be
    // started (no pty, no zsh, no such directory); then no signal follows. Only once.
    virtual bool start(const QString &scriptPath, const QMap<QString, QString> &environment,
                       const QString &workingDirectory) = 0;
    virtual QString errorString() const = 0;
    // The child's process id (also its process group's), or 0 before the start.
    virtual qint64 processId() const = 0;
    // True from a successful start until `finished`.
    virtual bool isRunning() const = 0;

    // Sends a signal to the child's whole process group, so that what the script started goes
    // with it. Does nothing before the start or once the group is known to be gone.
    virtual void signalGroup(int signal) = 0;
    // The polite way to end the child: SIGTERM to the group now and, if the child has not
    // ended after `grace`, SIGKILL to the group.
    virtual void stop(std::chrono::milliseconds grace) = 0;
    // Blocks until the child has ended and `finished` was sent, at most `timeout`; tells whether
    // it ended. For tests and shutdown; the launcher itself waits for `finished`.
    virtual bool waitForFinished(std::chrono::milliseconds timeout) = 0;

Q_SIGNALS:
    // Raw bytes as the terminal delivered them: a multi-byte character may be split across
    // two emissions, and lines end in CR LF (the terminal's output processing).
    void output(const QByteArray &bytes);
    // Once, after the last output.
    void finished(TerminalExit exit);
};
