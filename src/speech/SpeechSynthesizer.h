#pragma once

#include "speech/SpeechProvider.h"
#include "speech/TTSVoice.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <memory>
#include <vector>

namespace parlino {

class ModelSettings;
class SpeechStream;
class TTSCacheService;

// Turns text of any length into MP3 speech through the chosen speech provider. Short texts are one
// request; long ones are split at sentence ends so every request stays under the API limit, each
// piece looked up in the cache or requested in reading order, and the pieces' bytes joined.
//
// A provider whose model the service has retired is switched to its successor (the settings keep the
// switch, and ModelSettings tells whoever listens), and the request is made once more.
class SpeechSynthesizer final : public QObject {
    Q_OBJECT
public:
    SpeechSynthesizer(TTSCacheService &cache, ModelSettings &models, QObject *parent = nullptr);
    ~SpeechSynthesizer() override;

    // Makes a provider available under its name(); the first added reads when the settings name none.
    SpeechProvider &addProvider(std::unique_ptr<SpeechProvider> provider);
    // The provider the settings choose ("speechProvider"), else the first one added.
    [[nodiscard]] SpeechProvider &currentProvider() const;
    // The voice part of cache keys for audio read now in `voice`.
    [[nodiscard]] QString cacheVoice(TTSVoice voice) const;

    [[nodiscard]] TTSCacheService &cacheService() const { return m_cache; }

    // The MP3 file for text, read by voice at speed; progress is announced with progressChanged().
    // The returned file belongs to the caller, except a file inside the cache's folder (a cache hit
    // for a short text), which the caller must not delete.
    QCoro::Task<QString> generateSpeech(QString text, TTSVoice voice, double speed);

    // The same speech delivered into `stream` as it arrives, so playback can start with the first
    // bytes: the pieces are requested one at a time, the next as soon as the previous has arrived, and
    // each is cached once it is complete (a body cut short never is). The stream finishes at the end or
    // fails with the error, which is also thrown; once the stream is cancelled no further piece is
    // requested.
    QCoro::Task<> streamSpeech(QString text, TTSVoice voice, double speed, std::shared_ptr<SpeechStream> stream);

Q_SIGNALS:
    // Progress through a long text: 0.5 to 0.9 while its pieces are made, with a line for the user.
    void progressChanged(double progress, const QString &message);

private:
    // One piece of at most maxChunkSize characters from the current provider: a new MP3 file in the
    // temporary folder, or an empty path when shouldStop ended it early. A refusal because the model
    // is retired switches to the successor and asks once more.
    QCoro::Task<QString> generateSpeechChunk(QString text, TTSVoice voice, double speed,
                                             SpeechProvider::AudioReceiver onAudio = {},
                                             SpeechProvider::StopCheck shouldStop = {});
    QCoro::Task<QString> generateMultiChunkSpeech(QString text, TTSVoice voice, double speed);
    // Switches the settings away from the provider's retired model; true when a successor now reads.
    bool switchFromRetiredModel(const SpeechProvider &provider);

    TTSCacheService &m_cache;
    ModelSettings &m_models;
    std::vector<std::unique_ptr<SpeechProvider>> m_providers;
};

} // namespace parlino
