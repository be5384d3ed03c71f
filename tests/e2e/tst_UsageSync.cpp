#include "AppProcess.h"
#include "OpenAITestServer.h"
#include "PostgrestTestServer.h"
#include "TestEnvironment.h"
#include "WebBackendTestServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace parlino::test;

// The running app with a hosted database configured (the local PostgREST stand-in over a real
// PostgreSQL): a text read aloud becomes exactly one usage_events row, and a restart sends nothing again.
class TestUsageSync final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_database.isReady(), qPrintable(m_database.failure()));
        QDir().mkpath(QFileInfo(m_env.defaultsFile()).absolutePath());
        QFile defaults(m_env.defaultsFile());
        QVERIFY(defaults.open(QIODevice::WriteOnly));
        defaults.write("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\nstreamSpeech=false\n");
        defaults.close();
        qputenv("OPENAI_BASE_URL", m_openAI.baseUrlString().toUtf8());
        qputenv("OPENAI_API_KEY", "sk-test");
        qputenv("SUPABASE_URL", m_database.baseUrl().toUtf8());
        qputenv("SUPABASE_KEY", PostgrestTestServer::apiKey.toUtf8());
        qputenv("PARLINO_BACKEND_URL", m_backend.origin().toUtf8());
        qputenv("API_KEY", WebBackendTestServer::apiKey());
    }

    void readAloudBecomesOneUsageRow()
    {
        auto app = std::make_unique<AppProcess>();
        QVERIFY(app->start());
        QVERIFY(app->waitForLine(QStringLiteral("✅ Supabase Sync Engine initialized - Ready for real-time sync")));
        QCOMPARE(
            AppProcess::runToEnd({QStringLiteral("--read-aloud"), QStringLiteral("Counted once in the database.")}), 0);
        QVERIFY(app->waitForLine(QStringLiteral("✅ Synced event: tts_generation"), std::chrono::seconds(30)));

        QCOMPARE(m_database.rowCount(QStringLiteral("usage_events")), 1);
        const QJsonObject row = m_database.rows(QStringLiteral("select * from public.usage_events"))[0].toObject();
        QCOMPARE(row.value(QStringLiteral("event_type")).toString(), QStringLiteral("tts_generation"));
        QCOMPARE(row.value(QStringLiteral("platform")).toString(), QStringLiteral("linux"));
        QCOMPARE(row.value(QStringLiteral("feature")).toString(), QStringLiteral("read_aloud"));
        QCOMPARE(row.value(QStringLiteral("character_count")).toInt(),
                 QStringLiteral("Counted once in the database.").size());
        QVERIFY(!row.value(QStringLiteral("device_id")).toString().isEmpty());
        const QList<PostgrestTestServer::Request> posts = m_database.requests();
        QCOMPARE(posts.size(), 1);
        QCOMPARE(QJsonDocument::fromJson(posts.first().body).object().keys(),
                 QStringLiteral("character_count cost_cents created_at device_id event_type feature platform provider "
                                "voice_tier")
                     .split(u' '));
        app.reset();

        // The next launch finds nothing pending and sends nothing.
        auto again = std::make_unique<AppProcess>();
        QVERIFY(again->start());
        QVERIFY(again->waitForLine(QStringLiteral("📊 Loaded sync state - High: 0, Medium: 0, Low: 0")));
        QVERIFY(again->waitForLine(QStringLiteral("✅ Supabase Sync Engine initialized - Ready for real-time sync")));
        again.reset();
        QCOMPARE(m_database.rowCount(QStringLiteral("usage_events")), 1);
        QCOMPARE(m_database.requests().size(), 1);
    }

    // Linking an account in the running app brings the voice the user chose elsewhere: the next reading is
    // spoken by it.
    void linkingAppliesTheAccountsVoice()
    {
        const QString email = QStringLiteral("listener@example.org");
        m_backend.addCustomer(email, 1200);
        m_database.execute(QStringLiteral("insert into public.app_users (device_id, email, preferred_provider, "
                                          "preferred_voice) values ('another-device', '%1', 'openai', 'nova')")
                               .arg(email));
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("✅ Supabase Sync Engine initialized - Ready for real-time sync")));
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("account"), QStringLiteral("link"), email}), 0);
        QVERIFY(app.waitForLine(QStringLiteral("✅ Applying voice preference from Supabase: openai:nova"),
                                std::chrono::seconds(20)));

        m_openAI.clearRequests();
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--read-aloud"), QStringLiteral("Now in the account's voice.")}),
                 0);
        QTRY_VERIFY_WITH_TIMEOUT(!m_openAI.requests(QStringLiteral("/audio/speech")).isEmpty(), 15000);
        QCOMPARE(m_openAI.requests(QStringLiteral("/audio/speech")).first().json.value(u"voice").toString(),
                 QStringLiteral("nova"));
    }

private:
    WebBackendTestServer m_backend;
    TestEnvironment m_env;
    OpenAITestServer m_openAI;
    PostgrestTestServer m_database;
};

QTEST_GUILESS_MAIN(TestUsageSync)
#include "tst_UsageSync.moc"
