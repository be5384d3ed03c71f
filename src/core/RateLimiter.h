#pragma once

#include <QList>

#include <chrono>

namespace parlino {

class Clock;

// Allows at most `limit` events within any `window` of the clock's time; the rest are refused until
// the oldest one counted has left the window. Guards entry points that any local process can call.
class RateLimiter final {
public:
    RateLimiter(int limit, std::chrono::milliseconds window, const Clock &clock);

    // Counts the event and says true when it is within the limit; a refused event is not counted.
    [[nodiscard]] bool allow();

    [[nodiscard]] int limit() const { return m_limit; }
    [[nodiscard]] std::chrono::milliseconds window() const { return m_window; }

private:
    int m_limit;
    std::chrono::milliseconds m_window;
    const Clock &m_clock;
    // When the events still inside the window happened, oldest first (milliseconds since the epoch).
    QList<qint64> m_times;
};

} // namespace parlino
