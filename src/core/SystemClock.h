#pragma once

#include "core/Clock.h"

#include <QHash>
#include <QPointer>
#include <QTimer>

namespace parlino {

class SystemClock final : public Clock {
public:
    [[nodiscard]] QDateTime now() const override { return QDateTime::currentDateTime(); }
    void singleShot(std::chrono::milliseconds delay, QObject *context, Callback fn) override;
    TimerId startRepeating(std::chrono::milliseconds interval, QObject *context, Callback fn) override;
    void cancel(TimerId id) override;

private:
    QHash<TimerId, QPointer<QTimer>> m_timers;
    TimerId m_nextId = 1;
};

} // namespace parlino
