#include "backend/EmailNotificationService.h"

#include "backend/NetworkError.h"
#include "backend/WebBackend.h"
#include "core/Clock.h"
#include "core/Logging.h"

#include <QJsonObject>
#include <QNetworkAccessManager>

namespace parlino {

EmailNotificationService::EmailNotificationService(Clock &clock, QString baseURL, QNetworkAccessManager *network,
                                                   QObject *parent)
    : QObject(parent)
    , m_clock(clock)
    , m_baseURL(std::move(baseURL))
    , m_session(network ? network : new QNetworkAccessManager(this))
{
}

void EmailNotificationService::notifyUsageActivityThrottled(const QString &email)
{
    m_pendingActivityEmail = email;
    const quint64 generation = ++m_activityGeneration;
    m_clock.singleShot(activityDelay, this, [this, generation] {
        if (generation != m_activityGeneration || !m_pendingActivityEmail)
            return; // a later call restarted the wait
        const QString pending = *std::exchange(m_pendingActivityEmail, std::nullopt);
        notifyUsageActivity(pending);
    });
}

QCoro::Task<> EmailNotificationService::notifyUsageActivity(QString email)
{
    const QString path = QStringLiteral("/api/email/usage-tracked");
    const std::optional<QUrl> url = WebBackend::endpoint(m_baseURL, path);
    if (!url) {
        PLOG(lcBackend) << "❌ Invalid URL for usage tracking endpoint: " << m_baseURL + path;
        co_return;
    }
    int status = 0;
    try {
        QCoro::Task<WebBackend::Answer> posting = WebBackend::postJSON(
            *m_session, *url, QJsonObject{{QStringLiteral("email"), email}}, {}, WebBackend::requestTimeout);
        const WebBackend::Answer answer = co_await posting;
        status = answer.statusCode;
        // 404: the backend does not know this address yet, which is no fault of the user's.
        if (status != 200 && status != 404)
            PLOG(lcBackend) << "⚠️ Usage tracking returned status " << status;
    } catch (const NetworkError &error) {
        PLOG(lcBackend) << "⚠️ Usage tracking failed: " << error.description();
    }
    Q_EMIT usageActivityNotified(email, status);
}

} // namespace parlino
