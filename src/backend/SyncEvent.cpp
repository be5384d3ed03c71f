#include "backend/SyncEvent.h"

#include "core/ReferenceDate.h"

#include <array>
#include <utility>

namespace parlino {

namespace {

constexpr std::array kPriorities{std::pair{SyncPriority::high, "high"}, std::pair{SyncPriority::medium, "medium"},
                                 std::pair{SyncPriority::low, "low"}};
constexpr std::array kTypes{std::pair{SyncEventType::ttsGeneration, "tts_generation"},
                            std::pair{SyncEventType::podcastGeneration, "podcast_generation"},
                            std::pair{SyncEventType::qaInteraction, "qa_interaction"},
                            std::pair{SyncEventType::analytics, "analytics"},
                            std::pair{SyncEventType::telemetry, "telemetry"},
                            std::pair{SyncEventType::heartbeat, "heartbeat"}};

} // namespace

QString rawValue(SyncPriority priority)
{
    for (const auto &[value, raw] : kPriorities) {
        if (value == priority)
            return QString::fromLatin1(raw);
    }
    return {};
}

QString rawValue(SyncEventType type)
{
    for (const auto &[value, raw] : kTypes) {
        if (value == type)
            return QString::fromLatin1(raw);
    }
    return {};
}

std::optional<SyncPriority> syncPriorityFromRawValue(const QString &raw)
{
    for (const auto &[value, name] : kPriorities) {
        if (raw == QLatin1String(name))
            return value;
    }
    return std::nullopt;
}

std::optional<SyncEventType> syncEventTypeFromRawValue(const QString &raw)
{
    for (const auto &[value, name] : kTypes) {
        if (raw == QLatin1String(name))
            return value;
    }
    return std::nullopt;
}

bool isUsageEventType(SyncEventType type)
{
    return type == SyncEventType::ttsGeneration || type == SyncEventType::podcastGeneration
           || type == SyncEventType::qaInteraction;
}

QJsonObject SyncEvent::toJson() const
{
    QJsonObject json{{QStringLiteral("id"), id.toString(QUuid::WithoutBraces).toUpper()},
                     {QStringLiteral("priority"), rawValue(priority)},
                     {QStringLiteral("eventType"), rawValue(eventType)},
                     {QStringLiteral("payload"), payload},
                     {QStringLiteral("createdAt"), referenceDateSeconds(createdAt)},
                     {QStringLiteral("retryCount"), retryCount}};
    if (lastRetryAt)
        json.insert(QStringLiteral("lastRetryAt"), referenceDateSeconds(*lastRetryAt));
    return json;
}

std::optional<SyncEvent> SyncEvent::fromJson(const QJsonObject &json)
{
    SyncEvent event;
    event.id = QUuid::fromString(json.value(QStringLiteral("id")).toString());
    const std::optional<SyncPriority> priority =
        syncPriorityFromRawValue(json.value(QStringLiteral("priority")).toString());
    const std::optional<SyncEventType> type =
        syncEventTypeFromRawValue(json.value(QStringLiteral("eventType")).toString());
    if (event.id.isNull() || !priority || !type || !json.value(QStringLiteral("payload")).isObject()
        || !json.value(QStringLiteral("createdAt")).isDouble() || !json.value(QStringLiteral("retryCount")).isDouble())
        return std::nullopt;
    event.priority = *priority;
    event.eventType = *type;
    event.payload = json.value(QStringLiteral("payload")).toObject();
    event.createdAt = fromReferenceDateSeconds(json.value(QStringLiteral("createdAt")).toDouble());
    event.retryCount = json.value(QStringLiteral("retryCount")).toInt();
    if (json.value(QStringLiteral("lastRetryAt")).isDouble())
        event.lastRetryAt = fromReferenceDateSeconds(json.value(QStringLiteral("lastRetryAt")).toDouble());
    return event;
}

} // namespace parlino
