#pragma once

#include "ai/AIMessage.h"
#include "ai/PodcastMetadata.h"
#include "ai/PodcastType.h"
#include "ai/SummaryLength.h"
#include "speech/TTSVoice.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QUrl>
#include <QString>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

namespace parlino {

class AppState;
class Defaults;
class KeychainService;
class TTSCacheService;

// The one object that talks to OpenAI. Its speech side (this library) turns text of any length into an
// MP3 file; its chat side (summaries, answers, podcast scripts and titles) is compiled into the AI
// library, parlino_ai, which callers of those operations link.
//
// Failures reach the caller as OpenAIError (the service answered with something other than success, or
// an unusable answer) or NetworkError (no answer at all); nothing is retried.
class OpenAIClient final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds defaultRequestTimeout{60000};

    // apiKey: the key sent as bearer token (an absent key is sent empty and the service refuses it).
    // baseURL: the API root including "/v1". network: nullptr gives the client its own manager.
    OpenAIClient(std::optional<QString> apiKey, QString baseURL, AppState &appState, TTSCacheService &cache,
                 QNetworkAccessManager *network = nullptr, QObject *parent = nullptr);
    ~OpenAIClient() override;

    // Built on first use with lookUpAPIKey(), defaultBaseURL(), AppState::shared() and
    // TTSCacheService::shared(). The key is looked up once, when the client is created.
    static OpenAIClient &shared();

    // OPENAI_API_KEY from the environment, else the keyring item "openai_api_key", else the defaults
    // string "openai_api_key"; logs where it came from.
    [[nodiscard]] static std::optional<QString> lookUpAPIKey(KeychainService &keychain, Defaults &defaults);
    // OPENAI_BASE_URL when set (OpenAI-compatible servers, the test server), else OpenAI's own.
    [[nodiscard]] static QString defaultBaseURL();

    [[nodiscard]] const std::optional<QString> &apiKey() const { return m_apiKey; }
    [[nodiscard]] const QString &baseURL() const { return m_baseURL; }
    [[nodiscard]] TTSCacheService &cacheService() const { return m_cache; }
    // Idle time after which a request gives up; 60 s unless a test shortens it.
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_requestTimeout = timeout; }

    // ---- Speech ----

    // The MP3 file for text, read by voice at speed. Short texts are one request; long ones are split,
    // each piece looked up in the cache or requested in reading order, and the pieces' bytes joined.
    // Progress goes to the application state's processingProgress/processingMessage.
    // The returned file belongs to the caller, except a file inside the cache's folder (a cache hit
    // for a short text), which the caller must not delete.
    QCoro::Task<QString> generateSpeech(QString text, TTSVoice voice, double speed);

    // ---- Chat (parlino_ai) ----

    // A spoken-style summary of text.
    QCoro::Task<QString> summarize(QString text, SummaryLength targetLength);
    // An answer about the text being read; only the last six turns of history are sent.
    QCoro::Task<QString> answerQuestion(QString question, QString context, QList<AIMessage> conversationHistory);
    // A podcast script for text in the given style.
    QCoro::Task<QString> generatePodcastScript(QString text, PodcastType podcastType);
    // Title and summary for a finished script; sourceText is accepted for callers' convenience, not sent.
    QCoro::Task<PodcastMetadata> generatePodcastMetadata(QString script, QString sourceText);
    // A short hyphenated title for file names ("Market-Analysis-Report"), trimmed, otherwise as written.
    QCoro::Task<QString> generateAudioTitle(QString context);

private:
    struct HttpAnswer {
        int statusCode = 0;
        QByteArray body;
    };

    // One request for at most maxChunkSize characters; a new MP3 file in the temporary folder.
    QCoro::Task<QString> generateSpeechChunk(QString text, TTSVoice voice, double speed);
    QCoro::Task<QString> generateMultiChunkSpeech(QString text, TTSVoice voice, double speed);
    // responseFormat: sent as "response_format" unless empty.
    QCoro::Task<QString> chatCompletion(QJsonArray messages, double temperature, int maxTokens,
                                        QJsonObject responseFormat);

    // baseURL + path, or nothing when that is no usable URL.
    [[nodiscard]] std::optional<QUrl> endpoint(const QString &path) const;
    // POSTs body as JSON with the key; any HTTP answer comes back, whatever its status.
    QCoro::Task<HttpAnswer> postJSON(QUrl url, QJsonObject body);
    void publishProgress(double progress, const QString &message);

    std::optional<QString> m_apiKey;
    QString m_baseURL;
    AppState &m_appState;
    TTSCacheService &m_cache;
    QNetworkAccessManager *m_network;
    std::chrono::milliseconds m_requestTimeout = defaultRequestTimeout;
};

// The body of a failed answer as the error's message: its UTF-8 text, "Unknown error" when it is not UTF-8.
[[nodiscard]] QString errorMessageFromBody(const QByteArray &body);

} // namespace parlino
