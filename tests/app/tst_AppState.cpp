#include "AwaitTask.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "PostgrestTestServer.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "backend/SupabaseService.h"
#include "core/Defaults.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace parlino;

class TestAppState final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<test::TestEnvironment>();
        m_defaults = std::make_unique<Defaults>(m_env->defaultsFile());
    }

    void defaultsWithoutStoredValues()
    {
        test::LogCapture log;
        AppState state(*m_defaults);
        QCOMPARE(state.selectedVoice(), TTSVoice::alloy);
        QCOMPARE(state.currentSpeed(), PlaybackSpeed::x1);
        QCOMPARE(state.floatingPlayerSize(), QSizeF(280, 380));
        QCOMPARE(state.usageSyncStatus(), QStringLiteral("Idle"));
        QCOMPARE(state.selectedPodcastType(), PodcastType::educational);
        QVERIFY(!state.userEmail().has_value());
        QCOMPARE(state.downloadLocation(), std::optional<QString>(QDir::homePath() + QStringLiteral("/Downloads")));
        // Construction loads the folder, speed, voice and account in that order.
        QVERIFY(log.containsInOrder({QStringLiteral("ℹ️ Using default download location: ") + QDir::homePath()
                                         + QStringLiteral("/Downloads"),
                                     QStringLiteral("ℹ️ No account linked yet")}));
    }

    void storedVoice_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<TTSVoice>("expected");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("openai voice") << "openai:nova" << TTSVoice::nova
                                      << QStringList{QStringLiteral("✅ Set selectedVoice to: nova")};
        QTest::newRow("provider compared lower-cased")
            << "OpenAI:shimmer" << TTSVoice::shimmer << QStringList{QStringLiteral("✅ Set selectedVoice to: shimmer")};
        QTest::newRow("voice compared as stored")
            << "openai:Nova" << TTSVoice::alloy
            << QStringList{QStringLiteral("⚠️ Unknown OpenAI voice: Nova, defaulting to alloy")};
        QTest::newRow("other provider")
            << "azure:en-US-AriaNeural" << TTSVoice::alloy
            << QStringList{QStringLiteral("⚠️ Non-OpenAI provider (azure) selected, but only OpenAI is currently "
                                          "supported for TTS"),
                           QStringLiteral("   Defaulting to OpenAI Alloy voice")};
        QTest::newRow("no provider") << "echo" << TTSVoice::alloy
                                     << QStringList{
                                            QStringLiteral("⚠️ Invalid voice format in UserDefaults: echo")};
        QTest::newRow("empty pieces dropped")
            << "::openai::onyx:" << TTSVoice::onyx << QStringList{QStringLiteral("✅ Set selectedVoice to: onyx")};
        QTest::newRow("three pieces") << "openai:nova:hd" << TTSVoice::alloy
                                      << QStringList{QStringLiteral(
                                             "⚠️ Invalid voice format in UserDefaults: openai:nova:hd")};
    }

    void storedVoice()
    {
        QFETCH(QString, stored);
        QFETCH(TTSVoice, expected);
        QFETCH(QStringList, lines);
        m_defaults->set(QStringLiteral("defaultVoice"), stored);
        test::LogCapture log;
        AppState state(*m_defaults);
        QCOMPARE(state.selectedVoice(), expected);
        lines.prepend(QStringLiteral("✅ Loaded default voice from UserDefaults: ") + stored);
        QVERIFY2(log.containsInOrder(lines), qPrintable(log.lines().join(u'\n')));
    }

    void storedSpeed_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<PlaybackSpeed>("expected");
        QTest::newRow("absent") << QVariant() << PlaybackSpeed::x1;
        QTest::newRow("zero means none") << QVariant(0.0) << PlaybackSpeed::x1;
        QTest::newRow("negative") << QVariant(-1.5) << PlaybackSpeed::x1;
        QTest::newRow("a selectable rate") << QVariant(1.75) << PlaybackSpeed::x1_75;
        QTest::newRow("three") << QVariant(3.0) << PlaybackSpeed::x3;
        QTest::newRow("between two rates") << QVariant(1.3) << PlaybackSpeed::x1;
        QTest::newRow("not a number") << QVariant(QStringLiteral("fast")) << PlaybackSpeed::x1;
    }

    void storedSpeed()
    {
        QFETCH(QVariant, stored);
        QFETCH(PlaybackSpeed, expected);
        if (stored.isValid())
            m_defaults->set(QStringLiteral("defaultSpeed"), stored);
        AppState state(*m_defaults);
        QCOMPARE(state.currentSpeed(), expected);
    }

    void account()
    {
        AppState state(*m_defaults);
        QSignalSpy linked(&state, &AppState::isAccountLinkedChanged);
        test::LogCapture log;

        state.setUserEmail(QString());
        QVERIFY(log.contains(QStringLiteral("⚠️ Cannot set empty email")));
        QVERIFY(!state.isAccountLinked());
        QVERIFY(!m_defaults->contains(QStringLiteral("userEmail")));

        state.setUserEmail(QStringLiteral("reader@example.org"));
        QCOMPARE(linked.count(), 1);
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("userEmail")), QStringLiteral("reader@example.org"));

        // The next launch finds the account.
        AppState relaunched(*m_defaults);
        QVERIFY(relaunched.isAccountLinked());
        QCOMPARE(relaunched.userEmail(), std::optional<QString>(QStringLiteral("reader@example.org")));

        relaunched.clearAccount();
        QVERIFY(!relaunched.userEmail().has_value());
        QVERIFY(!m_defaults->contains(QStringLiteral("userEmail")));
        QVERIFY(!AppState(*m_defaults).isAccountLinked());
    }

    // Against a real PostgreSQL behind the local PostgREST stand-in: the server's voice wins and is
    // kept, the local one is uploaded only when the server has none, unusable server voices change nothing.
    void voicePreferenceSyncBothWays()
    {
        test::PostgrestTestServer server;
        QVERIFY2(server.isReady(), qPrintable(server.failure()));
        server.execute(
            QStringLiteral("insert into public.app_users (device_id, email) values ('D1', 'ada@example.org')"));
        ManualClock clock;
        SupabaseService supabase({server.baseUrl(), test::PostgrestTestServer::apiKey}, *m_defaults, clock);
        const auto storedPreference = [&server]() -> QString {
            const QJsonObject row =
                server.rows(QStringLiteral("select preferred_provider, preferred_voice from public.app_users"))[0]
                    .toObject();
            return row.value(QStringLiteral("preferred_provider")).toString() + u':'
                   + row.value(QStringLiteral("preferred_voice")).toString();
        };
        test::LogCapture log;

        // No e-mail: nothing is asked.
        AppState unlinked(*m_defaults);
        unlinked.setSupabaseService(&supabase);
        QVERIFY(test::awaitTask(unlinked.syncVoicePreferenceFromSupabase()).finished);
        QVERIFY(log.contains(QStringLiteral("ℹ️ No email set, skipping voice preference sync")));
        QVERIFY(server.requests().isEmpty());

        // Neither side has one.
        m_defaults->set(QStringLiteral("userEmail"), QStringLiteral("ada@example.org"));
        AppState state(*m_defaults);
        state.setSupabaseService(&supabase);
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QVERIFY(log.contains(QStringLiteral("ℹ️ No voice preference in Supabase or locally, using default")));
        QCOMPARE(server.requests().size(), 1);

        // Only the local one: it is uploaded.
        state.saveDefaultVoice(TTSVoice::fable);
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QVERIFY(log.contains(
            QStringLiteral("ℹ️ No server preference found, uploading local preference: openai:fable")));
        QCOMPARE(storedPreference(), QStringLiteral("openai:fable"));

        // The server's one wins and becomes the default voice.
        server.execute(QStringLiteral("update public.app_users set preferred_voice = 'shimmer'"));
        QSignalSpy voiceChanged(&state, &AppState::selectedVoiceChanged);
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QCOMPARE(state.selectedVoice(), TTSVoice::shimmer);
        QCOMPARE(voiceChanged.count(), 1);
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("defaultVoice")), QStringLiteral("openai:shimmer"));
        QVERIFY(log.containsInOrder({QStringLiteral("✅ Applying voice preference from Supabase: openai:shimmer"),
                                     QStringLiteral("✅ Updated selectedVoice to: shimmer")}));
        QCOMPARE(storedPreference(), QStringLiteral("openai:shimmer"));

        // Another provider or an unknown voice keeps the current one, here and on the server.
        server.execute(QStringLiteral("update public.app_users set preferred_provider = 'elevenlabs'"));
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QVERIFY(log.contains(QStringLiteral("⚠️ Non-OpenAI voice from server: elevenlabs:shimmer")));
        server.execute(
            QStringLiteral("update public.app_users set preferred_provider = 'openai', preferred_voice = 'Nova'"));
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QVERIFY(log.contains(QStringLiteral("⚠️ Unknown OpenAI voice from server: Nova, keeping current")));
        QCOMPARE(state.selectedVoice(), TTSVoice::shimmer);
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("defaultVoice")), QStringLiteral("openai:shimmer"));
        QCOMPARE(storedPreference(), QStringLiteral("openai:Nova"));

        // An unreachable database leaves everything as it was.
        server.setFailureStatus(503);
        QVERIFY(test::awaitTask(state.syncVoicePreferenceFromSupabase()).finished);
        QCOMPARE(state.selectedVoice(), TTSVoice::shimmer);
        QCOMPARE(storedPreference(), QStringLiteral("openai:Nova"));
    }

    void downloadLocation()
    {
        const QString folder = m_env->root() + QStringLiteral("/exports");
        QDir().mkpath(folder);
        AppState state(*m_defaults);
        test::LogCapture log;

        state.setDownloadLocation(m_env->root() + QStringLiteral("/missing"));
        QVERIFY(log.lines().last().startsWith(QStringLiteral("❌ Failed to create bookmark for download location: ")));
        QVERIFY(!m_defaults->contains(QStringLiteral("downloadLocationBookmark")));

        state.setDownloadLocation(folder);
        QCOMPARE(state.downloadLocation(), std::optional<QString>(folder));
        QCOMPARE(AppState(*m_defaults).downloadLocation(), std::optional<QString>(folder));

        // A folder removed since it was chosen is stale: not used, and not replaced by Downloads.
        QVERIFY(QDir(folder).removeRecursively());
        log.clear();
        AppState afterRemoval(*m_defaults);
        QVERIFY(!afterRemoval.downloadLocation().has_value());
        QVERIFY(log.contains(QStringLiteral("⚠️ Download location bookmark is stale")));

        // Unreadable data falls back to Downloads.
        m_defaults->set(QStringLiteral("downloadLocationBookmark"), QByteArray("\xff\xfe not a path", 14));
        AppState withGarbage(*m_defaults);
        QCOMPARE(withGarbage.downloadLocation(),
                 std::optional<QString>(QDir::homePath() + QStringLiteral("/Downloads")));
    }

    void floatingPlayerSizeOutlivesARelaunch()
    {
        AppState(*m_defaults).setFloatingPlayerSize(QSizeF(320, 410));
        QCOMPARE(AppState(*m_defaults).floatingPlayerSize(), QSizeF(320, 410));

        // A size the window could never take, or no size at all, opens at the default.
        m_defaults->set(QStringLiteral("floatingPlayerSize"), QSizeF(5000, 10));
        QCOMPARE(AppState(*m_defaults).floatingPlayerSize(), QSizeF(280, 380));
        m_defaults->set(QStringLiteral("floatingPlayerSize"), QStringLiteral("huge"));
        QCOMPARE(AppState(*m_defaults).floatingPlayerSize(), QSizeF(280, 380));
        m_defaults->set(QStringLiteral("floatingPlayerSize"), QSizeF(qQNaN(), 400));
        QCOMPARE(AppState(*m_defaults).floatingPlayerSize(), QSizeF(280, 380));
    }

    void everyFieldNotifies()
    {
        // Views redraw from change signals: a property without one would silently go stale.
        AppState state(*m_defaults);
        const QMetaObject *meta = state.metaObject();
        QVERIFY(meta->propertyCount() - meta->propertyOffset() >= 36);
        for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
            QVERIFY2(meta->property(i).hasNotifySignal(), meta->property(i).name());

        QSignalSpy spy(&state, &AppState::processingMessageChanged);
        state.setProcessingMessage(QStringLiteral("Generating audio..."));
        state.setProcessingMessage(QStringLiteral("Generating audio..."));
        QCOMPARE(spy.count(), 1);
    }

private:
    std::unique_ptr<test::TestEnvironment> m_env;
    std::unique_ptr<Defaults> m_defaults;
};

QTEST_GUILESS_MAIN(TestAppState)
#include "tst_AppState.moc"
