#pragma once

#include "speech/SpeechProvider.h"
#include "speech/TTSVoice.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <vector>

namespace parlino {

class ModelSettings;
class NetworkError;
class SpeechStream;
class TTSCacheService;

// Turns text of any length into MP3 speech through the chosen speech provider. Short texts are one
// request; long ones are split at sentence ends so every request stays under the API limit, each
// piece looked up in the cache or requested in reading order, and the pieces' bytes joined.
//
// A provider whose model the service has retired is switched to its successor (the settings keep the
// switch, and ModelSettings tells whoever listens), and the request is made once more.
//
// A provider that works offline (eSpeak NG) reads when no OpenAI key is configured, and stands in for
// the rest of a reading when OpenAI cannot be reached at all (see readsOfflineAfter()), so the reading
// is not lost; readingOffline() says why.
class SpeechSynthesizer final : public QObject {
    Q_OBJECT
public:
    enum class OfflineReason {
        noAPIKey,     // no key is configured, so OpenAI's providers cannot be used
        noConnection, // an OpenAI request found no server to answer it
    };
    Q_ENUM(OfflineReason)

    // hasAPIKey: whether an OpenAI key is configured; without it a key is taken to be there.
    SpeechSynthesizer(TTSCacheService &cache, ModelSettings &models, std::function<bool()> hasAPIKey = {},
                      QObject *parent = nullptr);
    ~SpeechSynthesizer() override;

    // Makes a provider available under its name(); the first added reads when the settings name none.
    SpeechProvider &addProvider(std::unique_ptr<SpeechProvider> provider);
    // The provider called `name`, or nullptr.
    [[nodiscard]] SpeechProvider *provider(const QString &name) const;
    // Reads through the provider called `name` from now on, whatever the settings and the key say (the
    // command line's --provider); false, with nothing changed, when there is none of that name.
    bool useProvider(const QString &name);
    // The provider chosen with useProvider(); else the one the settings choose ("speechProvider", else
    // the first added), except that with no OpenAI key a provider that works offline reads instead.
    [[nodiscard]] SpeechProvider &currentProvider() const;
    // The voice part of cache keys for audio read now in `voice`.
    [[nodiscard]] QString cacheVoice(TTSVoice voice) const;

    // Whether a reading goes on with the offline voice after this failure of an OpenAI request: true
    // when no server could be reached (connection refused, unknown host, no network or no route, the
    // proxy unreachable, a TLS handshake that failed); false for a time-out or a connection the server
    // closed, where a server was reached. Refusals (a bad key, a server error) are no NetworkError.
    [[nodiscard]] static bool readsOfflineAfter(const NetworkError &error);

    [[nodiscard]] TTSCacheService &cacheService() const { return m_cache; }

    // The MP3 file for text, read by voice at speed; progress is announced with progressChanged().
    // The returned file belongs to the caller, except a file inside the cache's folder (a cache hit
    // for a short text), which the caller must not delete. Once shouldStop says so, no further piece is
    // requested and the result is an empty path.
    QCoro::Task<QString> generateSpeech(QString text, TTSVoice voice, double speed,
                                        SpeechProvider::StopCheck shouldStop = {});

    // The same speech delivered into `stream` as it arrives, so playback can start with the first
    // bytes: the pieces are requested one at a time, the next as soon as the previous has arrived, and
    // each is cached once it is complete (a body cut short never is). The stream finishes at the end or
    // fails with the error, which is also thrown; once the stream is cancelled no further piece is
    // requested.
    QCoro::Task<> streamSpeech(QString text, TTSVoice voice, double speed, std::shared_ptr<SpeechStream> stream);

Q_SIGNALS:
    // Progress through a long text: 0.5 to 0.9 while its pieces are made, with a line for the user.
    void progressChanged(double progress, const QString &message);
    // A reading is read by the offline voice although another provider was chosen: at its start when
    // no key is configured, or when OpenAI could not be reached (`detail` is the connection's error).
    void readingOffline(parlino::SpeechSynthesizer::OfflineReason reason, const QString &detail);

private:
    // What one reading (all chunks of one text) has found out so far.
    struct Reading {
        // OpenAI could not be reached: the rest of the reading goes to the offline provider.
        bool offline = false;
    };

    // The provider that reads the reading's next chunk.
    [[nodiscard]] SpeechProvider &readerOf(const Reading &reading) const;
    [[nodiscard]] SpeechProvider *offlineProvider() const;
    // Announces a reading that starts offline for want of a key.
    void announceReading();
    // One piece of at most maxChunkSize characters from the reading's provider: a new MP3 file in the
    // temporary folder, or an empty path when shouldStop ended it early. A refusal because the model
    // is retired switches to the successor and asks once more; a request that reached no server is
    // read by the offline provider, as is the rest of the reading.
    QCoro::Task<QString> generateSpeechChunk(QString text, TTSVoice voice, double speed, Reading &reading,
                                             SpeechProvider::AudioReceiver onAudio = {},
                                             SpeechProvider::StopCheck shouldStop = {});
    QCoro::Task<QString> generateMultiChunkSpeech(QString text, TTSVoice voice, double speed,
                                                  SpeechProvider::StopCheck shouldStop);
    // Switches the settings away from the provider's retired model; true when a successor now reads.
    bool switchFromRetiredModel(const SpeechProvider &provider);

    TTSCacheService &m_cache;
    ModelSettings &m_models;
    std::function<bool()> m_hasAPIKey;
    std::vector<std::unique_ptr<SpeechProvider>> m_providers;
    SpeechProvider *m_chosenProvider = nullptr;
};

} // namespace parlino
