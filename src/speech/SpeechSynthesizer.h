#pragma once

#include "backend/OpenAIConnection.h"
#include "speech/TTSVoice.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <memory>

namespace parlino {

class SpeechStream;
class TTSCacheService;

// Turns text of any length into one MP3 file through OpenAI's speech endpoint. Short texts are one
// request; long ones are split at sentence ends so every request stays under the API limit, each
// piece looked up in the cache or requested in reading order, and the pieces' bytes joined.
class SpeechSynthesizer final : public QObject {
    Q_OBJECT
public:
    SpeechSynthesizer(OpenAIConnection &connection, TTSCacheService &cache, QObject *parent = nullptr);
    ~SpeechSynthesizer() override;

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
    // One request for at most maxChunkSize characters; a new MP3 file in the temporary folder.
    // onBody sees the MP3 bytes as they arrive.
    QCoro::Task<QString> generateSpeechChunk(QString text, TTSVoice voice, double speed,
                                             OpenAIConnection::BodyReceiver onBody = {});
    QCoro::Task<QString> generateMultiChunkSpeech(QString text, TTSVoice voice, double speed);

    OpenAIConnection &m_connection;
    TTSCacheService &m_cache;
};

} // namespace parlino
