#pragma once

#include "core/Clock.h"

#include <QPointer>
#include <QTimeZone>

#include <map>

namespace parlino {

// A clock that moves only when told to. advance() fires every timer that falls due, in time order,
// with now() set to each timer's due time while it runs. For tests and benchmarks.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start = QDateTime(QDate(2026, 1, 1), QTime(12, 0), QTimeZone::utc()));

    [[nodiscard]] QDateTime now() const override { return m_now; }
    void singleShot(std::chrono::milliseconds delay, QObject *context, Callback fn) override;
    TimerId startRepeating(std::chrono::milliseconds interval, QObject *context, Callback fn) override;
    void cancel(TimerId id) override;

    void advance(std::chrono::milliseconds by);
    void setNow(const QDateTime &now) { m_now = now; }
    [[nodiscard]] int pendingTimers() const { return static_cast<int>(m_timers.size()); }

private:
    struct Timer {
        QDateTime due;
        std::chrono::milliseconds interval{0}; // zero for a single shot
        QPointer<QObject> context;
        bool hasContext = false;
        Callback fn;
    };

    QDateTime m_now;
    std::map<TimerId, Timer> m_timers;
    TimerId m_nextId = 1;
};

} // namespace parlino
