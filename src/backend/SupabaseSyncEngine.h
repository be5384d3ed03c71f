#pragma once

#include "backend/SyncEvent.h"
#include "backend/SyncStatistics.h"
#include "backend/SyncStatus.h"
#include "core/Clock.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QUuid>
#include <qcoro/qcorotask.h>

#include <chrono>

namespace parlino {

class Defaults;
class SupabaseService;

// Keeps the rest of the app apart from the hosted database. Features hand it small events; it keeps
// them in three queues by priority (stored in the settings after every change, so they survive a
// restart), sends high-priority events at once and the others every 30 s in batches of at most 50,
// and repeats failures with a capped exponential back-off until an event has failed 5 times. Nothing
// a user does waits for it, and a failure is only ever a log line and a counter.
//
// Events go out at least once and, short of the app ending while a row is on its way, exactly once:
// an event leaves its queue only after the database has acknowledged it, and one pass runs at a time.
// Lives on the main thread; all time comes from the Clock.
class SupabaseSyncEngine final : public QObject {
    Q_OBJECT
    Q_PROPERTY(parlino::SyncStatus syncStatus READ syncStatus NOTIFY syncStatusChanged)
    Q_PROPERTY(parlino::SyncStatistics statistics READ statistics NOTIFY statisticsChanged)
    Q_PROPERTY(bool isOnline READ isOnline NOTIFY isOnlineChanged)
    Q_PROPERTY(int queuedEventsCount READ queuedEventsCount NOTIFY queuedEventsCountChanged)

public:
    static constexpr std::chrono::seconds batchSyncInterval{30};
    static constexpr int maxRetryAttempts = 5;
    static constexpr std::chrono::seconds initialRetryDelay{2};
    static constexpr std::chrono::seconds maxRetryDelay{300};
    static constexpr int maxBatchSize = 50;

    // Where the online state comes from: the platform's reachability, or only setOnline() (tests).
    enum class NetworkMonitoring { platform, manual };

    // Loads the stored queues and statistics (an absent or unreadable value starts empty, with one log
    // line). Sends nothing until start().
    SupabaseSyncEngine(SupabaseService &service, Defaults &defaults, Clock &clock, QObject *parent = nullptr);
    ~SupabaseSyncEngine() override;

    // Starts the batch timer and the network monitor; a second call does nothing.
    void start(NetworkMonitoring monitoring = NetworkMonitoring::platform);
    [[nodiscard]] bool isStarted() const { return m_batchTimer != 0; }

    // Queues one event and stores its queue at once; a high-priority event is sent at once when the
    // engine runs. An id that is already queued is not queued twice (a hand-over repeated after a
    // crash). Returns the event's id.
    QUuid queueEvent(SyncEventType type, const QJsonObject &payload, SyncPriority priority, QUuid id = QUuid());
    [[nodiscard]] bool containsEvent(const QUuid &id) const;

    // One pass: the high, medium and low batches in that order, then a retry if events failed; the
    // status returns to idle at the end. A pass asked for while one runs follows it.
    QCoro::Task<> performSync();
    // Every queued event, high then medium then low, that has fewer than 5 failed attempts.
    [[nodiscard]] QList<SyncEvent> getAllEventsNeedingRetry() const;
    // "key:value" for every member, joined with "|", in no particular order.
    [[nodiscard]] static QString buildFeatureString(const QJsonObject &payload);
    // 2 s × 2^largestRetryCount, at most 300 s.
    [[nodiscard]] static std::chrono::seconds retryDelay(int largestRetryCount);

    [[nodiscard]] const QList<SyncEvent> &queue(SyncPriority priority) const;
    [[nodiscard]] SyncStatus syncStatus() const { return m_syncStatus; }
    [[nodiscard]] const SyncStatistics &statistics() const { return m_statistics; }
    [[nodiscard]] bool isOnline() const { return m_isOnline; }
    [[nodiscard]] int queuedEventsCount() const { return m_queuedEventsCount; }

    // The connectivity as seen by the monitor; coming back online starts a pass.
    void setOnline(bool online);

Q_SIGNALS:
    void syncStatusChanged(parlino::SyncStatus status);
    void statisticsChanged();
    void isOnlineChanged(bool online);
    void queuedEventsCountChanged(int count);

private:
    // One pass at a time: a pass asked for while one runs follows it. full: all three queues, else
    // only the high one (an urgent event).
    QCoro::Task<> runExclusive(bool full);
    QCoro::Task<> runPass(bool full);
    // Sends up to 50 events of one queue (the high queue: all of it) in order.
    QCoro::Task<bool> syncEventBatch(SyncPriority priority);
    QCoro::Task<bool> syncHighPriorityEvents();
    QCoro::Task<bool> sendEvents(SyncPriority priority, qsizetype limit);
    // True when the database took the event.
    QCoro::Task<bool> syncSingleEvent(SyncEvent event);
    [[nodiscard]] static QString validationFailure(const SyncEvent &event);
    void scheduleRetry();
    void startNetworkMonitor();
    void recordFailure(const QString &reason);

    void loadState();
    void saveQueue(SyncPriority priority);
    void saveStatistics();
    QList<SyncEvent> &queueRef(SyncPriority priority);
    void setSyncStatus(SyncStatus status);
    void updateQueuedEventsCount();

    SupabaseService &m_service;
    Defaults &m_defaults;
    Clock &m_clock;

    QList<SyncEvent> m_highPriorityQueue;
    QList<SyncEvent> m_mediumPriorityQueue;
    QList<SyncEvent> m_lowPriorityQueue;
    SyncStatistics m_statistics;
    SyncStatus m_syncStatus;
    bool m_isOnline = true;
    int m_queuedEventsCount = 0;

    Clock::TimerId m_batchTimer = 0;
    quint64 m_retryGeneration = 0; // a scheduled retry runs only if no newer one replaced it
    bool m_passRunning = false;
    bool m_passRequested = false;
    bool m_highPassRequested = false;
};

} // namespace parlino
