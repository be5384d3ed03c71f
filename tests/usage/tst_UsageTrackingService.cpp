#include "LogCapture.h"
#include "ManualClock.h"
#include "PostgrestTestServer.h"
#include "TestEnvironment.h"
#include "backend/SupabaseService.h"
#include "backend/SupabaseSyncEngine.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "usage/UsageTrackingService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>

#include <ctime>
#include <limits>

using namespace parlino;

namespace {

QDateTime at(int year, int month, int day, int hour = 12)
{
    return QDateTime(QDate(year, month, day), QTime(hour, 0), QTimeZone::utc());
}

TTSUsageLog logOf(const QDateTime &when, qint64 characters, const QString &provider = QStringLiteral("openai-speech"),
                  const QString &feature = QStringLiteral("read_aloud"))
{
    TTSUsageLog log;
    log.timestamp = when;
    log.provider = provider;
    log.modelName = QStringLiteral("tts-1");
    log.voiceName = QStringLiteral("nova");
    log.voiceTier = QStringLiteral("standard");
    log.characterCount = characters;
    log.costPerKChars = 1.5;
    log.feature = feature;
    log.requestSource = QStringLiteral("hotkey");
    return log;
}

} // namespace

class TestUsageTrackingService final : public QObject {
    Q_OBJECT

private:
    test::TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};
    ManualClock m_clock{at(2026, 11, 20)};

private Q_SLOTS:
    void initTestCase()
    {
        // Months begin at local midnight; the test's local time is UTC.
        qputenv("TZ", "UTC");
        tzset();
    }

    void init()
    {
        for (const QString &key : m_defaults.allKeys())
            m_defaults.remove(key);
        m_clock.setNow(at(2026, 11, 20));
    }

    void requestsAreCountedKeptAndSurviveARestart()
    {
        UsageTrackingService usage(m_defaults, m_clock);
        QSignalSpy characters(&usage, &UsageTrackingService::currentMonthCharactersChanged);
        TTSUsageLog first = logOf(at(2026, 11, 20), 3000);
        first.timeToFirstByteMs = 950;
        first.metadata = QMap<QString, QString>{{QStringLiteral("script_length"), QStringLiteral("812")}};
        usage.addUsageLog(first);
        usage.addUsageLog(logOf(at(2026, 11, 20), 1000, QStringLiteral("offline"), QStringLiteral("podcast")),
                          UsageEventType::podcast);

        QCOMPARE(usage.currentMonthCharacters(), 4000);
        QCOMPARE(characters.size(), 2);
        const MonthlyUsageStats &stats = usage.monthlyStats();
        QCOMPARE(stats.totalCharacters, 4000);
        QCOMPARE(stats.totalCostCents, 6); // 4000 characters at 1.5 cents per thousand
        QCOMPARE(stats.ttsCallCount, 1);
        QCOMPARE(stats.podcastCount, 1);
        QCOMPARE(stats.byProvider.value(QStringLiteral("openai-speech")), (UsageBreakdown{1, 3000, 4.5, 1.5}));
        QCOMPARE(stats.byFeature.value(QStringLiteral("podcast")).characters, 1000);
        QCOMPARE(stats.bySource.value(QStringLiteral("hotkey")).callCount, 2);
        QCOMPARE(usage.pendingLogs().size(), 2);
        QCOMPARE(usage.pendingLogs().first().platform, QStringLiteral("linux"));

        // Everything, optional members included, reads back after a restart.
        UsageTrackingService again(m_defaults, m_clock);
        QCOMPARE(again.monthlyStats(), stats);
        QCOMPARE(again.currentMonthCharacters(), 4000);
        QCOMPARE(again.usageLogs().size(), 2);
        const TTSUsageLog read = again.usageLogs().first();
        QCOMPARE(read.id, first.id);
        QCOMPARE(read.timestamp, first.timestamp);
        QCOMPARE(read.timeToFirstByteMs, std::optional<qint64>(950));
        QCOMPARE(read.generationDurationMs, std::nullopt);
        QCOMPARE(read.metadata, first.metadata);

        // Handed on, a pending log is gone for good.
        again.removePendingLogs({first.id});
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).pendingLogs().size(), 1);
    }

    void aNewMonthStartsFromItsFirstLog()
    {
        UsageTrackingService usage(m_defaults, m_clock);
        const TTSUsageLog november = logOf(at(2026, 11, 30, 23), 2000);
        usage.addUsageLog(november);

        // Just after midnight on the 1st: the first log of December starts the totals afresh.
        m_clock.setNow(QDateTime(QDate(2026, 12, 1), QTime(0, 0, 1), QTimeZone::utc()));
        test::LogCapture log;
        usage.addUsageLog(logOf(m_clock.now(), 500));
        QVERIFY(log.contains(QStringLiteral("📊 New month detected, archiving previous month's data")));
        QCOMPARE(usage.currentMonthCharacters(), 500);
        QCOMPARE(usage.monthlyStats().totalCharacters, 500);
        QCOMPARE(usage.usageLogs().size(), 1);
        QCOMPARE(usage.getDaysInCurrentPeriod(), 1);
        // November's log is still to be sent.
        QCOMPARE(usage.pendingLogs().size(), 2);
        QCOMPARE(usage.pendingLogs().first().id, november.id);

        // A restart later in December finds December's figures.
        m_clock.setNow(at(2026, 12, 9));
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).currentMonthCharacters(), 500);
    }

    // Against a real PostgreSQL behind the local PostgREST stand-in: each pending log becomes one
    // usage_events row, never two, across a repeated hand-over and a restart.
    void pendingLogsBecomeOneUsageRowEach()
    {
        test::PostgrestTestServer server;
        QVERIFY2(server.isReady(), qPrintable(server.failure()));
        const TTSUsageLog earlier = logOf(at(2026, 11, 19), 1200);
        const TTSUsageLog podcast =
            logOf(at(2026, 11, 19), 3000, QStringLiteral("openai-speech"), QStringLiteral("podcast"));
        {
            UsageTrackingService usage(m_defaults, m_clock);
            usage.addUsageLog(earlier);
            usage.addUsageLog(podcast, UsageEventType::podcast);
        }
        const QByteArray pendingBefore = m_defaults.dataForKey(SettingsKeys::pendingUsageLogs);

        SupabaseService supabase({server.baseUrl(), test::PostgrestTestServer::apiKey}, m_defaults, m_clock);
        {
            // Handed over at once, into the engine's stored queue, with the logs' ids.
            UsageTrackingService usage(m_defaults, m_clock);
            SupabaseSyncEngine engine(supabase, m_defaults, m_clock);
            usage.setSyncEngine(engine);
            QVERIFY(usage.pendingLogs().isEmpty());
            const QList<SyncEvent> &queued = engine.queue(SyncPriority::high);
            QCOMPARE(queued.size(), 2);
            QCOMPARE(queued[0].id, earlier.id);
            QCOMPARE(queued[1].eventType, SyncEventType::podcastGeneration);
            QCOMPARE(queued[1].payload.value(QStringLiteral("cost_cents")).toInt(), 5); // 4.5 cents, rounded
        }
        {
            // A hand-over repeated after a crash between the two writes queues nothing twice.
            m_defaults.set(SettingsKeys::pendingUsageLogs, pendingBefore);
            UsageTrackingService usage(m_defaults, m_clock);
            SupabaseSyncEngine engine(supabase, m_defaults, m_clock);
            usage.setSyncEngine(engine);
            QCOMPARE(engine.queuedEventsCount(), 2);
            QVERIFY(usage.pendingLogs().isEmpty());
        }

        UsageTrackingService usage(m_defaults, m_clock);
        SupabaseSyncEngine engine(supabase, m_defaults, m_clock);
        usage.setSyncEngine(engine);
        QSignalSpy status(&usage, &UsageTrackingService::usageSyncStatusChanged);
        engine.start(SupabaseSyncEngine::NetworkMonitoring::manual);
        QTRY_COMPARE(server.rowCount(QStringLiteral("usage_events")), 2);
        QTRY_COMPARE(usage.usageSyncStatus(), QStringLiteral("idle"));
        QVERIFY(status.count() >= 2); // syncing, then idle

        // A reading recorded now leaves at once, as one row with exactly the event's members.
        m_clock.setNow(QDateTime(QDate(2026, 11, 20), QTime(12, 0, 1, 500), QTimeZone::utc()));
        usage.addUsageLog(logOf(m_clock.now(), 640));
        QVERIFY(usage.pendingLogs().isEmpty());
        QTRY_COMPARE(server.rowCount(QStringLiteral("usage_events")), 3);
        QTRY_COMPARE(engine.queuedEventsCount(), 0);
        const QJsonObject row =
            server.rows(QStringLiteral("select * from public.usage_events order by id desc limit 1"))[0].toObject();
        QCOMPARE(row.value(QStringLiteral("device_id")).toString(), supabase.deviceID());
        QCOMPARE(row.value(QStringLiteral("event_type")).toString(), QStringLiteral("tts_generation"));
        QCOMPARE(row.value(QStringLiteral("provider")).toString(), QStringLiteral("openai-speech"));
        QCOMPARE(row.value(QStringLiteral("voice_tier")).toString(), QStringLiteral("standard"));
        QCOMPARE(row.value(QStringLiteral("character_count")).toInt(), 640);
        QCOMPARE(row.value(QStringLiteral("cost_cents")).toInt(), 1); // 0.96 cents, rounded
        QCOMPARE(row.value(QStringLiteral("platform")).toString(), QStringLiteral("linux"));
        QCOMPARE(QDateTime::fromString(row.value(QStringLiteral("created_at")).toString(), Qt::ISODateWithMs),
                 m_clock.now());
        QCOMPARE(row.value(QStringLiteral("feature")).toString(), QStringLiteral("read_aloud"));
        QCOMPARE(QJsonDocument::fromJson(server.requests().last().body).object().size(), 9);

        // A restart finds nothing left to hand over or send.
        UsageTrackingService restarted(m_defaults, m_clock);
        SupabaseSyncEngine again(supabase, m_defaults, m_clock);
        restarted.setSyncEngine(again);
        QCOMPARE(again.queuedEventsCount(), 0);
        QCOMPARE(server.rowCount(QStringLiteral("usage_events")), 3);
    }

    void unreadableStoredDataStartsEmpty()
    {
        m_defaults.set(SettingsKeys::usageLogs, QByteArray("[{\"id\": 7}"));
        m_defaults.set(SettingsKeys::monthlyUsageStats, QByteArray("{\"totalCharacters\": \"many\"}"));
        test::LogCapture log;
        UsageTrackingService usage(m_defaults, m_clock);
        QVERIFY(usage.usageLogs().isEmpty());
        QCOMPARE(usage.currentMonthCharacters(), 0);
        QCOMPARE(usage.monthlyStats(), MonthlyUsageStats());
        QCOMPARE(log.count(QStringLiteral("❌ Error loading ttsUsageLogs: unterminated array")), 1);
        QVERIFY(log.contains(QStringLiteral("❌ Error loading monthlyUsageStats: not usage statistics")));

        // Counts below zero are damage too.
        MonthlyUsageStats negative;
        negative.totalCharacters = -5;
        m_defaults.set(SettingsKeys::monthlyUsageStats, QJsonDocument(negative.toJson()).toJson());
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).monthlyStats(), MonthlyUsageStats());
    }

    // Counts that would overflow start again with a warning; the app keeps running.
    void overflowingCountsStartAgain()
    {
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        {
            UsageTrackingService usage(m_defaults, m_clock);
            usage.addUsageLog(logOf(at(2026, 11, 20), largest - 10));
            test::LogCapture log;
            usage.addUsageLog(logOf(at(2026, 11, 20), 100));
            QCOMPARE(usage.currentMonthCharacters(), 100);
            QCOMPARE(usage.monthlyStats().totalCharacters, 100);
            QCOMPARE(usage.monthlyStats().ttsCallCount, 1);
            QVERIFY(log.contains(QStringLiteral("⚠️ This month's character count overflowed; starting it again")));
            QVERIFY(
                log.contains(QStringLiteral("⚠️ This month's usage statistics overflowed; starting them again")));
        }
        // Both logs are kept; their sum read back at start-up overflows as well.
        test::LogCapture log;
        QCOMPARE(UsageTrackingService(m_defaults, m_clock).currentMonthCharacters(), 0);
        QVERIFY(log.contains(QStringLiteral("⚠️ This month's character count overflowed; starting it again")));
    }
};

QTEST_GUILESS_MAIN(TestUsageTrackingService)
#include "tst_UsageTrackingService.moc"
