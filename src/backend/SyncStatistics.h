#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMetaType>
#include <QString>

#include <optional>

namespace parlino {

// The sync engine's counters since the installation began; stored as JSON after every batch.
struct SyncStatistics {
    qint64 totalEventsSynced = 0;
    qint64 totalEventsQueued = 0;
    qint64 totalRetries = 0;
    qint64 totalFailures = 0;
    std::optional<QDateTime> lastSyncAt;
    std::optional<QDateTime> lastFailureAt;
    std::optional<QString> lastFailureReason;

    [[nodiscard]] QJsonObject toJson() const;
    // Nothing when a counter is missing or of the wrong type.
    [[nodiscard]] static std::optional<SyncStatistics> fromJson(const QJsonObject &json);

    friend bool operator==(const SyncStatistics &, const SyncStatistics &) = default;
};

} // namespace parlino

Q_DECLARE_METATYPE(parlino::SyncStatistics)
