#include "backend/SupabaseService.h"

#include "backend/DeviceIdentifier.h"
#include "backend/NetworkError.h"
#include "backend/RequestPolicy.h"
#include "backend/SupabaseError.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace parlino {

namespace {

const QString kURLVariable = QStringLiteral("SUPABASE_URL");
const QString kKeyVariable = QStringLiteral("SUPABASE_KEY");

// The environment variable as it stands, else the settings string, else empty.
QString lookUpSetting(const Defaults &defaults, const QString &name)
{
    if (qEnvironmentVariableIsSet(name.toUtf8().constData()))
        return qEnvironmentVariable(name.toUtf8().constData());
    return defaults.stringForKey(name).value_or(QString());
}

// Base URL + path and query as they stand: values are not escaped here.
std::optional<QUrl> requestURL(const QString &base, const QString &pathAndQuery)
{
    const QUrl url(base + pathAndQuery, QUrl::TolerantMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"https" && url.scheme() != u"http"))
        return std::nullopt;
    return url;
}

QString bodyText(const QByteArray &body)
{
    return QString::fromUtf8(body);
}

} // namespace

SupabaseCredentials SupabaseCredentials::fromEnvironment()
{
    return {qEnvironmentVariable("SUPABASE_URL"), qEnvironmentVariable("SUPABASE_KEY")};
}

SupabaseService::SupabaseService(SupabaseCredentials credentials, Defaults &defaults, Clock &clock,
                                 QNetworkAccessManager *network, QObject *parent)
    : QObject(parent)
    , m_credentials(std::move(credentials))
    , m_defaults(defaults)
    , m_clock(clock)
    , m_network(network ? network : new QNetworkAccessManager(this))
    , m_deviceID(readOrCreateDeviceID(defaults))
{
    PLOG(lcBackend) << "✅ Supabase service initialized with device ID: " << m_deviceID;
}

SupabaseService::~SupabaseService() = default;

SupabaseCredentials SupabaseService::getCredentials() const
{
    return {lookUpSetting(m_defaults, kURLVariable), lookUpSetting(m_defaults, kKeyVariable)};
}

QString SupabaseService::getDeviceID()
{
    return readOrCreateDeviceID(m_defaults);
}

QCoro::Task<SupabaseService::Answer> SupabaseService::send(QByteArray method, QUrl url, SupabaseCredentials credentials,
                                                           QByteArray body)
{
    if (const std::optional<QString> refusal = RequestPolicy::refusalOf(url))
        throw SupabaseError::transport(*refusal);
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(m_requestTimeout.count()));
    RequestPolicy::prepare(request);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("apikey", credentials.key.toUtf8());
    request.setRawHeader("Authorization", "Bearer " + credentials.key.toUtf8());

    QNetworkReply *raw = nullptr;
    if (method == "GET")
        raw = m_network->get(request);
    else if (method == "POST")
        raw = m_network->post(request, body);
    else
        raw = m_network->sendCustomRequest(request, method, body);
    // The coroutine resumes inside the reply's finished signal, so the reply must outlive this frame.
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        raw, [](QNetworkReply *finished) { finished->deleteLater(); });
    RequestPolicy::guard(*raw, RequestPolicy::smallJSON);
    co_await raw;

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const bool broken = reply->error() > QNetworkReply::NoError && reply->error() < 100;
    if (!status.isValid() || broken)
        throw SupabaseError::transport(NetworkError::fromReply(*reply).description());
    co_return Answer{status.toInt(), reply->readAll()};
}

std::optional<AppUser> SupabaseService::cachedProfile() const
{
    if (!m_defaults.contains(SettingsKeys::cachedUserProfile))
        return std::nullopt;
    return AppUser::fromJson(QJsonDocument::fromJson(m_defaults.dataForKey(SettingsKeys::cachedUserProfile)).object());
}

QCoro::Task<std::optional<AppUser>> SupabaseService::getUserProfile(std::optional<QString> deviceId)
{
    const QString device = deviceId ? *deviceId : getDeviceID();
    try {
        const SupabaseCredentials credentials = getCredentials();
        if (!credentials.isComplete()) {
            PLOG(lcBackend) << "⚠️ Supabase credentials not configured";
            throw SupabaseError::notConfigured();
        }
        const std::optional<QUrl> url =
            requestURL(credentials.url, QStringLiteral("/rest/v1/app_users?device_id=eq.") + device);
        if (!url)
            throw SupabaseError::invalidURL(credentials.url);
        QCoro::Task<Answer> request = send("GET", *url, credentials, {});
        const Answer answer = co_await request;
        if (answer.status != 200)
            throw SupabaseError::httpStatus(answer.status, answer.body);
        const QList<AppUser> users = AppUser::decodeServerList(answer.body);
        if (users.isEmpty())
            throw SupabaseError::decoding(QStringLiteral("No user row for this device."));
        m_defaults.set(SettingsKeys::cachedUserProfile,
                       QJsonDocument(users.first().toJson()).toJson(QJsonDocument::Compact));
        PLOG(lcBackend) << "✅ Fetched user profile from Supabase";
        co_return users.first();
    } catch (const Error &error) {
        PLOG(lcBackend) << "⚠️ Failed to fetch user profile: " << error.description();
    }
    std::optional<AppUser> cached = cachedProfile();
    if (cached)
        PLOG(lcBackend) << "ℹ️ Using cached user profile";
    co_return cached;
}

QCoro::Task<> SupabaseService::fetchUserData()
{
    QCoro::Task<std::optional<AppUser>> fetch = getUserProfile();
    const std::optional<AppUser> user = co_await fetch;
    if (user)
        PLOG(lcBackend) << "✅ Fetched user data from Supabase";
}

QCoro::Task<std::optional<VoicePreference>> SupabaseService::fetchVoicePreference(QString email)
{
    if (email.isEmpty()) {
        PLOG(lcBackend) << "⚠️ Cannot fetch voice preference: email is required";
        co_return std::nullopt;
    }
    if (!isConfigured()) {
        PLOG(lcBackend) << "⚠️ Supabase credentials not configured";
        co_return std::nullopt;
    }
    const std::optional<QUrl> url =
        requestURL(m_credentials.url, QStringLiteral("/rest/v1/app_users?email=eq.") + email
                                          + QStringLiteral("&select=preferred_provider,preferred_voice"));
    if (!url) {
        PLOG(lcBackend) << "❌ Invalid URL for voice preference fetch";
        co_return std::nullopt;
    }
    try {
        QCoro::Task<Answer> request = send("GET", *url, m_credentials, {});
        const Answer answer = co_await request;
        if (answer.status != 200) {
            PLOG(lcBackend) << "⚠️ Voice preference fetch failed with status: " << answer.status;
            co_return std::nullopt;
        }
        const QJsonArray rows = QJsonDocument::fromJson(answer.body).array();
        const QJsonObject first = rows.isEmpty() ? QJsonObject() : rows.first().toObject();
        if (!first.value(QStringLiteral("preferred_provider")).isString()
            || !first.value(QStringLiteral("preferred_voice")).isString()) {
            PLOG(lcBackend) << "ℹ️ No voice preference found for user";
            co_return std::nullopt;
        }
        VoicePreference preference{first.value(QStringLiteral("preferred_provider")).toString(),
                                   first.value(QStringLiteral("preferred_voice")).toString()};
        PLOG(lcBackend) << "✅ Fetched voice preference from Supabase: " << preference.provider << ":"
                        << preference.voice;
        co_return preference;
    } catch (const Error &error) {
        PLOG(lcBackend) << "⚠️ Error fetching voice preference: " << error.description();
    }
    co_return std::nullopt;
}

QCoro::Task<bool> SupabaseService::updateVoicePreference(QString email, QString provider, QString voice)
{
    if (email.isEmpty()) {
        PLOG(lcBackend) << "⚠️ Cannot update voice preference: email is required for account sync";
        co_return false;
    }
    if (!isConfigured()) {
        PLOG(lcBackend) << "⚠️ Supabase credentials not configured";
        co_return false;
    }
    PLOG(lcBackend) << "📤 Updating voice preference in Supabase";
    PLOG(lcBackend) << "   Email: " << email;
    PLOG(lcBackend) << "   Provider: " << provider;
    PLOG(lcBackend) << "   Voice: " << voice;
    const std::optional<QUrl> url =
        requestURL(m_credentials.url, QStringLiteral("/rest/v1/app_users?email=eq.") + email);
    if (!url) {
        PLOG(lcBackend) << "❌ Invalid URL for voice preference update";
        co_return false;
    }
    const QJsonObject body{{QStringLiteral("preferred_provider"), provider},
                           {QStringLiteral("preferred_voice"), voice},
                           {QStringLiteral("device_id"), m_deviceID}};
    try {
        QCoro::Task<Answer> request =
            send("PATCH", *url, m_credentials, QJsonDocument(body).toJson(QJsonDocument::Compact));
        const Answer answer = co_await request;
        if (answer.status == 200 || answer.status == 204) {
            PLOG(lcBackend) << "✅ Voice preference synced to Supabase successfully";
            co_return true;
        }
        PLOG(lcBackend) << "⚠️ Voice preference sync failed with status: " << answer.status;
        PLOG(lcBackend) << bodyText(answer.body);
    } catch (const Error &error) {
        PLOG(lcBackend) << "⚠️ Error updating voice preference: " << error.description();
    }
    co_return false;
}

QCoro::Task<bool> SupabaseService::logUsageEvent(QString eventType, QString provider, QString voiceTier,
                                                 qint64 characterCount, qint64 costCents,
                                                 std::optional<QString> feature)
{
    if (!isConfigured()) {
        PLOG(lcBackend) << "❌ Supabase not configured";
        co_return false;
    }
    const std::optional<QUrl> url = requestURL(m_credentials.url, QStringLiteral("/rest/v1/usage_events"));
    if (!url) {
        PLOG(lcBackend) << "⚠️ Error logging usage event: "
                        << SupabaseError::invalidURL(m_credentials.url).description();
        co_return false;
    }
    QJsonObject body{{QStringLiteral("device_id"), m_deviceID},
                     {QStringLiteral("event_type"), eventType},
                     {QStringLiteral("provider"), provider},
                     {QStringLiteral("voice_tier"), voiceTier},
                     {QStringLiteral("character_count"), characterCount},
                     {QStringLiteral("cost_cents"), costCents},
                     {QStringLiteral("platform"), platform},
                     {QStringLiteral("created_at"), m_clock.now().toUTC().toString(Qt::ISODateWithMs)}};
    if (feature)
        body.insert(QStringLiteral("feature"), *feature);
    try {
        QCoro::Task<Answer> request =
            send("POST", *url, m_credentials, QJsonDocument(body).toJson(QJsonDocument::Compact));
        const Answer answer = co_await request;
        if (answer.status == 201) {
            PLOG(lcBackend) << "✅ Logged usage event to Supabase";
            co_return true;
        }
        PLOG(lcBackend) << "⚠️ Failed to log usage event: " << answer.status;
    } catch (const Error &error) {
        PLOG(lcBackend) << "⚠️ Error logging usage event: " << error.description();
    }
    co_return false;
}

} // namespace parlino
