#include "AwaitTask.h"
#include "FileBytes.h"
#include "LocalOpenAI.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "OpenAITestServer.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "app/AppState.h"
#include "app/PodcastService.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "usage/UsageTrackingService.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

namespace {

// The file's length as ffprobe decodes it, standing in for the player engine's measurement.
QCoro::Task<double> measuredSeconds(QString path)
{
    co_return decodedSeconds(path);
}

const QString metadataAnswer =
    QStringLiteral(R"({"title": "Tides Explained", "summary": "The moon pulls. The sea follows."})");

} // namespace

class PodcastServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void aGeneratedPodcastIsSpokenStoredAndPlayed();
    void aFailedStepStoresAndPlaysNothing();

private:
    TestEnvironment m_env;
    LocalOpenAI m_openAI{m_env};
    Defaults &m_defaults = m_openAI.defaults;
    OpenAITestServer &m_server = m_openAI.server;
    ModelSettings &m_models = m_openAI.models;
    OpenAIClient &m_client = m_openAI.client;
    ManualClock m_clock{QDateTime(QDate(2026, 2, 3), QTime(10, 30), Qt::UTC)};
    AppState m_state{m_defaults};
    PodcastStorageService m_storage;
    QList<Podcast> m_played;
    PodcastManager m_podcasts{m_storage, [this](const Podcast &podcast) { m_played.append(podcast); }};
    PodcastService m_service{m_client, m_podcasts, m_state, measuredSeconds, m_clock};
    UsageTrackingService m_usage{m_defaults, m_clock};
    QStringList m_progress;
    int m_activityNotices = 0;
};

void PodcastServiceTest::initTestCase()
{
    connect(&m_state, &AppState::podcastGenerationProgressChanged, this,
            [this] { m_progress.append(m_state.podcastGenerationProgress()); });
    m_service.enableActivityNotices([this] { ++m_activityNotices; });
    m_service.enableUsageTracking(m_usage);
}

void PodcastServiceTest::init()
{
    m_server.clearFailures();
    m_server.clearRequests();
    m_server.setChatContent(metadataAnswer);
    m_played.clear();
    m_progress.clear();
    m_activityNotices = 0;
}

void PodcastServiceTest::aGeneratedPodcastIsSpokenStoredAndPlayed()
{
    m_state.setSelectedVoice(TTSVoice::nova);
    LogCapture log;
    const QString source = QStringLiteral("The tides rise and fall twice a day because of the moon.");
    const auto outcome = awaitTask(m_service.generatePodcast(source, PodcastType::deepDive));
    QVERIFY2(outcome.value, qPrintable(outcome.error.value_or(QString())));
    const Podcast podcast = *outcome.value;

    QCOMPARE(m_progress, (QStringList{u"Analyzing content..."_qs, u"Creating podcast script..."_qs,
                                      u"Generating audio..."_qs, u"Complete!"_qs}));
    QCOMPARE(podcast.title, QStringLiteral("Tides Explained"));
    QCOMPARE(podcast.summary, QStringLiteral("The moon pulls. The sea follows."));
    QCOMPARE(podcast.podcastType, QStringLiteral("Deep Dive"));
    QCOMPARE(podcast.sourceText, source);
    QCOMPARE(podcast.generationDate, m_clock.now());
    QCOMPARE(podcast.wordCount, 10); // the script (the server's one answer) has ten whitespace-separated words

    // Spoken once, the whole script, at the normal speed in the chosen voice.
    const auto speech = m_server.requests(QStringLiteral("/audio/speech"));
    QCOMPARE(speech.size(), 1);
    QCOMPARE(speech[0].json.value(u"input").toString(), metadataAnswer);
    QCOMPARE(speech[0].json.value(u"speed").toDouble(), 1.0);
    QCOMPARE(speech[0].json.value(u"voice").toString(), QStringLiteral("nova"));

    // Stored in the library with its measured length, and playing.
    const QString stored = podcast.audioURL.toLocalFile();
    QVERIFY(stored.startsWith(PodcastStorageService::defaultFolder() + u'/'));
    QVERIFY(podcast.duration > 0.5);
    QCOMPARE(podcast.duration, decodedSeconds(stored));
    QCOMPARE(m_storage.loadAllPodcasts(), QList<Podcast>{podcast});
    QCOMPARE(m_podcasts.savedPodcasts(), QList<Podcast>{podcast});
    QCOMPARE(m_played, QList<Podcast>{podcast});
    QCOMPARE(m_activityNotices, 1);
    // Counted once, as a podcast, with the script's characters and the voice that read it.
    QCOMPARE(m_usage.usageLogs().size(), 1);
    QCOMPARE(m_usage.monthlyStats().podcastCount, 1);
    const TTSUsageLog &logged = m_usage.usageLogs().first();
    QCOMPARE(logged.characterCount, metadataAnswer.size());
    QCOMPARE(logged.voiceName, QStringLiteral("nova"));
    QCOMPARE(logged.feature, QStringLiteral("podcast"));
    QCOMPARE(logged.audioDurationMs, static_cast<qint64>(podcast.duration * 1000));
    QVERIFY(log.containsInOrder({u"🎙️ Starting podcast generation..."_qs, u"   - Type: Deep Dive"_qs,
                                 u"📝 Step 1: Generating podcast script..."_qs, u"📋 Step 2: Generating metadata..."_qs,
                                 u"🎤 Step 3: Converting to speech..."_qs, u"⏱️ Step 4: Calculating duration..."_qs,
                                 u"💾 Step 5: Saving podcast..."_qs, u"▶️ Step 6: Auto-playing podcast..."_qs,
                                 u"✅ Podcast generation complete!"_qs}));
}

void PodcastServiceTest::aFailedStepStoresAndPlaysNothing()
{
    const QStringList before = QDir(m_storage.folder()).entryList(QDir::Files);
    const QByteArray index = readBytes(m_storage.indexPath());

    // The script comes, its title and summary do not.
    m_server.setChatFailure(OpenAITestServer::Failure::error(500, "{\"error\":{\"message\":\"overloaded\"}}"), 1);
    const auto failed = awaitTask(m_service.generatePodcast(QStringLiteral("Some text."), PodcastType::educational));
    QVERIFY(failed.finished);
    QVERIFY(failed.error);
    QCOMPARE(m_server.requests(QStringLiteral("/chat/completions")).size(), 2);
    QVERIFY(m_server.requests(QStringLiteral("/audio/speech")).isEmpty());
    QVERIFY(!m_progress.contains(QStringLiteral("Complete!")));
    QCOMPARE(m_activityNotices, 0);
    QCOMPARE(m_usage.usageLogs().size(), 1); // only the podcast made before

    // Speech fails after a whole script and metadata (another voice, so the cache cannot answer).
    m_server.clearFailures();
    m_state.setSelectedVoice(TTSVoice::shimmer);
    m_server.setSpeechFailure(OpenAITestServer::Failure::error(500, "{\"error\":{\"message\":\"down\"}}"));
    QVERIFY(awaitTask(m_service.generatePodcast(QStringLiteral("Other text."), PodcastType::business)).error);

    QCOMPARE(QDir(m_storage.folder()).entryList(QDir::Files), before);
    QCOMPARE(readBytes(m_storage.indexPath()), index);
    QVERIFY(m_played.isEmpty());
}

QTEST_GUILESS_MAIN(PodcastServiceTest)
#include "tst_PodcastService.moc"
