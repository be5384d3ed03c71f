#pragma once

#include "backend/AppUser.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace parlino {

class Clock;
class Defaults;

// The hosted database's project URL and public key; both empty when not configured.
struct SupabaseCredentials {
    QString url;
    QString key;

    [[nodiscard]] bool isComplete() const { return !url.isEmpty() && !key.isEmpty(); }
    // SUPABASE_URL and SUPABASE_KEY from the environment; a missing variable gives an empty string.
    [[nodiscard]] static SupabaseCredentials fromEnvironment();
};

struct VoicePreference {
    QString provider;
    QString voice;

    friend bool operator==(const VoicePreference &, const VoicePreference &) = default;
};

// The one client of the hosted database's PostgREST interface: the device's app_users row, the
// user's voice preference (two columns of that row, found by e-mail) and usage_events rows. Requests
// are built by hand: JSON bodies, the project key as "apikey" and as bearer token, 60 s time-out.
//
// Nothing here throws to the caller or retries: every failure is a log line and an absent result (or
// false), and a missing URL or key makes every call a logged no-op without a request. Repeating failed
// usage events is the sync engine's job. Lives on the main thread.
class SupabaseService final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds defaultRequestTimeout{60000};

    // Establishes the device identifier (created once, kept under "deviceID") and logs it.
    // network: nullptr gives the service its own manager.
    SupabaseService(SupabaseCredentials credentials, Defaults &defaults, Clock &clock,
                    QNetworkAccessManager *network = nullptr, QObject *parent = nullptr);
    ~SupabaseService() override;

    [[nodiscard]] const QString &supabaseURL() const { return m_credentials.url; }
    [[nodiscard]] const QString &supabaseKey() const { return m_credentials.key; }
    [[nodiscard]] const QString &deviceID() const { return m_deviceID; }
    // True when the URL and key read at construction are both present.
    [[nodiscard]] bool isConfigured() const { return m_credentials.isComplete(); }
    // Tests shorten it to see a stalled server fail quickly.
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_requestTimeout = timeout; }

    // Looked up afresh: SUPABASE_URL / SUPABASE_KEY from the environment, else the settings strings of
    // the same names. A variable that is set but empty wins over the settings.
    [[nodiscard]] SupabaseCredentials getCredentials() const;
    // The device identifier under "deviceID", created if it is missing.
    [[nodiscard]] QString getDeviceID();

    // The device's row (deviceId absent: this device). A fetched row replaces the cached copy under
    // "cachedUserProfile"; on any failure the cached copy is returned if it reads, else nothing.
    QCoro::Task<std::optional<AppUser>> getUserProfile(std::optional<QString> deviceId = std::nullopt);
    // Fetches the device's row for the log only.
    QCoro::Task<> fetchUserData();
    // The provider and voice stored for the user with that e-mail, or nothing.
    QCoro::Task<std::optional<VoicePreference>> fetchVoicePreference(QString email);
    // Writes provider, voice and this device into the row with that e-mail; true when the database
    // accepted it (200 or 204).
    QCoro::Task<bool> updateVoicePreference(QString email, QString provider, QString voice);
    // Appends one usage_events row stamped with this device, "linux" and the current time; nine members
    // with a feature, eight without. True when the database created it (201).
    QCoro::Task<bool> logUsageEvent(QString eventType, QString provider, QString voiceTier, qint64 characterCount,
                                    qint64 costCents, std::optional<QString> feature = std::nullopt);

    // The platform written with every row.
    static inline const QString platform = QStringLiteral("linux");

private:
    struct Answer {
        int status = 0;
        QByteArray body;
    };

    // Sends one request and returns the HTTP answer, whatever its status; throws SupabaseError when
    // there was none (refused, dropped, timed out).
    QCoro::Task<Answer> send(QByteArray method, QUrl url, SupabaseCredentials credentials, QByteArray body);
    [[nodiscard]] std::optional<AppUser> cachedProfile() const;

    SupabaseCredentials m_credentials;
    Defaults &m_defaults;
    Clock &m_clock;
    QNetworkAccessManager *m_network;
    QString m_deviceID;
    std::chrono::milliseconds m_requestTimeout = defaultRequestTimeout;
};

} // namespace parlino
