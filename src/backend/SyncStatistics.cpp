#include "backend/SyncStatistics.h"

#include "core/ReferenceDate.h"

namespace parlino {

namespace {

const QString kSynced = QStringLiteral("totalEventsSynced");
const QString kQueued = QStringLiteral("totalEventsQueued");
const QString kRetries = QStringLiteral("totalRetries");
const QString kFailures = QStringLiteral("totalFailures");
const QString kLastSync = QStringLiteral("lastSyncAt");
const QString kLastFailure = QStringLiteral("lastFailureAt");
const QString kLastReason = QStringLiteral("lastFailureReason");

} // namespace

QJsonObject SyncStatistics::toJson() const
{
    QJsonObject json{{kSynced, totalEventsSynced},
                     {kQueued, totalEventsQueued},
                     {kRetries, totalRetries},
                     {kFailures, totalFailures}};
    if (lastSyncAt)
        json.insert(kLastSync, referenceDateSeconds(*lastSyncAt));
    if (lastFailureAt)
        json.insert(kLastFailure, referenceDateSeconds(*lastFailureAt));
    if (lastFailureReason)
        json.insert(kLastReason, *lastFailureReason);
    return json;
}

std::optional<SyncStatistics> SyncStatistics::fromJson(const QJsonObject &json)
{
    for (const QString &key : {kSynced, kQueued, kRetries, kFailures}) {
        if (!json.value(key).isDouble())
            return std::nullopt;
    }
    SyncStatistics statistics;
    statistics.totalEventsSynced = json.value(kSynced).toInteger();
    statistics.totalEventsQueued = json.value(kQueued).toInteger();
    statistics.totalRetries = json.value(kRetries).toInteger();
    statistics.totalFailures = json.value(kFailures).toInteger();
    if (json.value(kLastSync).isDouble())
        statistics.lastSyncAt = fromReferenceDateSeconds(json.value(kLastSync).toDouble());
    if (json.value(kLastFailure).isDouble())
        statistics.lastFailureAt = fromReferenceDateSeconds(json.value(kLastFailure).toDouble());
    if (json.value(kLastReason).isString())
        statistics.lastFailureReason = json.value(kLastReason).toString();
    return statistics;
}

} // namespace parlino
