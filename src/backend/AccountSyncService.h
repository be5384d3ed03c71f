#pragma once

#include "backend/AccountSyncStatus.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace parlino {

// Connects the installation to the user's account on the web backend, by e-mail address: linking
// validates the address and fetches the account's data; once the backend knows the account, or
// answers that it does not know it yet (a new user), the voice-preference sync is asked for.
// Keeps no state of its own beyond the backend's origin: the linked address lives in the settings
// and the application state, which follow syncStatusChanged.
class AccountSyncService final : public QObject {
    Q_OBJECT
public:
    struct LinkResult {
        bool success = false;
        QString message; // "Account linked successfully", or the failure's text

        [[nodiscard]] explicit operator bool() const { return success; }
    };

    // What a sync learnt: whether the backend knows the account, and its characters this month.
    struct AccountData {
        bool knownToBackend = false;
        std::optional<qint64> currentMonthCharacters;
    };

    // baseURL: the backend's origin (WebBackend::origin() in the app). network: nullptr gives the
    // service its own manager.
    explicit AccountSyncService(QString baseURL, QNetworkAccessManager *network = nullptr, QObject *parent = nullptr);

    // Whether the whole address has the form name@domain.tld (a top-level part of 2 to 64 letters).
    [[nodiscard]] static bool isValidEmail(const QString &email);

    // Validates, then syncs; an invalid address fails with "Invalid email format" and sends nothing.
    QCoro::Task<LinkResult> link(QString email);
    // Fetches the account data for an already validated address; throws AccountSyncError.
    QCoro::Task<AccountData> syncAccountData(QString email);

    [[nodiscard]] const QString &baseURL() const { return m_baseURL; }
    [[nodiscard]] QNetworkAccessManager &network() { return *m_network; }
    // Idle time after which a request gives up; 60 s unless a test shortens it.
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_requestTimeout = timeout; }

Q_SIGNALS:
    // syncing when a fetch starts, then synced or error(the failure's text).
    void syncStatusChanged(const AccountSyncStatus &status);
    // The backend answered for this address (known or new): its voice preference should be synced now.
    void voicePreferenceSyncRequested(const QString &email);
    // The backend's count of this month's characters for the account.
    void currentMonthCharactersReceived(const QString &email, qint64 characters);

private:
    QCoro::Task<AccountData> fetch(QString email);

    QString m_baseURL;
    QNetworkAccessManager *m_network;
    std::chrono::milliseconds m_requestTimeout;
};

} // namespace parlino
