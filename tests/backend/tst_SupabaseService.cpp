#include "AwaitTask.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "PostgrestTestServer.h"
#include "TestEnvironment.h"
#include "backend/SupabaseService.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

QStringList sortedKeys(const QJsonObject &object)
{
    QStringList keys = object.keys();
    keys.sort();
    return keys;
}

} // namespace

// The hosted-database client against a real PostgreSQL behind the local PostgREST stand-in: the
// requests' paths, query strings, headers and bodies, the statuses it accepts, the profile fetch's
// fallback to the cached copy, and that without a URL or key nothing is sent.
class TestSupabaseService final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    PostgrestTestServer m_server;
    std::optional<QuietLog> m_quiet;
    std::optional<Defaults> m_defaults;
    ManualClock m_clock{QDateTime(QDate(2026, 11, 23), QTime(10, 15, 30, 250), QTimeZone::utc())};

    SupabaseCredentials credentials() const { return {m_server.baseUrl(), PostgrestTestServer::apiKey}; }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_server.isReady(), qPrintable(m_server.failure())); }

    void init()
    {
        m_quiet.emplace();
        QFile::remove(m_env.defaultsFile());
        m_defaults.emplace(m_env.defaultsFile());
        m_server.clearRequests();
        m_server.setFailureStatus(0);
        m_server.setStalled(false);
        m_server.execute(QStringLiteral("truncate public.app_users, public.usage_events"));
        qunsetenv("SUPABASE_URL");
        qunsetenv("SUPABASE_KEY");
    }

    void cleanup()
    {
        m_defaults.reset();
        m_quiet.reset();
    }

    void unconfiguredSendsNothingAndCredentialsLookUp()
    {
        LogCapture log;
        SupabaseService service({QString(), PostgrestTestServer::apiKey}, *m_defaults, m_clock);
        QVERIFY(!service.isConfigured());
        QVERIFY(!awaitTask(service.logUsageEvent(QStringLiteral("tts_generation"), QStringLiteral("openai"),
                                                 QStringLiteral("standard"), 10, 1))
                     .value.value());
        QVERIFY(!awaitTask(service.fetchVoicePreference(QStringLiteral("a@example.com"))).value.value());
        QVERIFY(!awaitTask(service.updateVoicePreference(QStringLiteral("a@example.com"), QStringLiteral("openai"),
                                                         QStringLiteral("nova")))
                     .value.value());
        QVERIFY(!awaitTask(service.getUserProfile()).value.value());
        QVERIFY(m_server.requests().isEmpty());
        QVERIFY(log.contains(QStringLiteral("❌ Supabase not configured")));
        QCOMPARE(log.count(QStringLiteral("⚠️ Supabase credentials not configured")), 3);

        // The device identifier is created once, upper case, and logged.
        const QString device = service.deviceID();
        QVERIFY(QUuid::fromString(device).version() == QUuid::Random && device == device.toUpper());
        QVERIFY(log.contains(QStringLiteral("✅ Supabase service initialized with device ID: ") + device));
        QCOMPARE(SupabaseService(credentials(), *m_defaults, m_clock).deviceID(), device);

        // The environment wins over the settings, even when it is set but empty.
        m_defaults->set(QStringLiteral("SUPABASE_URL"), QStringLiteral("https://stored.example"));
        m_defaults->set(QStringLiteral("SUPABASE_KEY"), QStringLiteral("stored-key"));
        QCOMPARE(service.getCredentials().url, QStringLiteral("https://stored.example"));
        qputenv("SUPABASE_URL", "");
        qputenv("SUPABASE_KEY", "env-key");
        QCOMPARE(service.getCredentials().url, QString());
        QCOMPARE(service.getCredentials().key, QStringLiteral("env-key"));
        QVERIFY(!SupabaseCredentials::fromEnvironment().isComplete());
    }

    void usageEventsArriveAsRowsWithTheirMembers()
    {
        LogCapture log;
        SupabaseService service(credentials(), *m_defaults, m_clock);
        QVERIFY(awaitTask(service.logUsageEvent(QStringLiteral("tts_generation"), QStringLiteral("openai"),
                                                QStringLiteral("standard"), 1234, 2, QStringLiteral("read_aloud")))
                    .value.value());
        QVERIFY(awaitTask(service.logUsageEvent(QStringLiteral("podcast_generation"), QStringLiteral("openai"),
                                                QStringLiteral("hd"), 5, 0))
                    .value.value());
        QCOMPARE(log.count(QStringLiteral("✅ Logged usage event to Supabase")), 2);

        const QList<PostgrestTestServer::Request> requests = m_server.requests();
        QCOMPARE(requests.size(), 2);
        for (const auto &request : requests) {
            QCOMPARE(request.method, QByteArray("POST"));
            QCOMPARE(request.path, QStringLiteral("/rest/v1/usage_events"));
            QCOMPARE(request.header("content-type"), QByteArray("application/json"));
            QCOMPARE(request.header("apikey"), PostgrestTestServer::apiKey.toUtf8());
            QCOMPARE(request.header("authorization"), "Bearer " + PostgrestTestServer::apiKey.toUtf8());
        }
        const QJsonObject withFeature = QJsonDocument::fromJson(requests[0].body).object();
        QCOMPARE(sortedKeys(withFeature),
                 QStringLiteral("character_count cost_cents created_at device_id event_type feature platform provider "
                                "voice_tier")
                     .split(u' '));
        QCOMPARE(withFeature.value(QStringLiteral("created_at")).toString(),
                 QStringLiteral("2026-11-23T10:15:30.250Z"));
        QCOMPARE(QJsonDocument::fromJson(requests[1].body).object().size(), 8);

        const QJsonArray rows = m_server.rows(
            QStringLiteral("select device_id, event_type, provider, voice_tier, character_count, cost_cents, platform, "
                           "created_at, feature from public.usage_events order by id"));
        QCOMPARE(rows.size(), 2);
        const QJsonObject first = rows[0].toObject();
        QCOMPARE(first.value(QStringLiteral("device_id")).toString(), service.deviceID());
        QCOMPARE(first.value(QStringLiteral("platform")).toString(), QStringLiteral("linux"));
        QCOMPARE(first.value(QStringLiteral("character_count")).toInt(), 1234);
        QCOMPARE(first.value(QStringLiteral("feature")).toString(), QStringLiteral("read_aloud"));
        QCOMPARE(QDateTime::fromString(first.value(QStringLiteral("created_at")).toString(), Qt::ISODateWithMs),
                 m_clock.now());
        QVERIFY(rows[1].toObject().value(QStringLiteral("feature")).isNull());

        // The public key may append events but never read them back.
        const QJsonObject rights =
            m_server
                .rows(QStringLiteral(
                    "select has_any_column_privilege('anon', 'public.usage_events', 'insert') as can_insert, "
                    "has_any_column_privilege('anon', 'public.usage_events', 'select') as can_read"))[0]
                .toObject();
        QVERIFY(rights.value(QStringLiteral("can_insert")).toBool());
        QVERIFY(!rights.value(QStringLiteral("can_read")).toBool());

        // Refusals and silence are log lines and false, never an exception.
        m_server.setFailureStatus(503);
        QVERIFY(!awaitTask(service.logUsageEvent(QStringLiteral("tts_generation"), QStringLiteral("openai"),
                                                 QStringLiteral("standard"), 1, 0))
                     .value.value());
        QVERIFY(log.contains(QStringLiteral("⚠️ Failed to log usage event: 503")));
        m_server.setFailureStatus(0);
        m_server.setStalled(true);
        service.setRequestTimeout(300ms);
        QVERIFY(!awaitTask(service.logUsageEvent(QStringLiteral("tts_generation"), QStringLiteral("openai"),
                                                 QStringLiteral("standard"), 1, 0))
                     .value.value());
        QVERIFY(log.lines().last().startsWith(QStringLiteral("⚠️ Error logging usage event: ")));
        QCOMPARE(m_server.rowCount(QStringLiteral("usage_events")), 2);
    }

    void voicePreferenceReadAndWrittenByEmail()
    {
        LogCapture log;
        m_server.execute(QStringLiteral("insert into public.app_users (device_id, email) values "
                                        "('OTHER-DEVICE', 'ada@example.com'), ('THIRD', 'ada+tts@example.com')"));
        SupabaseService service(credentials(), *m_defaults, m_clock);

        QVERIFY(!awaitTask(service.fetchVoicePreference(QStringLiteral("ada@example.com"))).value.value());
        QVERIFY(log.contains(QStringLiteral("ℹ️ No voice preference found for user")));
        QVERIFY(awaitTask(service.updateVoicePreference(QStringLiteral("ada@example.com"), QStringLiteral("openai"),
                                                        QStringLiteral("nova")))
                    .value.value());
        QVERIFY(log.containsInOrder({QStringLiteral("📤 Updating voice preference in Supabase"),
                                     QStringLiteral("✅ Voice preference synced to Supabase successfully")}));
        const std::optional<VoicePreference> fetched =
            awaitTask(service.fetchVoicePreference(QStringLiteral("ada@example.com"))).value.value();
        QCOMPARE(fetched, (VoicePreference{QStringLiteral("openai"), QStringLiteral("nova")}));
        QVERIFY(log.contains(QStringLiteral("✅ Fetched voice preference from Supabase: openai:nova")));

        const QList<PostgrestTestServer::Request> requests = m_server.requests();
        QCOMPARE(requests.size(), 3);
        QCOMPARE(requests[0].method, QByteArray("GET"));
        QCOMPARE(requests[0].query, QByteArray("email=eq.ada@example.com&select=preferred_provider,preferred_voice"));
        QCOMPARE(requests[1].method, QByteArray("PATCH"));
        QCOMPARE(requests[1].query, QByteArray("email=eq.ada@example.com"));
        QCOMPARE(QJsonDocument::fromJson(requests[1].body).object(),
                 (QJsonObject{{QStringLiteral("preferred_provider"), QStringLiteral("openai")},
                              {QStringLiteral("preferred_voice"), QStringLiteral("nova")},
                              {QStringLiteral("device_id"), service.deviceID()}}));
        const QJsonArray stored =
            m_server.rows(QStringLiteral("select device_id, preferred_voice from public.app_users order by device_id"));
        QCOMPARE(stored[0].toObject().value(QStringLiteral("device_id")).toString(), service.deviceID());
        QVERIFY(stored[1].toObject().value(QStringLiteral("preferred_voice")).isNull());

        // The address goes into the query as it stands; the server reads its "+" as a space, as
        // PostgREST does, so the row with the plus is not the one found.
        m_server.clearRequests();
        QVERIFY(!awaitTask(service.fetchVoicePreference(QStringLiteral("ada+tts@example.com"))).value.value());
        QCOMPARE(m_server.requests().first().query,
                 QByteArray("email=eq.ada+tts@example.com&select=preferred_provider,preferred_voice"));

        // Empty addresses are refused without a request; refusals by the database are logged.
        QVERIFY(!awaitTask(service.fetchVoicePreference(QString())).value.value());
        QVERIFY(!awaitTask(service.updateVoicePreference(QString(), QStringLiteral("openai"), QStringLiteral("nova")))
                     .value.value());
        QCOMPARE(m_server.requests().size(), 1);
        QVERIFY(log.contains(QStringLiteral("⚠️ Cannot fetch voice preference: email is required")));
        QVERIFY(
            log.contains(QStringLiteral("⚠️ Cannot update voice preference: email is required for account sync")));
        m_server.setFailureStatus(503);
        QVERIFY(!awaitTask(service.fetchVoicePreference(QStringLiteral("ada@example.com"))).value.value());
        QVERIFY(!awaitTask(service.updateVoicePreference(QStringLiteral("ada@example.com"), QStringLiteral("openai"),
                                                         QStringLiteral("echo")))
                     .value.value());
        QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Voice preference fetch failed with status: 503"),
                                     QStringLiteral("⚠️ Voice preference sync failed with status: 503")}));
    }

    void profileFetchFallsBackToTheCachedCopy()
    {
        LogCapture log;
        SupabaseService service(credentials(), *m_defaults, m_clock);
        qputenv("SUPABASE_URL", m_server.baseUrl().toUtf8());
        qputenv("SUPABASE_KEY", PostgrestTestServer::apiKey.toUtf8());

        // No row: 200 with "[]", and nothing cached.
        QVERIFY(!awaitTask(service.getUserProfile()).value.value());
        QCOMPARE(m_server.requests().last().query, "device_id=eq." + service.deviceID().toUtf8());
        QVERIFY(log.contains(QStringLiteral("⚠️ Failed to fetch user profile: "
                                            "The database's answer could not be read: No user row for this device.")));

        // A complete row does not decode either: its snake-case names are converted before they are
        // matched against the column names.
        m_server.execute(QStringLiteral("insert into public.app_users (device_id, platform) values ('%1', 'linux')")
                             .arg(service.deviceID()));
        QVERIFY(!awaitTask(service.getUserProfile()).value.value());
        QVERIFY(log.lines().last().startsWith(QStringLiteral("⚠️ Failed to fetch user profile: ")));
        QVERIFY(!m_defaults->contains(SettingsKeys::cachedUserProfile));

        // With a cached copy, every failed fetch returns it.
        const AppUser cached{QUuid::createUuid(), service.deviceID(), QStringLiteral("linux"),
                             QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), QTimeZone::utc()), std::nullopt};
        m_defaults->set(SettingsKeys::cachedUserProfile, QJsonDocument(cached.toJson()).toJson());
        QCOMPARE(awaitTask(service.getUserProfile()).value.value(), cached);
        QVERIFY(log.lines().last() == QStringLiteral("ℹ️ Using cached user profile"));
        m_server.setFailureStatus(503);
        QCOMPARE(awaitTask(service.getUserProfile()).value.value(), cached);

        // The conversion itself, and a row whose names survive it.
        QCOMPARE(convertFromSnakeCase(QStringLiteral("last_seen_at")), QStringLiteral("lastSeenAt"));
        QCOMPARE(convertFromSnakeCase(QStringLiteral("_device_id_")), QStringLiteral("_deviceId_"));
        QVERIFY_THROWS_EXCEPTION(Error, AppUser::decodeServerList(R"([{"id":"x"}])"));
        QCOMPARE(AppUser::decodeServerList("[]").size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestSupabaseService)
#include "tst_SupabaseService.moc"
