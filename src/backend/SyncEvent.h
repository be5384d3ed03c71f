#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace parlino {

// Which queue holds an event: high goes out at once, medium and low wait for the next batch.
enum class SyncPriority { high, medium, low };

// What an event describes; its raw value names it in logs and in the stored queues.
enum class SyncEventType { ttsGeneration, podcastGeneration, qaInteraction, analytics, telemetry, heartbeat };

[[nodiscard]] QString rawValue(SyncPriority priority);
[[nodiscard]] QString rawValue(SyncEventType type);
[[nodiscard]] std::optional<SyncPriority> syncPriorityFromRawValue(const QString &raw);
[[nodiscard]] std::optional<SyncEventType> syncEventTypeFromRawValue(const QString &raw);
// The generation types, which become usage_events rows.
[[nodiscard]] bool isUsageEventType(SyncEventType type);

// One event waiting in the sync engine's queues. Stored as JSON with these member names; dates are
// seconds since the 2001 reference date.
struct SyncEvent {
    QUuid id = QUuid::createUuid();
    SyncPriority priority = SyncPriority::medium;
    SyncEventType eventType = SyncEventType::analytics;
    QJsonObject payload;
    QDateTime createdAt;
    int retryCount = 0;
    std::optional<QDateTime> lastRetryAt;

    [[nodiscard]] QJsonObject toJson() const;
    // Nothing when a member is missing or of the wrong type.
    [[nodiscard]] static std::optional<SyncEvent> fromJson(const QJsonObject &json);
};

} // namespace parlino
