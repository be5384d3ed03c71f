#include "LogCapture.h"
#include "ManualClock.h"
#include "PostgrestTestServer.h"
#include "TestEnvironment.h"
#include "backend/SupabaseService.h"
#include "backend/SupabaseSyncEngine.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <numeric>
#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

QJsonObject usagePayload(int characters)
{
    return {{QStringLiteral("event_type"), QStringLiteral("tts_generation")},
            {QStringLiteral("provider"), QStringLiteral("openai")},
            {QStringLiteral("voice_tier"), QStringLiteral("standard")},
            {QStringLiteral("character_count"), characters},
            {QStringLiteral("cost_cents"), 0},
            {QStringLiteral("feature"), QStringLiteral("read_aloud")}};
}

QList<int> retryCounts(const QList<SyncEvent> &events)
{
    QList<int> counts;
    for (const SyncEvent &event : events)
        counts.append(event.retryCount);
    return counts;
}

} // namespace

// The sync engine against a real PostgreSQL behind the local PostgREST stand-in, with time from a
// ManualClock: batches and their sizes, the stored queues across an outage and a restart, the
// back-off and its limit, and the online state.
class TestSupabaseSyncEngine final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    PostgrestTestServer m_server;
    std::optional<QuietLog> m_quiet;
    std::optional<Defaults> m_defaults;
    std::optional<ManualClock> m_clock;
    std::optional<SupabaseService> m_service;

    std::unique_ptr<SupabaseSyncEngine> makeEngine()
    {
        return std::make_unique<SupabaseSyncEngine>(*m_service, *m_defaults, *m_clock);
    }
    int usageRows() { return m_server.rowCount(QStringLiteral("usage_events")); }
    int postedRequests() const { return static_cast<int>(m_server.requests().size()); }

    // Moves the clock on and lets the pass that this started finish.
    static void passTime(ManualClock &clock, std::chrono::milliseconds by, const SupabaseSyncEngine &engine)
    {
        clock.advance(by);
        QTRY_VERIFY(engine.syncStatus().kind != SyncStatus::Kind::syncing);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_server.isReady(), qPrintable(m_server.failure())); }

    void init()
    {
        m_quiet.emplace();
        QFile::remove(m_env.defaultsFile());
        m_defaults.emplace(m_env.defaultsFile());
        m_clock.emplace();
        m_service.emplace(SupabaseCredentials{m_server.baseUrl(), PostgrestTestServer::apiKey}, *m_defaults, *m_clock);
        m_service->setRequestTimeout(500ms);
        m_server.clearRequests();
        m_server.setFailureStatus(0);
        m_server.setStalled(false);
        m_server.execute(QStringLiteral("truncate public.usage_events"));
    }

    void cleanup()
    {
        m_service.reset();
        m_clock.reset();
        m_defaults.reset();
        m_quiet.reset();
    }

    void lowPriorityEventsLeaveInBatchesOfFiftyInOrder()
    {
        auto engine = makeEngine();
        for (int i = 0; i < 120; ++i)
            engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(i), SyncPriority::low);
        QCOMPARE(engine->queuedEventsCount(), 120);
        engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
        QCOMPARE(postedRequests(), 0); // nothing urgent: the first batch waits for the timer
        // An urgent event goes at once, and alone.
        engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(1000), SyncPriority::high);
        QTRY_COMPARE(engine->queue(SyncPriority::high).size(), 0);
        QCOMPARE(usageRows(), 1);
        QCOMPARE(engine->queue(SyncPriority::low).size(), 120);
        m_server.execute(QStringLiteral("truncate public.usage_events"));

        LogCapture log;
        QList<int> arrived;
        for (int tick = 0; tick < 4; ++tick) {
            passTime(*m_clock, 30s, *engine);
            arrived.append(usageRows());
        }
        QCOMPARE(arrived, (QList<int>{50, 100, 120, 120}));
        QCOMPARE(log.count(QStringLiteral("📤 Syncing batch of 50 low priority events")), 2);
        QVERIFY(log.contains(QStringLiteral("📤 Syncing batch of 20 low priority events")));
        QCOMPARE(engine->queuedEventsCount(), 0);
        QCOMPARE(engine->statistics().totalEventsSynced, 121);
        QCOMPARE(engine->syncStatus(), SyncStatus::idle());

        QList<int> order;
        for (const QJsonValue &row :
             m_server.rows(QStringLiteral("select character_count from public.usage_events order by id")))
            order.append(row.toObject().value(QStringLiteral("character_count")).toInt());
        QList<int> expected(120);
        std::iota(expected.begin(), expected.end(), 0);
        QCOMPARE(order, expected);
    }

    void outageKeepsEventsAcrossARestartAndSendsThemOnce()
    {
        m_server.setFailureStatus(503);
        {
            auto engine = makeEngine();
            engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
            LogCapture log;
            engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(1), SyncPriority::high);
            QTRY_COMPARE(engine->syncStatus(), SyncStatus::retrying(4));
            QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Failed to sync event: tts_generation"),
                                         QStringLiteral("🔄 Scheduling retry for 1 events in 4s")}));
            engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(2), SyncPriority::medium);
            engine->queueEvent(SyncEventType::podcastGeneration, usagePayload(3), SyncPriority::low);
            passTime(*m_clock, 4s, *engine);

            // A stalled database is a failure too, once the request gives up.
            m_server.setFailureStatus(0);
            m_server.setStalled(true);
            passTime(*m_clock, 8s, *engine);
            QCOMPARE(retryCounts(engine->queue(SyncPriority::high)), QList<int>{3});
            QCOMPARE(retryCounts(engine->queue(SyncPriority::medium)), QList<int>{2});
            QCOMPARE(engine->statistics().totalRetries, 7);
            QCOMPARE(usageRows(), 0);

            // What a restart reads is what this engine holds.
            const SupabaseSyncEngine reread(*m_service, *m_defaults, *m_clock);
            for (const SyncPriority priority : {SyncPriority::high, SyncPriority::medium, SyncPriority::low}) {
                QCOMPARE(retryCounts(reread.queue(priority)), retryCounts(engine->queue(priority)));
                QCOMPARE(reread.queue(priority).first().payload, engine->queue(priority).first().payload);
            }
            QCOMPARE(reread.statistics(), engine->statistics());
        }

        // The database is back; a new engine over the same settings sends each event once.
        m_server.setStalled(false);
        m_server.setFailureStatus(0);
        auto engine = makeEngine();
        QCOMPARE(engine->queuedEventsCount(), 3);
        engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
        QTRY_COMPARE(engine->queue(SyncPriority::high).size(), 0); // urgent events go at start
        passTime(*m_clock, 30s, *engine);
        QCOMPARE(engine->queuedEventsCount(), 0);
        passTime(*m_clock, 10min, *engine);
        QList<int> arrived;
        for (const QJsonValue &row :
             m_server.rows(QStringLiteral("select character_count from public.usage_events order by id")))
            arrived.append(row.toObject().value(QStringLiteral("character_count")).toInt());
        QCOMPARE(arrived, (QList<int>{1, 2, 3}));
        QCOMPARE(engine->syncStatus(), SyncStatus::idle());
    }

    void backOffDoublesThenGivesUpAfterFiveAttempts()
    {
        QCOMPARE(SupabaseSyncEngine::retryDelay(0), 2s);
        QCOMPARE(SupabaseSyncEngine::retryDelay(4), 32s);
        QCOMPARE(SupabaseSyncEngine::retryDelay(7), 256s);
        QCOMPARE(SupabaseSyncEngine::retryDelay(8), 300s);
        QCOMPARE(SupabaseSyncEngine::retryDelay(40), 300s);

        m_server.setFailureStatus(503);
        auto engine = makeEngine();
        engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
        QSignalSpy statuses(engine.get(), &SupabaseSyncEngine::syncStatusChanged);
        engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(5), SyncPriority::high);
        QTRY_COMPARE(engine->syncStatus(), SyncStatus::retrying(4));
        QList<int> delays{4};
        while (engine->syncStatus().kind == SyncStatus::Kind::retrying && delays.size() < 10) {
            passTime(*m_clock, std::chrono::seconds(engine->syncStatus().retryDelaySeconds), *engine);
            if (engine->syncStatus().kind == SyncStatus::Kind::retrying)
                delays.append(engine->syncStatus().retryDelaySeconds);
        }
        QCOMPARE(delays, (QList<int>{4, 8, 16, 32}));
        QCOMPARE(postedRequests(), 5);
        QCOMPARE(engine->syncStatus(), SyncStatus::error());
        QCOMPARE(retryCounts(engine->queue(SyncPriority::high)), QList<int>{5});
        QCOMPARE(engine->statistics().totalFailures, 1);
        QVERIFY(engine->getAllEventsNeedingRetry().isEmpty());

        // It stays queued but is never sent again, even once the database answers.
        m_server.setFailureStatus(0);
        passTime(*m_clock, 30s, *engine);
        passTime(*m_clock, 30min, *engine);
        QCOMPARE(postedRequests(), 5);
        QCOMPARE(engine->queuedEventsCount(), 1);
    }

    void offlineWaitsAndReturningSendsAtOnce()
    {
        auto engine = makeEngine();
        engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
        engine->setOnline(false);
        QCOMPARE(engine->syncStatus(), SyncStatus::offline());
        engine->queueEvent(SyncEventType::qaInteraction, usagePayload(7), SyncPriority::high);
        engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(8), SyncPriority::medium);
        passTime(*m_clock, 30s, *engine);
        QCOMPARE(postedRequests(), 0);
        QCOMPARE(engine->syncStatus(), SyncStatus::offline());

        LogCapture log;
        engine->setOnline(true);
        QTRY_COMPARE(engine->queuedEventsCount(), 0);
        QVERIFY(log.contains(QStringLiteral("🌐 Network restored - triggering sync")));
        QCOMPARE(usageRows(), 2);
    }

    void invalidEventsAndUnreadableQueues()
    {
        m_defaults->set(SettingsKeys::syncMediumPriorityQueue, QByteArray("[{\"id\": 3"));
        m_defaults->set(SettingsKeys::syncLowPriorityQueue, QByteArray("[{\"id\": \"not an event\"}]"));
        LogCapture log;
        auto engine = makeEngine();
        QCOMPARE(engine->queuedEventsCount(), 0);
        QCOMPARE(
            log.count(QStringLiteral("⚠️ Stored medium priority sync queue is unreadable - starting it empty")), 1);
        QCOMPARE(log.count(QStringLiteral("⚠️ Stored low priority sync queue is unreadable - starting it empty")),
                 1);

        engine->start(SupabaseSyncEngine::NetworkMonitoring::manual);
        QJsonObject incomplete = usagePayload(1);
        incomplete.remove(QStringLiteral("provider"));
        engine->queueEvent(SyncEventType::ttsGeneration, incomplete, SyncPriority::medium);
        QJsonObject badUser = usagePayload(2);
        badUser.insert(QStringLiteral("user_id"), QStringLiteral("nobody"));
        engine->queueEvent(SyncEventType::ttsGeneration, badUser, SyncPriority::medium);
        passTime(*m_clock, 30s, *engine);
        QCOMPARE(postedRequests(), 0);
        QVERIFY(log.containsInOrder({QStringLiteral("❌ Invalid usage event payload"),
                                     QStringLiteral("❌ Event validation failed: Invalid event structure"),
                                     QStringLiteral("❌ Invalid user ID format")}));
        QCOMPARE(engine->statistics().lastFailureReason, QStringLiteral("Invalid event structure"));

        // The same id is queued once only.
        const QUuid id = QUuid::createUuid();
        engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(3), SyncPriority::low, id);
        engine->queueEvent(SyncEventType::ttsGeneration, usagePayload(3), SyncPriority::low, id);
        QCOMPARE(engine->queue(SyncPriority::low).size(), 1);

        QCOMPARE(SupabaseSyncEngine::buildFeatureString({}), QString());
        QStringList pieces =
            SupabaseSyncEngine::buildFeatureString(
                {{QStringLiteral("feature"), QStringLiteral("podcast")}, {QStringLiteral("words"), 120}})
                .split(u'|');
        pieces.sort();
        QCOMPARE(pieces, (QStringList{QStringLiteral("feature:podcast"), QStringLiteral("words:120")}));
    }
};

QTEST_GUILESS_MAIN(TestSupabaseSyncEngine)
#include "tst_SupabaseSyncEngine.moc"
