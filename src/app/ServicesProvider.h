#pragma once

#include "speech/SpeechSynthesizer.h"
#include "speech/TTSVoice.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

class QUrl;

namespace parlino {

class AppState;
class OpenAIClient;
class SpeechStream;
class TTSCacheService;
class UsageTrackingService;
class UserNotifier;

// Turns captured text into playing audio: read aloud, a spoken summary, or a quick podcast. Each flow
// reports its progress through the application state (which shows the floating player), caches the
// result so the same request replays without synthesis, and ends in the player. Failures reach the
// user as a desktop notification with the flow's own message.
class ServicesProvider final : public QObject {
    Q_OBJECT
public:
    using PlayFunction = std::function<void(const QUrl &)>;
    using PlayStreamFunction = std::function<void(std::shared_ptr<SpeechStream>)>;

    ServicesProvider(AppState &state, OpenAIClient &client, TTSCacheService &cache, PlayFunction play,
                     UserNotifier &notifier, QObject *parent = nullptr);
    ~ServicesProvider() override;

    enum class Flow { readAloud, readSummary, createPodcast };

    // Speech is played while it arrives, through playStream, whenever isEnabled() says so at the start
    // of a flow; otherwise (and without this call) the whole file is made first, then played.
    void enableStreaming(PlayStreamFunction playStream, std::function<bool()> isEnabled);
    // Every finished reading is logged in the usage account from then on.
    void enableUsageTracking(UsageTrackingService &usage);
    // Called after every finished reading, summary and podcast (the linked account's activity notice).
    void enableActivityNotices(std::function<void()> notice);
    // The longest text a flow accepts, asked at the start of each; a longer one is refused before any
    // request. Without this call the default limit applies.
    void setMaxTextLength(std::function<qint64()> maxLength) { m_maxTextLength = std::move(maxLength); }

    // One flow runs at a time: starting one replaces the flow still running, which then requests
    // nothing more and neither plays nor reports anything.
    QCoro::Task<> processReadAloud(QString text);
    QCoro::Task<> processReadSummary(QString text);
    QCoro::Task<> processCreatePodcast(QString text);

    // The desktop entry points (D-Bus Services, command line): start a flow for the text, or return the
    // error text: "No text selected" when there is none, the length refusal when it is too long.
    [[nodiscard]] QString readAloud(const QString &text);
    [[nodiscard]] QString readSummary(const QString &text);

    void showError(const QString &message);
    // The same once the player has stopped playing (at once when it is not playing).
    void showErrorAfterPlayback(const QString &message);

    // The floating player's line for a reading that the offline voice reads instead of the chosen one.
    [[nodiscard]] static QString offlineNotice(SpeechSynthesizer::OfflineReason reason);

Q_SIGNALS:
    // A flow ended; `error` is empty on success. For observers such as the tests and the benchmarks.
    void flowFinished(const QString &flow, const QString &error);

private:
    // The frame the three flows share: progress in the application state, the speech, the cache
    // entry for replay, and the player, or the flow's own failure message.
    QCoro::Task<> runFlow(Flow flow, QString text);
    // Keeps a streamed reading's whole audio in the cache under its text.
    QCoro::Task<> cacheWhole(QByteArray mp3, QString text, QString voice, double speed);
    // Whether a reading's whole audio may be kept under the voice that reads now: not when the offline
    // voice stood in since `fallbacksAtStart`, as the audio is then (partly) another voice's.
    [[nodiscard]] bool readByCurrentVoice(int fallbacksAtStart) const;
    void beginFlow(const QString &text, const QString &message);
    void failFlow(const QString &flow, const QString &message);
    void finishAndPlay(const QString &flow, const QString &file);
    // One usage log for a finished reading: what was spoken, by whom, how fast and for how long.
    struct ReadingFigures {
        qint64 generationMs = 0;
        std::optional<qint64> firstAudioMs;
        std::optional<double> audioSeconds;
    };
    void recordUsage(Flow flow, const QString &spoken, TTSVoice voice, const ReadingFigures &figures);

    // The refusal (shown to the user) for a text over the limit; empty when it may be read.
    [[nodiscard]] QString checkLength(const QString &text);

    AppState &m_state;
    std::function<qint64()> m_maxTextLength;
    OpenAIClient &m_client;
    TTSCacheService &m_cache;
    PlayFunction m_play;
    PlayStreamFunction m_playStream;
    std::function<bool()> m_streamingEnabled;
    UserNotifier &m_notifier;
    UsageTrackingService *m_usage = nullptr;
    std::function<void()> m_activityNotice;
    // Readings that went on offline because OpenAI could not be reached, so far.
    int m_connectionFallbacks = 0;
    // The number of the newest flow; an older one has been replaced and requests nothing more.
    quint64 m_flowSerial = 0;
    // The speech of the newest flow while it arrives, cancelled when a newer flow replaces it.
    std::weak_ptr<SpeechStream> m_flowStream;
};

} // namespace parlino
