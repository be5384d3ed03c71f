#pragma once

#include "speech/SpeechProvider.h"

namespace parlino {

class ModelSettings;
class OpenAIConnection;

// OpenAI's speech endpoint (POST /audio/speech), or any OpenAI-compatible server at the same address:
// one request per piece, the MP3 body handed on as it streams in.
class SpeechEndpointProvider final : public SpeechProvider {
public:
    static constexpr auto providerName = "openai-speech";

    SpeechEndpointProvider(OpenAIConnection &connection, ModelSettings &models);

    [[nodiscard]] QString name() const override;
    [[nodiscard]] QString model() const override;
    [[nodiscard]] QString cacheVoice(TTSVoice voice) const override;
    // One request; the piece in flight is always finished (it is paid for), so shouldStop is not asked.
    QCoro::Task<QString> synthesize(QString text, TTSVoice voice, double speed, AudioReceiver onAudio,
                                    StopCheck shouldStop) override;

private:
    OpenAIConnection &m_connection;
    ModelSettings &m_models;
};

} // namespace parlino
