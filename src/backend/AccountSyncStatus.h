#pragma once

#include <QString>

namespace parlino {

// State of the account data sync with the web backend.
struct AccountSyncStatus {
    enum class Kind { notSynced, syncing, synced, error };

    Kind kind = Kind::notSynced;
    QString message; // only for Kind::error

    static AccountSyncStatus notSynced() { return {}; }
    static AccountSyncStatus syncing() { return {Kind::syncing, {}}; }
    static AccountSyncStatus synced() { return {Kind::synced, {}}; }
    static AccountSyncStatus error(QString message) { return {Kind::error, std::move(message)}; }

    friend bool operator==(const AccountSyncStatus &, const AccountSyncStatus &) = default;
};

} // namespace parlino
