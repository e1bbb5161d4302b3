#pragma once

#include "platform/clock.h"

// A clock that only moves when the test says so.
class FakeClock final : public Clock {
public:
    explicit FakeClock(QDateTime start = QDateTime(QDate(2026, 1, 1), QTime(12, 0), Qt::UTC))
        : m_now(std::move(start)) {}
    QDateTime now() const override { return m_now; }
    void set(const QDateTime &time) { m_now = time; }
    void advance(qint64 milliseconds) { m_now = m_now.addMSecs(milliseconds); }

private:
    QDateTime m_now;
};
