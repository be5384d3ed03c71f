#include "app/PodcastService.h"

#include "ai/OpenAIClient.h"
#include "app/AppState.h"
#include "app/SpeechUsage.h"
#include "core/Clock.h"
#include "core/Logging.h"
#include "library/PodcastManager.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "usage/UsageTrackingService.h"

#include <QFile>
#include <QRegularExpression>
#include <QUuid>

namespace parlino {

namespace {

int countWords(const QString &text)
{
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    return static_cast<int>(text.split(whitespace, Qt::SkipEmptyParts).size());
}

} // namespace

PodcastService::PodcastService(OpenAIClient &client, PodcastManager &podcasts, AppState &state,
                               DurationFunction duration, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_client(client)
    , m_podcasts(podcasts)
    , m_state(state)
    , m_duration(std::move(duration))
    , m_clock(clock)
{
}

QCoro::Task<Podcast> PodcastService::generatePodcast(QString text, PodcastType type)
{
    PLOG(lcAi) << "🎙️ Starting podcast generation...";
    PLOG(lcAi) << "   - Type: " << rawValue(type);
    PLOG(lcAi) << "   - Source text length: " << text.size() << " characters";
    m_state.setPodcastGenerationProgress(QStringLiteral("Analyzing content..."));

    PLOG(lcAi) << "📝 Step 1: Generating podcast script...";
    QCoro::Task<QString> scripting = m_client.generatePodcastScript(text, type);
    const QString script = co_await scripting;
    m_state.setPodcastGenerationProgress(QStringLiteral("Creating podcast script..."));

    PLOG(lcAi) << "📋 Step 2: Generating metadata...";
    QCoro::Task<PodcastMetadata> describing = m_client.generatePodcastMetadata(script, text);
    const PodcastMetadata metadata = co_await describing;

    m_state.setPodcastGenerationProgress(QStringLiteral("Generating audio..."));
    PLOG(lcAi) << "🎤 Step 3: Converting to speech...";
    // Always spoken at the normal speed: the listener's speed applies when it plays.
    const TTSVoice voice = m_state.selectedVoice();
    const auto speechStarted = m_clock.now();
    QCoro::Task<QString> speaking = m_client.generateSpeech(script, voice, 1.0);
    const QString audioPath = co_await speaking;
    const qint64 generationMs = speechStarted.msecsTo(m_clock.now());
    // The synthesis output is the caller's to remove unless the cache holds it.
    const bool ownAudio = !m_client.speech().cacheService().ownsFile(audioPath);

    Podcast stored;
    try {
        PLOG(lcAi) << "⏱️ Step 4: Calculating duration...";
        QCoro::Task<double> measuring = m_duration(audioPath);
        const double duration = co_await measuring;

        Podcast podcast;
        podcast.id = QUuid::createUuid();
        podcast.title = metadata.title;
        podcast.summary = metadata.summary;
        podcast.generationDate = m_clock.now();
        podcast.duration = duration;
        podcast.audioURL = QUrl::fromLocalFile(audioPath);
        podcast.sourceText = text;
        podcast.podcastType = rawValue(type);
        podcast.wordCount = countWords(script);

        PLOG(lcAi) << "💾 Step 5: Saving podcast...";
        QCoro::Task<Podcast> saving = m_podcasts.save(podcast);
        stored = co_await saving;
    } catch (...) {
        if (ownAudio)
            QFile::remove(audioPath);
        throw;
    }
    if (ownAudio)
        QFile::remove(audioPath);

    if (m_usage) {
        TTSUsageLog log = speechUsageLog(m_client, script, voice, QStringLiteral("podcast"), QStringLiteral("podcast"));
        log.generationDurationMs = generationMs;
        log.audioDurationMs = static_cast<qint64>(stored.duration * 1000);
        log.daysInPeriod = m_usage->getDaysInCurrentPeriod();
        m_usage->addUsageLog(log, UsageEventType::podcast);
        PLOG(lcUsage) << "📊 Tracked podcast: " << log.characterCount << " chars | Provider: " << log.provider
                      << " | Model: " << log.modelName << " | Voice: " << log.voiceName;
    }
    m_state.setPodcastGenerationProgress(QStringLiteral("Complete!"));
    if (m_activityNotice)
        m_activityNotice();
    PLOG(lcAi) << "▶️ Step 6: Auto-playing podcast...";
    m_podcasts.playPodcast(stored);
    PLOG(lcAi) << "✅ Podcast generation complete!";
    co_return stored;
}

} // namespace parlino
