#include "ManualClock.h"

namespace parlino {

ManualClock::ManualClock(QDateTime start)
    : m_now(std::move(start))
{
}

void ManualClock::singleShot(std::chrono::milliseconds delay, QObject *context, Callback fn)
{
    m_timers.emplace(m_nextId++, Timer{m_now.addMSecs(delay.count()), std::chrono::milliseconds(0), context,
                                       context != nullptr, std::move(fn)});
}

Clock::TimerId ManualClock::startRepeating(std::chrono::milliseconds interval, QObject *context, Callback fn)
{
    const TimerId id = m_nextId++;
    m_timers.emplace(id, Timer{m_now.addMSecs(interval.count()), interval, context, context != nullptr, std::move(fn)});
    return id;
}

void ManualClock::cancel(TimerId id)
{
    m_timers.erase(id);
}

void ManualClock::advance(std::chrono::milliseconds by)
{
    const QDateTime end = m_now.addMSecs(by.count());
    for (;;) {
        auto next = m_timers.end();
        for (auto it = m_timers.begin(); it != m_timers.end(); ++it) {
            if (it->second.due <= end && (next == m_timers.end() || it->second.due < next->second.due))
                next = it;
        }
        if (next == m_timers.end())
            break;
        Timer &timer = next->second;
        if (timer.hasContext && timer.context.isNull()) {
            m_timers.erase(next);
            continue;
        }
        m_now = timer.due;
        Callback fn = timer.fn;
        if (timer.interval.count() > 0)
            timer.due = timer.due.addMSecs(timer.interval.count());
        else
            m_timers.erase(next);
        fn();
    }
    m_now = end;
}

} // namespace parlino
