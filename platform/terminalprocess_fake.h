#pragma once

#include "platform/terminalprocess.h"

#include <QList>

#include <csignal>
#include <optional>

// A terminal process that runs nothing: a test says what it prints and how it ends, and reads
// back what the code under test started and which signals it sent.
class FakeTerminalProcess final : public TerminalProcess {
public:
    // Scripted behaviour.
    QString startError;          // not empty: start() fails with it
    bool endsOnTerminate = true; // SIGTERM or SIGKILL to the group ends the child with that signal
    qint64 fakeProcessId = 4242;

    // What was asked of it.
    QString scriptPath;
    QMap<QString, QString> environment;
    QString workingDirectory;
    int starts = 0;
    QList<int> signalsSent;
    std::optional<std::chrono::milliseconds> stopGrace;

    using TerminalProcess::TerminalProcess;

    bool start(const QString &script, const QMap<QString, QString> &env, const QString &directory) override
    {
        ++starts;
        scriptPath = script;
        environment = env;
        workingDirectory = directory;
        if (!startError.isEmpty() || starts > 1)
            return false;
        m_running = true;
        return true;
    }
    QString errorString() const override
    {
        return starts > 1 ? QStringLiteral("The terminal process was already started") : startError;
    }
    qint64 processId() const override { return m_running || m_ended ? fakeProcessId : 0; }
    bool isRunning() const override { return m_running; }

    void signalGroup(int signal) override
    {
        signalsSent.append(signal);
        if (m_running && endsOnTerminate && (signal == SIGTERM || signal == SIGKILL))
            end({0, signal});
    }
    void stop(std::chrono::milliseconds grace) override
    {
        stopGrace = grace;
        signalGroup(SIGTERM);
    }
    bool waitForFinished(std::chrono::milliseconds) override { return !m_running && m_ended; }

    // Test side: the child prints, the child ends.
    void print(const QByteArray &bytes)
    {
        if (m_running)
            Q_EMIT output(bytes);
    }
    void end(TerminalExit exit)
    {
        if (!m_running)
            return;
        m_running = false;
        m_ended = true;
        Q_EMIT finished(exit);
    }
    void exit(int code) { end({code, 0}); }

private:
    bool m_running = false;
    bool m_ended = false;
};
