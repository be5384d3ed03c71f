#include "app/ServicesProvider.h"

#include "ai/OpenAIClient.h"
#include "app/AppState.h"
#include "app/SpeechUsage.h"
#include "app/UserNotifier.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "speech/SpeechStream.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"
#include "usage/SpeechPrices.h"
#include "usage/UsageTrackingService.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QTemporaryFile>
#include <QUrl>

namespace parlino {

namespace {

const QString kNoTextSelected = QStringLiteral("No text selected");

// A few words of the text, for the player's title line.
QString preview(const QString &text)
{
    const QStringList words = text.simplified().split(u' ', Qt::SkipEmptyParts);
    QString title = words.mid(0, 8).join(u' ');
    if (words.size() > 8)
        title += QStringLiteral("…");
    return title;
}

QString describe(const std::exception &error)
{
    if (const auto *own = dynamic_cast<const Error *>(&error))
        return own->description();
    return QString::fromLocal8Bit(error.what());
}

// What tells the three flows apart in the log, on screen and in their messages.
struct FlowTexts {
    QString flowName; // for flowFinished()
    QString name;     // "processReadAloud" without "process"
    QString startMessage;
    QString titlePrefix;
    QString noun;       // "✅ Successfully generated <noun> audio"
    QString cacheNoun;  // "💾 Caching <cacheNoun> for replay..."
    QString cachedNoun; // "✅ <cachedNoun> cached successfully"
    QString failureLog;
    QString failurePrefix;
};

const FlowTexts &flowTexts(ServicesProvider::Flow flow)
{
    static const FlowTexts readAloud{QStringLiteral("readAloud"),
                                     QStringLiteral("ReadAloud"),
                                     QStringLiteral("Generating audio..."),
                                     QString(),
                                     QString(),
                                     QStringLiteral("audio"),
                                     QStringLiteral("Audio"),
                                     QStringLiteral("Read aloud"),
                                     QStringLiteral("Failed to generate audio: ")};
    static const FlowTexts readSummary{
        QStringLiteral("readSummary"),   QStringLiteral("ReadSummary"), QStringLiteral("Creating audio summary..."),
        QStringLiteral("Summary: "),     QStringLiteral("summary"),     QStringLiteral("summary audio"),
        QStringLiteral("Summary audio"), QStringLiteral("Summary"),     QStringLiteral("Failed to generate summary: ")};
    static const FlowTexts createPodcast{
        QStringLiteral("createPodcast"), QStringLiteral("CreatePodcast"), QStringLiteral("Creating podcast..."),
        QStringLiteral("Podcast: "),     QStringLiteral("podcast"),       QStringLiteral("podcast audio"),
        QStringLiteral("Podcast audio"), QStringLiteral("Podcast"),       QStringLiteral("Failed to create podcast: ")};
    switch (flow) {
    case ServicesProvider::Flow::readSummary: return readSummary;
    case ServicesProvider::Flow::createPodcast: return createPodcast;
    case ServicesProvider::Flow::readAloud: break;
    }
    return readAloud;
}

} // namespace

ServicesProvider::ServicesProvider(AppState &state, OpenAIClient &client, TTSCacheService &cache, PlayFunction play,
                                   UserNotifier &notifier, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_client(client)
    , m_cache(cache)
    , m_play(std::move(play))
    , m_notifier(notifier)
{
    connect(&m_client.speech(), &SpeechSynthesizer::readingOffline, this,
            [this](SpeechSynthesizer::OfflineReason reason) {
                if (reason == SpeechSynthesizer::OfflineReason::noConnection)
                    ++m_connectionFallbacks;
                m_state.setSpeechNotice(offlineNotice(reason));
            });
}

QString ServicesProvider::offlineNotice(SpeechSynthesizer::OfflineReason reason)
{
    switch (reason) {
    case SpeechSynthesizer::OfflineReason::noConnection:
        return QStringLiteral("No connection to OpenAI — reading with the offline voice");
    case SpeechSynthesizer::OfflineReason::noAPIKey: break;
    }
    return QStringLiteral("Offline voice — add an OpenAI key in Settings for natural voices");
}

bool ServicesProvider::readByCurrentVoice(int fallbacksAtStart) const
{
    if (m_connectionFallbacks == fallbacksAtStart)
        return true;
    PLOG(lcApp) << "💾 The offline voice stood in - keeping only the chunks for replay";
    return false;
}

ServicesProvider::~ServicesProvider() = default;

void ServicesProvider::beginFlow(const QString &text, const QString &message)
{
    m_state.setIsProcessing(true);
    m_state.setSpeechNotice(QString());
    m_state.setProcessingMessage(message);
    m_state.setProcessingProgress(0.0);
    m_state.setShowFloatingPlayer(true);
    m_state.setCurrentPlayingContext(text);
}

void ServicesProvider::failFlow(const QString &flow, const QString &message)
{
    m_state.setIsProcessing(false);
    m_state.setProcessingProgress(0.0);
    m_state.setShowFloatingPlayer(false);
    showError(message);
    Q_EMIT flowFinished(flow, message);
}

void ServicesProvider::finishAndPlay(const QString &flow, const QString &file)
{
    m_state.setIsProcessing(false);
    m_state.setProcessingProgress(1.0);
    m_play(QUrl::fromLocalFile(file));
    Q_EMIT flowFinished(flow, QString());
}

QCoro::Task<> ServicesProvider::processReadAloud(QString text)
{
    return runFlow(Flow::readAloud, std::move(text));
}

QCoro::Task<> ServicesProvider::processReadSummary(QString text)
{
    return runFlow(Flow::readSummary, std::move(text));
}

QCoro::Task<> ServicesProvider::processCreatePodcast(QString text)
{
    return runFlow(Flow::createPodcast, std::move(text));
}

QString ServicesProvider::checkLength(const QString &text)
{
    const qint64 limit = m_maxTextLength ? m_maxTextLength() : defaultMaxTextLength;
    const QString refusal = tooLongToReadMessage(characterCount(text), limit);
    if (!refusal.isEmpty()) {
        PLOG(lcApp) << "❌ Text refused before any request: " << characterCount(text) << " characters over the limit of "
                    << limit;
        showError(refusal);
    }
    return refusal;
}

QCoro::Task<> ServicesProvider::runFlow(Flow flow, QString text)
{
    const FlowTexts &texts = flowTexts(flow);
    PLOG(lcApp) << "🎯 process" << texts.name << " called with text length: " << text.size() << " characters";
    // A huge text would be hundreds of paid requests: it is refused before the first one.
    if (!checkLength(text).isEmpty())
        co_return;
    const quint64 serial = ++m_flowSerial;
    if (const std::shared_ptr<SpeechStream> running = m_flowStream.lock()) {
        PLOG(lcApp) << "⏹️ A new request replaces the reading still arriving";
        running->cancel();
    }
    const auto replaced = [this, serial] { return serial != m_flowSerial; };
    const auto endReplaced = [this, &texts] {
        PLOG(lcApp) << "⏹️ " << texts.failureLog << " replaced by a newer request";
        Q_EMIT flowFinished(texts.flowName, QString());
    };
    beginFlow(text, texts.startMessage);
    m_state.setCurrentPlayingTitle(texts.titlePrefix + preview(text));
    const TTSVoice voice = m_state.selectedVoice();
    const double speed = rawValue(m_state.currentSpeed());
    const int fallbacksAtStart = m_connectionFallbacks;
    QString file;
    std::shared_ptr<SpeechStream> stream;
    QElapsedTimer clock;
    clock.start();
    ReadingFigures figures;
    const auto firstAudio = std::make_shared<std::optional<qint64>>();
    try {
        // What is spoken: the text itself, or what the chat model wrote from it.
        QString spoken = text;
        if (flow == Flow::readSummary) {
            QCoro::Task<QString> summarizing = m_client.summarize(text, SummaryLength::medium);
            spoken = co_await summarizing;
            if (replaced())
                co_return endReplaced();
        } else if (flow == Flow::createPodcast) {
            QCoro::Task<QString> scripting = m_client.generatePodcastScript(text, m_state.selectedPodcastType());
            spoken = co_await scripting;
            if (replaced())
                co_return endReplaced();
            m_state.setProcessingMessage(QStringLiteral("Generating podcast audio..."));
        } else {
            PLOG(lcApp) << "🎤 Calling OpenAIClient.generateSpeech with text length: " << text.size()
                        << ", voice: " << identifier(voice);
        }

        if (m_playStream && m_streamingEnabled && m_streamingEnabled()) {
            // Sound starts with the first bytes; the flow ends when the last chunk has arrived.
            stream = std::make_shared<SpeechStream>();
            m_flowStream = stream;
            // The stream outlives this flow in the player, so the first audio's time is kept apart.
            connect(stream.get(), &SpeechStream::grown, this, [firstAudio, clock](double) {
                if (!*firstAudio)
                    *firstAudio = clock.elapsed();
            });
            m_playStream(stream);
            QCoro::Task<> streaming = m_client.streamSpeech(spoken, voice, speed, stream);
            co_await streaming;
            if (replaced())
                co_return endReplaced();
            if (stream->isCancelled()) {
                PLOG(lcApp) << "⏹️ " << texts.failureLog << " stopped by the listener";
                m_state.setIsProcessing(false);
                Q_EMIT flowFinished(texts.flowName, QString());
                co_return;
            }
            PLOG(lcApp) << "✅ Successfully streamed "
                        << (texts.noun.isEmpty() ? QStringLiteral("audio") : texts.noun + QStringLiteral(" audio"));
            figures.generationMs = clock.elapsed();
            figures.firstAudioMs = *firstAudio;
            figures.audioSeconds = stream->arrivedSeconds();
            if (!fitsInOneChunk(spoken) && readByCurrentVoice(fallbacksAtStart)) {
                // The chunks are cached; the whole text is too, so the same request replays at once.
                QCoro::Task<> caching = cacheWhole(stream->bytes(), spoken, m_client.speechCacheVoice(voice), speed);
                co_await caching;
            }
            recordUsage(flow, spoken, voice, figures);
            if (m_activityNotice)
                m_activityNotice();
            m_state.setIsProcessing(false);
            m_state.setProcessingProgress(1.0);
            Q_EMIT flowFinished(texts.flowName, QString());
            co_return;
        }

        QCoro::Task<QString> speech = m_client.generateSpeech(spoken, voice, speed, replaced);
        file = co_await speech;
        if (replaced()) {
            if (!file.isEmpty() && !m_cache.ownsFile(file))
                QFile::remove(file);
            co_return endReplaced();
        }
        figures.generationMs = clock.elapsed();
        if (flow == Flow::readAloud)
            PLOG(lcApp) << "✅ Successfully generated audio at: " << file;
        else
            PLOG(lcApp) << "✅ Successfully generated " << texts.noun << " audio";
        m_state.setProcessingProgress(0.5);

        if (flow == Flow::createPodcast) {
            QCoro::Task<QString> titling = m_client.generateAudioTitle(spoken);
            const QString title = co_await titling;
            if (replaced())
                co_return endReplaced();
            PLOG(lcApp) << "🏷️ Generated title: " << title;
            m_state.setCurrentPlayingTitle(title);
        }

        // The whole result is kept under the spoken text so the same request replays without
        // synthesis. A text that fits one request was already stored under that very key.
        PLOG(lcApp) << "💾 Caching " << texts.cacheNoun << " for replay...";
        if (!fitsInOneChunk(spoken) && readByCurrentVoice(fallbacksAtStart)) {
            const QString voiceId = m_client.speechCacheVoice(voice);
            QCoro::Task<> caching = m_cache.cacheAudio(file, spoken, voiceId, speed);
            co_await caching;
        }
        PLOG(lcApp) << "✅ " << texts.cachedNoun << " cached successfully";
        recordUsage(flow, spoken, voice, figures);
        if (m_activityNotice)
            m_activityNotice();
    } catch (const std::exception &error) {
        PLOG(lcApp) << "❌ " << texts.failureLog << " failed: " << describe(error);
        if (replaced())
            co_return endReplaced();
        if (stream && stream->arrivedSeconds() > 0) {
            // What arrived keeps playing in the open player; the failure is told once it has been heard.
            m_state.setIsProcessing(false);
            m_state.setProcessingProgress(0.0);
            showErrorAfterPlayback(texts.failurePrefix + describe(error));
            Q_EMIT flowFinished(texts.flowName, texts.failurePrefix + describe(error));
        } else {
            failFlow(texts.flowName, texts.failurePrefix + describe(error));
        }
        co_return;
    }
    if (replaced())
        co_return endReplaced();
    finishAndPlay(texts.flowName, file);
}

void ServicesProvider::enableUsageTracking(UsageTrackingService &usage)
{
    m_usage = &usage;
}

void ServicesProvider::enableActivityNotices(std::function<void()> notice)
{
    m_activityNotice = std::move(notice);
}

void ServicesProvider::recordUsage(Flow flow, const QString &spoken, TTSVoice voice, const ReadingFigures &figures)
{
    if (!m_usage)
        return;
    TTSUsageLog log = speechUsageLog(m_client, spoken, voice,
                                     flow == Flow::readSummary     ? QStringLiteral("read_summary")
                                     : flow == Flow::createPodcast ? QStringLiteral("podcast")
                                                                   : QStringLiteral("read_aloud"),
                                     QStringLiteral("unknown"));
    log.generationDurationMs = figures.generationMs;
    log.timeToFirstByteMs = figures.firstAudioMs;
    if (figures.audioSeconds)
        log.audioDurationMs = static_cast<qint64>(*figures.audioSeconds * 1000);
    if (figures.generationMs > 0)
        log.throughputCharsPerSec =
            static_cast<double>(log.characterCount) * 1000.0 / static_cast<double>(figures.generationMs);
    log.daysInPeriod = m_usage->getDaysInCurrentPeriod();
    const UsageEventType type = flow == Flow::readSummary     ? UsageEventType::readSummary
                                : flow == Flow::createPodcast ? UsageEventType::podcast
                                                              : UsageEventType::tts;
    m_usage->addUsageLog(log, type);
    PLOG(lcUsage) << "📊 Tracked TTS: " << log.characterCount << " chars | Provider: " << log.provider
                  << " | Model: " << log.modelName << " | Voice: " << log.voiceName << " | Feature: " << log.feature
                  << " | Source: " << log.requestSource
                  << " | Cost: " << QString::asprintf("%.4f", log.costCents() / 100.0) << " | Duration: "
                  << (log.audioDurationMs ? QString::number(*log.audioDurationMs) + QStringLiteral(" ms")
                                          : QStringLiteral("unknown"));
}

void ServicesProvider::enableStreaming(PlayStreamFunction playStream, std::function<bool()> isEnabled)
{
    m_playStream = std::move(playStream);
    m_streamingEnabled = std::move(isEnabled);
}

QCoro::Task<> ServicesProvider::cacheWhole(QByteArray mp3, QString text, QString voice, double speed)
{
    // Named like every temporary audio, so a start after a crash knows it as left over.
    QTemporaryFile file(Paths::newTemporaryFile(QStringLiteral("-XXXXXX.mp3")));
    if (!file.open() || file.write(mp3) != mp3.size() || !file.flush()) {
        PWARN(lcApp) << "⚠️ Could not keep the streamed audio for replay: " << file.errorString();
        co_return;
    }
    const QString path = file.fileName();
    QCoro::Task<> caching = m_cache.cacheAudio(path, text, voice, speed);
    co_await caching;
}

QString ServicesProvider::readAloud(const QString &text)
{
    if (text.isEmpty()) {
        showError(kNoTextSelected);
        return kNoTextSelected;
    }
    if (QString refusal = checkLength(text); !refusal.isEmpty())
        return refusal;
    processReadAloud(text);
    return {};
}

QString ServicesProvider::readSummary(const QString &text)
{
    if (text.isEmpty()) {
        showError(kNoTextSelected);
        return kNoTextSelected;
    }
    if (QString refusal = checkLength(text); !refusal.isEmpty())
        return refusal;
    processReadSummary(text);
    return {};
}

void ServicesProvider::showErrorAfterPlayback(const QString &message)
{
    if (!m_state.isPlaying()) {
        showError(message);
        return;
    }
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(&m_state, &AppState::isPlayingChanged, this, [this, connection, message] {
        if (m_state.isPlaying())
            return;
        disconnect(*connection);
        showError(message);
    });
}

void ServicesProvider::showError(const QString &message)
{
    PLOG(lcApp) << "❌ " << message;
    m_notifier.notify(QStringLiteral("Parlino"), message);
}

} // namespace parlino
