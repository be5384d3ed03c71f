#include "backend/AccountSyncService.h"

#include "backend/AccountSyncError.h"
#include "backend/BuildConfig.h"
#include "backend/NetworkError.h"
#include "backend/WebBackend.h"
#include "core/Logging.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QRegularExpression>

namespace parlino {

AccountSyncService::AccountSyncService(QString baseURL, QNetworkAccessManager *network, QObject *parent)
    : QObject(parent)
    , m_baseURL(std::move(baseURL))
    , m_network(network ? network : new QNetworkAccessManager(this))
    , m_requestTimeout(WebBackend::requestTimeout)
{
    PLOG(lcBackend) << "🔗 AccountSyncService initialized";
}

bool AccountSyncService::isValidEmail(const QString &email)
{
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral(R"([A-Z0-9a-z._%+-]+@[A-Za-z0-9.-]+\.[A-Za-z]{2,64})")));
    return pattern.match(email).hasMatch();
}

QCoro::Task<AccountSyncService::LinkResult> AccountSyncService::link(QString email)
{
    if (!isValidEmail(email))
        co_return LinkResult{false, QStringLiteral("Invalid email format")};
    PLOG(lcBackend) << "🔗 Linking account for " << email;
    try {
        QCoro::Task<AccountData> syncing = syncAccountData(email);
        co_await syncing;
    } catch (const AccountSyncError &error) {
        co_return LinkResult{false, error.description()};
    }
    co_return LinkResult{true, QStringLiteral("Account linked successfully")};
}

QCoro::Task<AccountSyncService::AccountData> AccountSyncService::syncAccountData(QString email)
{
    Q_EMIT syncStatusChanged(AccountSyncStatus::syncing());
    try {
        QCoro::Task<AccountData> fetching = fetch(email);
        const AccountData data = co_await fetching;
        Q_EMIT syncStatusChanged(AccountSyncStatus::synced());
        if (data.currentMonthCharacters)
            Q_EMIT currentMonthCharactersReceived(email, *data.currentMonthCharacters);
        PLOG(lcBackend) << (data.knownToBackend ? "🔄 Triggering voice preference sync..."
                                                : "🔄 Triggering voice preference sync for new user...");
        Q_EMIT voicePreferenceSyncRequested(email);
        co_return data;
    } catch (const AccountSyncError &error) {
        Q_EMIT syncStatusChanged(AccountSyncStatus::error(error.description()));
        throw;
    }
}

QCoro::Task<AccountSyncService::AccountData> AccountSyncService::fetch(QString email)
{
    if (email.isEmpty()) {
        PLOG(lcBackend) << "⚠️ Cannot sync account: email is empty";
        throw AccountSyncError(QStringLiteral("Email is required"));
    }
    const QString path = QStringLiteral("/api/account/fetch");
    const std::optional<QUrl> url = WebBackend::endpoint(m_baseURL, path);
    if (!url) {
        PLOG(lcBackend) << "❌ Invalid URL for account sync endpoint: " << m_baseURL + path;
        throw AccountSyncError(QStringLiteral("Invalid endpoint"));
    }

    QList<QPair<QByteArray, QByteArray>> headers;
    if (const std::optional<QString> apiKey = BuildConfig::apiKey())
        headers.append({QByteArrayLiteral("X-API-Key"), apiKey->toUtf8()});
    else
        PLOG(lcBackend) << "⚠️ No API key configured - account sync may fail with 401 error";

    WebBackend::Answer answer;
    try {
        QCoro::Task<WebBackend::Answer> posting = WebBackend::postJSON(
            *m_network, *url, QJsonObject{{QStringLiteral("email"), email}}, headers, m_requestTimeout);
        answer = co_await posting;
    } catch (const NetworkError &error) {
        PLOG(lcBackend) << "❌ Failed to sync account data: " << error.description();
        throw AccountSyncError(QStringLiteral("Account sync failed: ") + error.description());
    }

    switch (answer.statusCode) {
    case 200: {
        PLOG(lcBackend) << "✅ Account data synced successfully for " << email;
        const QJsonDocument document = QJsonDocument::fromJson(answer.body);
        if (!document.isObject()) {
            PLOG(lcBackend) << "⚠️ Failed to parse account data";
            throw AccountSyncError(QStringLiteral("Invalid response format"));
        }
        AccountData data{true, std::nullopt};
        const QJsonValue characters = document.object().value(QStringLiteral("current_month_characters"));
        if (characters.isDouble()) {
            data.currentMonthCharacters = characters.toInteger();
            PLOG(lcBackend) << "📊 Usage synced: " << *data.currentMonthCharacters;
        }
        co_return data;
    }
    case 401:
        PLOG(lcBackend) << "❌ Sync failed: Unauthorized (401)";
        PLOG(lcBackend) << "   API key missing or not provided in request";
        throw AccountSyncError(QStringLiteral("Authentication failed. Please contact support."));
    case 403:
        PLOG(lcBackend) << "❌ Sync failed: Forbidden (403)";
        PLOG(lcBackend) << "   Invalid API key provided";
        throw AccountSyncError(QStringLiteral("API key invalid. Please contact support."));
    case 404:
        // Not an error: a user who has not yet used the web side is linked all the same.
        PLOG(lcBackend) << "ℹ️ Customer not found in backend - this is normal for new users";
        co_return AccountData{false, std::nullopt};
    default:
        PLOG(lcBackend) << "⚠️ Account sync returned status " << answer.statusCode;
        PLOG(lcBackend) << QString::fromUtf8(answer.body);
        throw AccountSyncError(QStringLiteral("Sync failed with status ") + QString::number(answer.statusCode));
    }
}

} // namespace parlino
