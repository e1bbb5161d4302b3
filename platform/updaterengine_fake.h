#pragma once

#include "platform/updaterengine.h"

#include <QStringList>

// An updater that does what the test says: its flags change when the test sets them, and a
// check asks the delegate's permission as a real updater does before it reads a feed.
class FakeUpdaterEngine final : public UpdaterEngine {
public:
    explicit FakeUpdaterEngine(UpdaterDelegate &delegate, QObject *parent = nullptr)
        : UpdaterEngine(parent), m_delegate(delegate) {}

    bool started = false;
    int checks = 0;
    int resets = 0;
    // The answer of the delegate to each permitted or refused check, oldest first; an empty
    // string stands for a permitted one.
    QStringList refusals;

    void start() override { started = true; }
    void checkForUpdates() override
    {
        ++checks;
        refusals.append(m_delegate.mayPerformCheck().value_or(QString()));
    }
    bool canCheckForUpdates() const override { return m_canCheck; }
    bool sessionInProgress() const override { return m_session; }
    bool automaticallyChecksForUpdates() const override { return m_automatic; }
    void setAutomaticallyChecksForUpdates(bool on) override { m_automatic = on; }
    void resetUpdateCycleAfterShortDelay() override { ++resets; }
    // A release the last check found, waiting to be installed.
    bool found = false;
    int installs = 0;
    bool hasFoundUpdate() const override { return found; }
    void installFoundUpdate() override { ++installs; }

    void setCanCheck(bool can)
    {
        m_canCheck = can;
        Q_EMIT canCheckForUpdatesChanged(can);
    }
    void setSession(bool inProgress)
    {
        m_session = inProgress;
        Q_EMIT sessionInProgressChanged(inProgress);
    }
    // The value the updater kept from an earlier run.
    void presetAutomatic(bool on) { m_automatic = on; }

private:
    UpdaterDelegate &m_delegate;
    bool m_canCheck = false;
    bool m_session = false;
    bool m_automatic = false;
};
