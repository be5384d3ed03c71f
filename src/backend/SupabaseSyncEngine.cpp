#include "backend/SupabaseSyncEngine.h"

#include "backend/SupabaseService.h"
#include "core/Defaults.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkInformation>
#include <QPointer>

#include <algorithm>

namespace parlino {

namespace {

const QString &queueKey(SyncPriority priority)
{
    switch (priority) {
    case SyncPriority::high: return SettingsKeys::syncHighPriorityQueue;
    case SyncPriority::medium: return SettingsKeys::syncMediumPriorityQueue;
    case SyncPriority::low: break;
    }
    return SettingsKeys::syncLowPriorityQueue;
}

constexpr std::array kPriorities{SyncPriority::high, SyncPriority::medium, SyncPriority::low};

QList<SyncEvent> readQueue(const Defaults &defaults, SyncPriority priority)
{
    const QString &key = queueKey(priority);
    if (!defaults.contains(key))
        return {};
    const QJsonDocument document = QJsonDocument::fromJson(defaults.dataForKey(key));
    QList<SyncEvent> events;
    bool readable = document.isArray();
    for (const QJsonValue &value : document.array()) {
        std::optional<SyncEvent> event = SyncEvent::fromJson(value.toObject());
        if (!event) {
            readable = false;
            break;
        }
        event->priority = priority;
        events.append(*event);
    }
    if (!readable) {
        PWARN(lcBackend) << "⚠️ Stored " << rawValue(priority)
                         << " priority sync queue is unreadable - starting it empty";
        return {};
    }
    return events;
}

bool isNumber(const QJsonObject &payload, const QString &key)
{
    return payload.value(key).isDouble();
}

bool isString(const QJsonObject &payload, const QString &key)
{
    return payload.value(key).isString();
}

} // namespace

SupabaseSyncEngine::SupabaseSyncEngine(SupabaseService &service, Defaults &defaults, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_service(service)
    , m_defaults(defaults)
    , m_clock(clock)
{
    loadState();
}

SupabaseSyncEngine::~SupabaseSyncEngine()
{
    if (m_batchTimer != 0)
        m_clock.cancel(m_batchTimer);
}

void SupabaseSyncEngine::loadState()
{
    m_highPriorityQueue = readQueue(m_defaults, SyncPriority::high);
    m_mediumPriorityQueue = readQueue(m_defaults, SyncPriority::medium);
    m_lowPriorityQueue = readQueue(m_defaults, SyncPriority::low);
    if (m_defaults.contains(SettingsKeys::syncStatistics)) {
        const std::optional<SyncStatistics> stored = SyncStatistics::fromJson(
            QJsonDocument::fromJson(m_defaults.dataForKey(SettingsKeys::syncStatistics)).object());
        if (stored)
            m_statistics = *stored;
        else
            PWARN(lcBackend) << "⚠️ Stored sync statistics are unreadable - starting from zero";
    }
    m_queuedEventsCount =
        static_cast<int>(m_highPriorityQueue.size() + m_mediumPriorityQueue.size() + m_lowPriorityQueue.size());
    PLOG(lcBackend) << "📊 Loaded sync state - High: " << m_highPriorityQueue.size()
                    << ", Medium: " << m_mediumPriorityQueue.size() << ", Low: " << m_lowPriorityQueue.size();
}

void SupabaseSyncEngine::start(NetworkMonitoring monitoring)
{
    if (m_batchTimer != 0)
        return;
    m_batchTimer = m_clock.startRepeating(batchSyncInterval, this, [this] { performSync(); });
    if (monitoring == NetworkMonitoring::platform)
        startNetworkMonitor();
    PLOG(lcBackend) << "✅ Supabase Sync Engine initialized - Ready for real-time sync";
    // Urgent events left from the last run go out now rather than at the first tick.
    if (!m_highPriorityQueue.isEmpty())
        QMetaObject::invokeMethod(
            this, [this] { performSync(); }, Qt::QueuedConnection);
}

void SupabaseSyncEngine::startNetworkMonitor()
{
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)
        || !QNetworkInformation::instance()) {
        PLOG(lcBackend) << "ℹ️ No network information backend - treating the network as online";
        setOnline(true);
        return;
    }
    // "Local" still reaches a database on the local network, so only "disconnected" counts as offline.
    const auto online = [](QNetworkInformation::Reachability reachability) {
        return reachability != QNetworkInformation::Reachability::Disconnected;
    };
    setOnline(online(QNetworkInformation::instance()->reachability()));
    connect(QNetworkInformation::instance(), &QNetworkInformation::reachabilityChanged, this,
            [this, online](QNetworkInformation::Reachability reachability) { setOnline(online(reachability)); });
}

void SupabaseSyncEngine::setOnline(bool online)
{
    if (m_isOnline == online)
        return;
    m_isOnline = online;
    Q_EMIT isOnlineChanged(online);
    if (!online) {
        PLOG(lcBackend) << "📵 Network lost - events wait in their queues";
        setSyncStatus(SyncStatus::offline());
        return;
    }
    setSyncStatus(SyncStatus::idle());
    if (isStarted()) {
        PLOG(lcBackend) << "🌐 Network restored - triggering sync";
        performSync();
    }
}

QUuid SupabaseSyncEngine::queueEvent(SyncEventType type, const QJsonObject &payload, SyncPriority priority, QUuid id)
{
    if (!id.isNull() && containsEvent(id))
        return id;
    SyncEvent event;
    if (!id.isNull())
        event.id = id;
    event.priority = priority;
    event.eventType = type;
    event.payload = payload;
    event.createdAt = m_clock.now();
    queueRef(priority).append(event);
    saveQueue(priority);
    ++m_statistics.totalEventsQueued;
    saveStatistics();
    Q_EMIT statisticsChanged();
    updateQueuedEventsCount();
    PLOG(lcBackend) << "📥 Queued " << rawValue(type) << " event (" << rawValue(priority) << " priority)";
    if (priority == SyncPriority::high && isStarted())
        runExclusive(false);
    return event.id;
}

bool SupabaseSyncEngine::containsEvent(const QUuid &id) const
{
    for (const SyncPriority priority : kPriorities) {
        const QList<SyncEvent> &events = queue(priority);
        if (std::any_of(events.begin(), events.end(), [&id](const SyncEvent &event) { return event.id == id; }))
            return true;
    }
    return false;
}

QCoro::Task<> SupabaseSyncEngine::performSync()
{
    return runExclusive(true);
}

QCoro::Task<> SupabaseSyncEngine::runExclusive(bool full)
{
    if (m_passRunning) {
        // The running pass is followed by another, so nothing queued meanwhile waits for the next tick.
        (full ? m_passRequested : m_highPassRequested) = true;
        co_return;
    }
    m_passRunning = true;
    const QPointer<SupabaseSyncEngine> self(this);
    bool nextFull = full;
    for (;;) {
        m_passRequested = false;
        m_highPassRequested = false;
        QCoro::Task<> pass = runPass(nextFull);
        co_await pass;
        if (!self)
            co_return;
        if (!m_passRequested && !m_highPassRequested)
            break;
        nextFull = m_passRequested;
    }
    m_passRunning = false;
}

QCoro::Task<> SupabaseSyncEngine::runPass(bool full)
{
    if (!m_isOnline) {
        setSyncStatus(SyncStatus::offline());
        co_return;
    }
    if (m_queuedEventsCount == 0) {
        setSyncStatus(SyncStatus::idle());
        co_return;
    }
    const QPointer<SupabaseSyncEngine> self(this);
    setSyncStatus(SyncStatus::syncing());
    {
        QCoro::Task<bool> high = syncHighPriorityEvents();
        co_await high;
    }
    if (!self)
        co_return;
    for (const SyncPriority priority : {SyncPriority::medium, SyncPriority::low}) {
        if (!full)
            break;
        QCoro::Task<bool> batch = syncEventBatch(priority);
        co_await batch;
        if (!self)
            co_return;
    }
    saveStatistics();
    const QList<SyncEvent> waiting = getAllEventsNeedingRetry();
    const bool failedAndRetryable =
        std::any_of(waiting.begin(), waiting.end(), [](const SyncEvent &event) { return event.retryCount > 0; });
    if (failedAndRetryable) {
        scheduleRetry();
        co_return;
    }
    ++m_retryGeneration; // nothing left to retry: a retry still pending has nothing to do
    const bool givenUp = m_queuedEventsCount > waiting.size();
    setSyncStatus(givenUp ? SyncStatus::error() : SyncStatus::idle());
}

QCoro::Task<bool> SupabaseSyncEngine::syncHighPriorityEvents()
{
    return sendEvents(SyncPriority::high, m_highPriorityQueue.size());
}

QCoro::Task<bool> SupabaseSyncEngine::syncEventBatch(SyncPriority priority)
{
    return sendEvents(priority, maxBatchSize);
}

QCoro::Task<bool> SupabaseSyncEngine::sendEvents(SyncPriority priority, qsizetype limit)
{
    // Events that have given up keep their place in the queue but not in the batch.
    QList<SyncEvent> batch;
    for (const SyncEvent &event : queue(priority)) {
        if (batch.size() >= limit)
            break;
        if (event.retryCount < maxRetryAttempts)
            batch.append(event);
    }
    if (batch.isEmpty())
        co_return true;
    if (priority != SyncPriority::high)
        PLOG(lcBackend) << "📤 Syncing batch of " << batch.size() << " " << rawValue(priority) << " priority events";

    const QPointer<SupabaseSyncEngine> self(this);
    bool allSent = true;
    for (const SyncEvent &event : batch) {
        QCoro::Task<bool> attempt = syncSingleEvent(event);
        const bool sent = co_await attempt;
        if (!self)
            co_return false;
        QList<SyncEvent> &events = queueRef(priority);
        const auto found = std::find_if(events.begin(), events.end(),
                                        [&event](const SyncEvent &queued) { return queued.id == event.id; });
        if (sent) {
            if (found != events.end())
                events.erase(found);
            ++m_statistics.totalEventsSynced;
            m_statistics.lastSyncAt = m_clock.now();
        } else {
            allSent = false;
            ++m_statistics.totalRetries;
            if (found != events.end()) {
                ++found->retryCount;
                found->lastRetryAt = m_clock.now();
                if (found->retryCount >= maxRetryAttempts) {
                    ++m_statistics.totalFailures;
                    PWARN(lcBackend) << "❌ Giving up on " << rawValue(found->eventType) << " event after "
                                     << maxRetryAttempts << " attempts";
                }
            }
        }
        // Stored after each event, so an event the database took is not sent again after a restart.
        saveQueue(priority);
        updateQueuedEventsCount();
        Q_EMIT statisticsChanged();
    }
    co_return allSent;
}

QString SupabaseSyncEngine::validationFailure(const SyncEvent &event)
{
    const QJsonObject &payload = event.payload;
    if (isUsageEventType(event.eventType)) {
        const bool complete =
            isString(payload, QStringLiteral("event_type")) && isString(payload, QStringLiteral("provider"))
            && isString(payload, QStringLiteral("voice_tier")) && isNumber(payload, QStringLiteral("character_count"))
            && isNumber(payload, QStringLiteral("cost_cents"))
            && (!payload.contains(QStringLiteral("feature")) || isString(payload, QStringLiteral("feature")));
        if (!complete)
            return QStringLiteral("❌ Invalid usage event payload");
    }
    if (payload.contains(QStringLiteral("user_id"))
        && QUuid::fromString(payload.value(QStringLiteral("user_id")).toString()).isNull())
        return QStringLiteral("❌ Invalid user ID format");
    return {};
}

QCoro::Task<bool> SupabaseSyncEngine::syncSingleEvent(SyncEvent event)
{
    const QString invalid = validationFailure(event);
    if (!invalid.isEmpty()) {
        PWARN(lcBackend) << invalid;
        PWARN(lcBackend) << "❌ Event validation failed: Invalid event structure";
        recordFailure(QStringLiteral("Invalid event structure"));
        co_return false;
    }
    if (!isUsageEventType(event.eventType)) {
        // No table takes these yet; they leave the queue rather than pile up in it.
        PLOG(lcBackend) << "ℹ️ No database route for " << rawValue(event.eventType) << " events - dropped";
        co_return true;
    }
    const QJsonObject &payload = event.payload;
    const std::optional<QString> feature = payload.contains(QStringLiteral("feature"))
                                               ? std::optional(payload.value(QStringLiteral("feature")).toString())
                                               : std::nullopt;
    const QPointer<SupabaseSyncEngine> self(this);
    try {
        QCoro::Task<bool> request =
            m_service.logUsageEvent(payload.value(QStringLiteral("event_type")).toString(),
                                    payload.value(QStringLiteral("provider")).toString(),
                                    payload.value(QStringLiteral("voice_tier")).toString(),
                                    payload.value(QStringLiteral("character_count")).toInteger(),
                                    payload.value(QStringLiteral("cost_cents")).toInteger(), feature);
        const bool sent = co_await request;
        if (!self)
            co_return sent;
        if (sent) {
            PLOG(lcBackend) << "✅ Synced event: " << rawValue(event.eventType);
            co_return true;
        }
        PWARN(lcBackend) << "⚠️ Failed to sync event: " << rawValue(event.eventType);
        recordFailure(QStringLiteral("The database did not accept the usage event"));
    } catch (const Error &error) {
        if (!self)
            co_return false;
        PWARN(lcBackend) << "❌ Error syncing event: " << error.description();
        recordFailure(error.description());
    }
    co_return false;
}

void SupabaseSyncEngine::recordFailure(const QString &reason)
{
    m_statistics.lastFailureAt = m_clock.now();
    m_statistics.lastFailureReason = reason;
}

QList<SyncEvent> SupabaseSyncEngine::getAllEventsNeedingRetry() const
{
    QList<SyncEvent> needing;
    for (const SyncPriority priority : kPriorities) {
        for (const SyncEvent &event : queue(priority)) {
            if (event.retryCount < maxRetryAttempts)
                needing.append(event);
        }
    }
    return needing;
}

std::chrono::seconds SupabaseSyncEngine::retryDelay(int largestRetryCount)
{
    // Past 2^8 the cap has long been reached; stopping there keeps the shift in range.
    const int exponent = std::clamp(largestRetryCount, 0, 8);
    return std::min(initialRetryDelay * (1 << exponent), maxRetryDelay);
}

void SupabaseSyncEngine::scheduleRetry()
{
    const quint64 generation = ++m_retryGeneration; // replaces a retry still pending
    const QList<SyncEvent> needing = getAllEventsNeedingRetry();
    int largest = 0;
    for (const SyncEvent &event : needing)
        largest = std::max(largest, event.retryCount);
    const std::chrono::seconds delay = retryDelay(largest);
    setSyncStatus(SyncStatus::retrying(static_cast<int>(delay.count())));
    PLOG(lcBackend) << "🔄 Scheduling retry for " << needing.size() << " events in " << delay.count() << "s";
    m_clock.singleShot(delay, this, [this, generation] {
        if (generation == m_retryGeneration)
            performSync();
    });
}

QString SupabaseSyncEngine::buildFeatureString(const QJsonObject &payload)
{
    QStringList pieces;
    for (auto it = payload.begin(); it != payload.end(); ++it) {
        const QJsonValue value = it.value();
        QString text;
        if (value.isString())
            text = value.toString();
        else if (value.isDouble())
            text = QString::number(value.toDouble(), 'g', 15);
        else if (value.isBool())
            text = boolText(value.toBool());
        else if (value.isNull() || value.isUndefined())
            text = QStringLiteral("null");
        else
            text = QString::fromUtf8(value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)
                                                     : QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
        pieces.append(it.key() + u':' + text);
    }
    return pieces.join(u'|');
}

const QList<SyncEvent> &SupabaseSyncEngine::queue(SyncPriority priority) const
{
    switch (priority) {
    case SyncPriority::high: return m_highPriorityQueue;
    case SyncPriority::medium: return m_mediumPriorityQueue;
    case SyncPriority::low: break;
    }
    return m_lowPriorityQueue;
}

QList<SyncEvent> &SupabaseSyncEngine::queueRef(SyncPriority priority)
{
    return const_cast<QList<SyncEvent> &>(std::as_const(*this).queue(priority));
}

void SupabaseSyncEngine::saveQueue(SyncPriority priority)
{
    QJsonArray array;
    for (const SyncEvent &event : queue(priority))
        array.append(event.toJson());
    m_defaults.set(queueKey(priority), QJsonDocument(array).toJson(QJsonDocument::Compact));
}

void SupabaseSyncEngine::saveStatistics()
{
    m_defaults.set(SettingsKeys::syncStatistics, QJsonDocument(m_statistics.toJson()).toJson(QJsonDocument::Compact));
}

void SupabaseSyncEngine::setSyncStatus(SyncStatus status)
{
    if (m_syncStatus == status)
        return;
    m_syncStatus = status;
    Q_EMIT syncStatusChanged(status);
}

void SupabaseSyncEngine::updateQueuedEventsCount()
{
    const int count =
        static_cast<int>(m_highPriorityQueue.size() + m_mediumPriorityQueue.size() + m_lowPriorityQueue.size());
    if (count == m_queuedEventsCount)
        return;
    m_queuedEventsCount = count;
    Q_EMIT queuedEventsCountChanged(count);
}

} // namespace parlino
