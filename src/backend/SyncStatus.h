#pragma once

#include <QMetaType>
#include <QString>

namespace parlino {

// What the sync engine is doing, for the interface. error: events that failed 5 times wait in the queues.
struct SyncStatus {
    enum class Kind { idle, syncing, retrying, offline, error };

    Kind kind = Kind::idle;
    int retryDelaySeconds = 0; // only for Kind::retrying

    static SyncStatus idle() { return {}; }
    static SyncStatus syncing() { return {Kind::syncing, 0}; }
    static SyncStatus retrying(int delaySeconds) { return {Kind::retrying, delaySeconds}; }
    static SyncStatus offline() { return {Kind::offline, 0}; }
    static SyncStatus error() { return {Kind::error, 0}; }

    // "idle", "syncing", "retrying in 8s", "offline", "error".
    [[nodiscard]] QString text() const
    {
        switch (kind) {
        case Kind::syncing: return QStringLiteral("syncing");
        case Kind::retrying: return QStringLiteral("retrying in %1s").arg(retryDelaySeconds);
        case Kind::offline: return QStringLiteral("offline");
        case Kind::error: return QStringLiteral("error");
        case Kind::idle: break;
        }
        return QStringLiteral("idle");
    }

    friend bool operator==(const SyncStatus &, const SyncStatus &) = default;
};

} // namespace parlino

Q_DECLARE_METATYPE(parlino::SyncStatus)
