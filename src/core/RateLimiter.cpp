#include "core/RateLimiter.h"

#include "core/Clock.h"

namespace parlino {

RateLimiter::RateLimiter(int limit, std::chrono::milliseconds window, const Clock &clock)
    : m_limit(limit)
    , m_window(window)
    , m_clock(clock)
{
}

bool RateLimiter::allow()
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    // A clock set back must not lock the entry out until it catches up again.
    while (!m_times.isEmpty() && (now - m_times.first() >= m_window.count() || m_times.first() > now))
        m_times.removeFirst();
    if (m_times.size() >= m_limit)
        return false;
    m_times.append(now);
    return true;
}

} // namespace parlino
