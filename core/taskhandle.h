#pragma once

#include <QObject>
#include <QPointer>

// A handle on a piece of asynchronous launch work (a polling loop, a wait, a request). The work
// lives in a QObject of its own (its timers and connections are its children); cancelling
// deletes that object, so none of its callbacks can run afterwards.
class TaskHandle {
public:
    TaskHandle() = default;
    explicit TaskHandle(QObject *carrier) : m_carrier(carrier) {}

    bool isActive() const { return !m_carrier.isNull(); }
    void cancel()
    {
        if (QObject *carrier = m_carrier.data())
            carrier->deleteLater();
        m_carrier.clear();
    }

private:
    QPointer<QObject> m_carrier;
};
