#pragma once

#include <QDateTime>

// The current time, injected wherever a decision depends on it (throttles, session dates),
// so that tests move time instead of waiting for it.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
};
