#pragma once

#include "speech/TTSVoice.h"

#include <QByteArray>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>

namespace parlino {

// One service that turns a piece of text (at most one chunk) into MP3 speech. SpeechSynthesizer
// chooses the provider, splits long texts, asks the cache first and keeps what the provider made.
class SpeechProvider {
public:
    // MP3 bytes as they are made, in order; joined they are the whole piece's audio.
    using AudioReceiver = std::function<void(const QByteArray &mp3)>;
    // Asked between the parts of a piece that a provider makes in several steps: true once the
    // listener stopped, so the provider can end early and save the rest of the request.
    using StopCheck = std::function<bool()>;

    SpeechProvider() = default;
    virtual ~SpeechProvider() = default;
    SpeechProvider(const SpeechProvider &) = delete;
    SpeechProvider &operator=(const SpeechProvider &) = delete;

    // The settings value that selects this provider ("openai-speech", "openai-realtime", "offline").
    [[nodiscard]] virtual QString name() const = 0;
    // The model that will answer the next request, for log lines and usage records.
    [[nodiscard]] virtual QString model() const = 0;
    // The voice that really speaks for `voice`; it is the voice part of the cache key, so audio of
    // different voices never mixes in the cache.
    [[nodiscard]] virtual QString cacheVoice(TTSVoice voice) const = 0;
    // True for a provider that needs neither an OpenAI key nor a network: it reads when no key is
    // configured and stands in when OpenAI cannot be reached.
    [[nodiscard]] virtual bool worksOffline() const { return false; }

    // Speaks `text` and returns a new MP3 file in the temporary folder, which belongs to the caller.
    // onAudio (when set) sees the MP3 bytes as they arrive. Returns an empty path when shouldStop
    // said yes before the piece was complete: nothing whole was made, so nothing is to be kept.
    // Failures are thrown: OpenAIError when the service refused, NetworkError when it could not be
    // reached or the answer broke off.
    virtual QCoro::Task<QString> synthesize(QString text, TTSVoice voice, double speed, AudioReceiver onAudio,
                                            StopCheck shouldStop) = 0;
};

} // namespace parlino
