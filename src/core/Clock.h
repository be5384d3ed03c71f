#pragma once

#include <QDateTime>
#include <QObject>

#include <chrono>
#include <functional>

namespace parlino {

// The source of time and of timers. Code that waits or measures age takes a Clock, so tests can use a
// ManualClock and pass 30 days or a 60-second debounce in a few milliseconds.
class Clock {
public:
    using Callback = std::function<void()>;
    using TimerId = quint64;

    virtual ~Clock() = default;

    [[nodiscard]] virtual QDateTime now() const = 0;

    // Calls fn once after delay, on the thread of context; dropped if context is destroyed first.
    virtual void singleShot(std::chrono::milliseconds delay, QObject *context, Callback fn) = 0;
    // Calls fn every interval until cancelled or until context is destroyed.
    virtual TimerId startRepeating(std::chrono::milliseconds interval, QObject *context, Callback fn) = 0;
    virtual void cancel(TimerId id) = 0;

    // The wall clock with QTimer-driven timers.
    static Clock &system();
};

} // namespace parlino
