#pragma once

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace parlino {

class Clock;

// Tells the web backend that a linked user has been active, so it can send its usage e-mails. Called
// after every finished reading, summary, podcast and answered question; a burst of activity becomes
// one notice, sent 60 seconds after its last event (a trailing debounce on the injected clock).
// Nothing is retried and nothing reaches the user.
class EmailNotificationService final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds activityDelay{60000};

    // baseURL: the backend's origin (WebBackend::origin() in the app). network: nullptr gives the
    // service its own manager.
    EmailNotificationService(Clock &clock, QString baseURL, QNetworkAccessManager *network = nullptr,
                             QObject *parent = nullptr);

    // Restarts the wait: only the last address of a burst is notified, activityDelay after it.
    void notifyUsageActivityThrottled(const QString &email);
    // The notice itself.
    QCoro::Task<> notifyUsageActivity(QString email);

    [[nodiscard]] const std::optional<QString> &pendingActivityEmail() const { return m_pendingActivityEmail; }
    [[nodiscard]] const QString &baseURL() const { return m_baseURL; }
    [[nodiscard]] QNetworkAccessManager &network() { return *m_session; }

Q_SIGNALS:
    // A notice ended: the backend's status, or 0 when no answer came. For observers such as the tests.
    void usageActivityNotified(const QString &email, int statusCode);

private:
    Clock &m_clock;
    QString m_baseURL;
    QNetworkAccessManager *m_session;
    std::optional<QString> m_pendingActivityEmail;
    // Each throttled call starts a new wait; a wait that is no longer the latest does nothing.
    quint64 m_activityGeneration = 0;
};

} // namespace parlino
