#pragma once

#include "speech/SpeechProvider.h"

#include <QStringList>

namespace parlino {

class ModelSettings;
class OpenAIConnection;

// OpenAI's Realtime API as a reader: a WebSocket session whose model is told to read the text aloud
// word for word. The text goes in sentence-sized pieces, one response each, so every word is sent
// once and in order and no answer grows long enough to drift. The 24 kHz PCM audio that comes back
// is encoded to MP3 as it arrives, for the player and the cache alike. The model may still reword a
// piece; what it said (its transcript) is compared with the text and differences are logged.
class RealtimeSpeechProvider final : public SpeechProvider {
public:
    static constexpr auto providerName = "openai-realtime";
    static constexpr int sampleRate = 24000;

    RealtimeSpeechProvider(OpenAIConnection &connection, ModelSettings &models);

    [[nodiscard]] QString name() const override;
    [[nodiscard]] QString model() const override;
    // The Realtime voice that reads for `voice`: the same name where the Realtime API has it, else
    // the nearest one (see realtimeVoice()).
    [[nodiscard]] QString cacheVoice(TTSVoice voice) const override;
    QCoro::Task<QString> synthesize(QString text, TTSVoice voice, double speed, AudioReceiver onAudio,
                                    StopCheck shouldStop) override;

    // The Realtime API has alloy, echo and shimmer of the six speech voices; fable, onyx and nova are
    // read by the closest of its own voices.
    [[nodiscard]] static QString realtimeVoice(TTSVoice voice);
    [[nodiscard]] static bool hasOwnVoice(TTSVoice voice);
    // What the model is told: read the given text exactly, in its language, and nothing else.
    [[nodiscard]] static QString readingInstructions();
    // Words that differ between the text and what the model said, as "expected → heard" spans;
    // empty when they match (case, punctuation and spacing aside).
    [[nodiscard]] static QStringList transcriptDifferences(const QString &text, const QString &transcript);

private:
    OpenAIConnection &m_connection;
    ModelSettings &m_models;
};

} // namespace parlino
