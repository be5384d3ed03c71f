#include "core/SystemClock.h"

namespace parlino {

Clock &Clock::system()
{
    static SystemClock clock;
    return clock;
}

void SystemClock::singleShot(std::chrono::milliseconds delay, QObject *context, Callback fn)
{
    QTimer::singleShot(delay, context, std::move(fn));
}

Clock::TimerId SystemClock::startRepeating(std::chrono::milliseconds interval, QObject *context, Callback fn)
{
    auto *timer = new QTimer(context);
    timer->setInterval(interval);
    QObject::connect(timer, &QTimer::timeout, context, std::move(fn));
    timer->start();
    const TimerId id = m_nextId++;
    m_timers.insert(id, timer);
    return id;
}

void SystemClock::cancel(TimerId id)
{
    if (QPointer<QTimer> timer = m_timers.take(id))
        timer->deleteLater();
}

} // namespace parlino
