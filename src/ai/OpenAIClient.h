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
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

namespace parlino {

class ModelSettings;
class OpenAIConnection;
class SpeechStream;
class SpeechSynthesizer;

// The one object through which the app talks to OpenAI: speech (handed to the speech machinery) and
// the chat requests (summaries, answers, podcast scripts and titles), all over one connection.
//
// Failures reach the caller as OpenAIError (the service answered with something other than success, or
// an unusable answer) or NetworkError (no answer at all). The one request that is made again is one
// refused because its model is retired: it goes once more to the successor, which the settings keep.
class OpenAIClient final : public QObject {
    Q_OBJECT
public:
    OpenAIClient(OpenAIConnection &connection, SpeechSynthesizer &speech, ModelSettings &models,
                 QObject *parent = nullptr);
    ~OpenAIClient() override;

    [[nodiscard]] OpenAIConnection &connection() const { return m_connection; }
    // The speech machinery behind generateSpeech() and streamSpeech(), for what it tells about a reading.
    [[nodiscard]] SpeechSynthesizer &speech() const { return m_speech; }

    // ---- Speech ----

    // The MP3 file for text, read by voice at speed (see SpeechSynthesizer::generateSpeech). The
    // returned file belongs to the caller, except a file inside the cache's folder (a cache hit for a
    // short text), which the caller must not delete. An empty path when shouldStop ended it early.
    QCoro::Task<QString> generateSpeech(QString text, TTSVoice voice, double speed,
                                        std::function<bool()> shouldStop = {});
    // The same speech delivered into `stream` as it arrives (see SpeechSynthesizer::streamSpeech).
    QCoro::Task<> streamSpeech(QString text, TTSVoice voice, double speed, std::shared_ptr<SpeechStream> stream);
    // The voice part of the cache key for speech read now in `voice` (the provider's own voice).
    [[nodiscard]] QString speechCacheVoice(TTSVoice voice) const;
    // The provider and model that read now ("openai-realtime", "gpt-realtime-2.1-mini"), for usage logs.
    [[nodiscard]] QString speechProviderName() const;
    [[nodiscard]] QString speechModelName() const;

    // ---- Chat ----

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
    // responseFormat: sent as "response_format" unless empty. The settings' chat model answers, or its
    // successor once the service has retired it.
    QCoro::Task<QString> chatCompletion(QJsonArray messages, double temperature, int maxTokens,
                                        QJsonObject responseFormat);
    // One request to `model`, shaped as that model takes it.
    QCoro::Task<QString> chatCompletionWith(QString model, QJsonArray messages, double temperature, int maxTokens,
                                            QJsonObject responseFormat);

    OpenAIConnection &m_connection;
    SpeechSynthesizer &m_speech;
    ModelSettings &m_models;
};

} // namespace parlino
