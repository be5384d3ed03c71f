#include "app/ServicesProvider.h"

#include "app/AppState.h"
#include "app/UserNotifier.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "playback/AudioPlayerManager.h"
#include "platform/linux/DesktopNotifier.h"
#include "speech/OpenAIClient.h"
#include "speech/TTSCacheService.h"

#include <QCoreApplication>
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
}

ServicesProvider::~ServicesProvider() = default;

ServicesProvider &ServicesProvider::shared()
{
    static DesktopNotifier notifier;
    static auto *instance = new ServicesProvider(
        AppState::shared(), OpenAIClient::shared(), TTSCacheService::shared(),
        [](const QUrl &url) { AudioPlayerManager::shared().play(url); }, notifier, qApp);
    return *instance;
}

void ServicesProvider::beginFlow(const QString &text, const QString &message)
{
    m_state.setIsProcessing(true);
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
    const QString flow = QStringLiteral("readAloud");
    PLOG(lcApp) << "🎯 processReadAloud called with text length: " << text.size() << " characters";
    beginFlow(text, QStringLiteral("Generating audio..."));
    m_state.setCurrentPlayingTitle(preview(text));
    const TTSVoice voice = m_state.selectedVoice();
    const double speed = rawValue(m_state.currentSpeed());
    const QString voiceId = identifier(voice);
    QString file;
    try {
        PLOG(lcApp) << "🎤 Calling OpenAIClient.generateSpeech with text length: " << text.size()
                    << ", voice: " << voiceId;
        QCoro::Task<QString> speech = m_client.generateSpeech(text, voice, speed);
        file = co_await speech;
        PLOG(lcApp) << "✅ Successfully generated audio at: " << file;
        m_state.setProcessingProgress(0.5);
        PLOG(lcApp) << "💾 Caching audio for replay...";
        QCoro::Task<> caching = m_cache.cacheAudio(file, text, voiceId, speed);
        co_await caching;
        PLOG(lcApp) << "✅ Audio cached successfully";
    } catch (const std::exception &error) {
        PLOG(lcApp) << "❌ Read aloud failed: " << describe(error);
        failFlow(flow, QStringLiteral("Failed to generate audio: ") + describe(error));
        co_return;
    }
    finishAndPlay(flow, file);
}

QCoro::Task<> ServicesProvider::processReadSummary(QString text)
{
    const QString flow = QStringLiteral("readSummary");
    PLOG(lcApp) << "🎯 processReadSummary called with text length: " << text.size() << " characters";
    beginFlow(text, QStringLiteral("Creating audio summary..."));
    m_state.setCurrentPlayingTitle(QStringLiteral("Summary: ") + preview(text));
    const TTSVoice voice = m_state.selectedVoice();
    const double speed = rawValue(m_state.currentSpeed());
    const QString voiceId = identifier(voice);
    QString file;
    try {
        QCoro::Task<QString> summarizing = m_client.summarize(text, SummaryLength::medium);
        const QString summary = co_await summarizing;
        QCoro::Task<QString> speech = m_client.generateSpeech(summary, voice, speed);
        file = co_await speech;
        PLOG(lcApp) << "✅ Successfully generated summary audio";
        m_state.setProcessingProgress(0.5);
        PLOG(lcApp) << "💾 Caching summary audio for replay...";
        QCoro::Task<> caching = m_cache.cacheAudio(file, summary, voiceId, speed);
        co_await caching;
        PLOG(lcApp) << "✅ Summary audio cached successfully";
    } catch (const std::exception &error) {
        PLOG(lcApp) << "❌ Summary failed: " << describe(error);
        failFlow(flow, QStringLiteral("Failed to generate summary: ") + describe(error));
        co_return;
    }
    finishAndPlay(flow, file);
}

QCoro::Task<> ServicesProvider::processCreatePodcast(QString text)
{
    const QString flow = QStringLiteral("createPodcast");
    PLOG(lcApp) << "🎯 processCreatePodcast called with text length: " << text.size() << " characters";
    beginFlow(text, QStringLiteral("Creating podcast..."));
    m_state.setCurrentPlayingTitle(QStringLiteral("Podcast: ") + preview(text));
    const TTSVoice voice = m_state.selectedVoice();
    const double speed = rawValue(m_state.currentSpeed());
    const QString voiceId = identifier(voice);
    QString file;
    try {
        QCoro::Task<QString> scripting = m_client.generatePodcastScript(text, m_state.selectedPodcastType());
        const QString script = co_await scripting;
        m_state.setProcessingMessage(QStringLiteral("Generating podcast audio..."));
        QCoro::Task<QString> speech = m_client.generateSpeech(script, voice, speed);
        file = co_await speech;
        PLOG(lcApp) << "✅ Successfully generated podcast audio";
        m_state.setProcessingProgress(0.5);
        QCoro::Task<QString> titling = m_client.generateAudioTitle(script);
        const QString title = co_await titling;
        PLOG(lcApp) << "🏷️ Generated title: " << title;
        m_state.setCurrentPlayingTitle(title);
        PLOG(lcApp) << "💾 Caching podcast audio for replay...";
        QCoro::Task<> caching = m_cache.cacheAudio(file, script, voiceId, speed);
        co_await caching;
        PLOG(lcApp) << "✅ Podcast audio cached successfully";
    } catch (const std::exception &error) {
        PLOG(lcApp) << "❌ Podcast failed: " << describe(error);
        failFlow(flow, QStringLiteral("Failed to create podcast: ") + describe(error));
        co_return;
    }
    finishAndPlay(flow, file);
}

QString ServicesProvider::readAloud(const QString &text)
{
    if (text.isEmpty()) {
        showError(kNoTextSelected);
        return kNoTextSelected;
    }
    processReadAloud(text);
    return {};
}

QString ServicesProvider::readSummary(const QString &text)
{
    if (text.isEmpty()) {
        showError(kNoTextSelected);
        return kNoTextSelected;
    }
    processReadSummary(text);
    return {};
}

void ServicesProvider::showError(const QString &message)
{
    PLOG(lcApp) << "❌ " << message;
    m_notifier.notify(QStringLiteral("Parlino"), message);
}

} // namespace parlino
