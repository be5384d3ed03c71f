#include "speech/SpeechSynthesizer.h"

#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "speech/SpeechStream.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>

namespace parlino {

namespace {

const QString speechModel = QStringLiteral("tts-1");

// A new file in the temporary folder named by a fresh UUID, holding data.
QString writeTemporaryMp3(const QByteArray &data)
{
    QString path = Paths::temporary() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()
                   + QStringLiteral(".mp3");
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit())
        throw Error(QStringLiteral("Could not write the audio file ") + path + QStringLiteral(": ")
                    + file.errorString());
    return path;
}

} // namespace

SpeechSynthesizer::SpeechSynthesizer(OpenAIConnection &connection, TTSCacheService &cache, QObject *parent)
    : QObject(parent)
    , m_connection(connection)
    , m_cache(cache)
{
}

SpeechSynthesizer::~SpeechSynthesizer() = default;

QCoro::Task<QString> SpeechSynthesizer::generateSpeechChunk(QString text, TTSVoice voice, double speed,
                                                            OpenAIConnection::BodyReceiver onBody)
{
    PLOG(lcSpeech) << "🎙️ generateSpeechChunk called with " << characterCount(text) << " characters";
    PLOG(lcSpeech) << "   - Voice: " << identifier(voice) << " (rawValue: " << identifier(voice) << ')';
    PLOG(lcSpeech) << "   - Speed: " << TTSCacheService::speedText(speed);

    const auto url = m_connection.endpoint(QStringLiteral("/audio/speech"));
    if (!url)
        throw OpenAIError::invalidURL();

    const QJsonObject body{{QStringLiteral("model"), speechModel},
                           {QStringLiteral("input"), text},
                           {QStringLiteral("voice"), identifier(voice)},
                           {QStringLiteral("speed"), speed}};

    PLOG(lcSpeech) << "📤 Sending TTS request to OpenAI";
    PLOG(lcSpeech) << "   - Endpoint: " << url->toString();
    PLOG(lcSpeech) << "   - Input text length: " << characterCount(text);
    PLOG(lcSpeech) << "   - Voice being sent to API: '" << identifier(voice) << '\'';

    QCoro::Task<OpenAIConnection::HttpAnswer> posting = m_connection.postJSON(*url, body, onBody);
    const OpenAIConnection::HttpAnswer answer = co_await posting;

    PLOG(lcSpeech) << "📥 Received response from OpenAI";
    PLOG(lcSpeech) << "   - Status code: " << answer.statusCode;
    PLOG(lcSpeech) << "   - Response size: " << answer.body.size() << " bytes";

    if (answer.statusCode != 200) {
        const QString message = errorMessageFromBody(answer.body);
        PLOG(lcSpeech) << "❌ OpenAI API error: " << answer.statusCode;
        PLOG(lcSpeech) << "   - Error response: " << message;
        throw OpenAIError::apiError(answer.statusCode, message);
    }
    co_return writeTemporaryMp3(answer.body);
}

QCoro::Task<QString> SpeechSynthesizer::generateSpeech(QString text, TTSVoice voice, double speed)
{
    const int length = characterCount(text);
    PLOG(lcSpeech) << "🔍 OpenAIClient.generateSpeech called";
    PLOG(lcSpeech) << "   - Text length: " << length << " characters";
    PLOG(lcSpeech) << "   - Voice: " << identifier(voice);
    PLOG(lcSpeech) << "   - Max chunk size: " << maxChunkSize;

    // No temporaries inside co_await expressions: GCC 12 destroys them twice.
    const QString voiceId = identifier(voice);
    try {
        if (length > maxChunkSize)
            co_return co_await generateMultiChunkSpeech(text, voice, speed);

        PLOG(lcSpeech) << "✅ Text is within limit, processing as single chunk";
        if (auto cached = co_await m_cache.getCachedAudio(text, voiceId, speed)) {
            PLOG(lcSpeech) << "💾 Cache HIT for single chunk - returning cached audio";
            co_return *cached;
        }
        PLOG(lcSpeech) << "💾 Cache MISS for single chunk - generating new audio";
        QCoro::Task<QString> request = generateSpeechChunk(text, voice, speed);
        const QString generated = co_await request;
        co_await m_cache.cacheAudio(generated, text, voiceId, speed);
        PLOG(lcSpeech) << "💾 Cached new audio for single chunk";
        co_return generated;
    } catch (const Error &error) {
        PLOG(lcSpeech) << "❌ TTS generation failed: " << error.description();
        throw;
    }
}

QCoro::Task<QString> SpeechSynthesizer::generateMultiChunkSpeech(QString text, TTSVoice voice, double speed)
{
    PLOG(lcSpeech) << "⚠️ Text exceeds " << maxChunkSize << " characters, splitting into chunks...";
    const QStringList chunks = splitTextIntoChunks(text, maxChunkSize);
    const qsizetype n = chunks.size();
    PLOG(lcSpeech) << "📝 Splitting text into " << n;
    if (n == 0)
        throw Error(QStringLiteral("The text has nothing to read aloud"));

    // Strictly one request after another, in reading order.
    const QString voiceId = identifier(voice);
    QStringList chunkFiles;
    for (qsizetype i = 0; i < n; ++i) {
        Q_EMIT progressChanged(0.5 + 0.4 * static_cast<double>(i) / static_cast<double>(n),
                               QStringLiteral("Generating audio (%1/%2 chunks)...").arg(i + 1).arg(n));
        PLOG(lcSpeech) << "🎙️ Generating audio for chunk " << (i + 1) << '/' << n;
        const QString &chunk = chunks[i];
        if (auto cached = co_await m_cache.getCachedAudio(chunk, voiceId, speed)) {
            PLOG(lcSpeech) << "💾 Cache HIT for chunk " << (i + 1);
            chunkFiles.append(*cached);
            continue;
        }
        PLOG(lcSpeech) << "💾 Cache MISS for chunk " << (i + 1);
        QCoro::Task<QString> request = generateSpeechChunk(chunk, voice, speed);
        const QString generated = co_await request;
        co_await m_cache.cacheAudio(generated, chunk, voiceId, speed);
        PLOG(lcSpeech) << "💾 Cached chunk " << (i + 1);
        chunkFiles.append(generated);
    }

    // MP3 frames stand alone, so the streams are joined byte for byte.
    QByteArray combined;
    for (const QString &path : std::as_const(chunkFiles)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            throw Error(QStringLiteral("Could not read the audio file ") + path + QStringLiteral(": ")
                        + file.errorString());
        combined += file.readAll();
        file.close();
        // The cache's own files stay; the chunks generated for this call are ours to remove.
        if (!m_cache.ownsFile(path))
            QFile::remove(path);
    }
    const QString result = writeTemporaryMp3(combined);
    PLOG(lcSpeech) << "✅ Combined " << n << " audio chunks into single file";
    co_return result;
}

QCoro::Task<> SpeechSynthesizer::streamSpeech(QString text, TTSVoice voice, double speed,
                                              std::shared_ptr<SpeechStream> stream)
{
    // The same pieces, requests and cache keys as generateSpeech(); only the delivery differs.
    const QStringList chunks = fitsInOneChunk(text) ? QStringList{text} : splitTextIntoChunks(text, maxChunkSize);
    const qsizetype n = chunks.size();
    const QString voiceId = identifier(voice);
    PLOG(lcSpeech) << "🔍 Streaming speech: " << characterCount(text) << " characters in " << n << " chunk(s), voice "
                   << voiceId;
    try {
        if (n == 0)
            throw Error(QStringLiteral("The text has nothing to read aloud"));
        for (qsizetype i = 0; i < n; ++i) {
            if (stream->isCancelled()) {
                PLOG(lcSpeech) << "⏹️ Reading stopped - chunk " << (i + 1) << '/' << n
                               << " and later not requested";
                co_return;
            }
            if (n > 1)
                Q_EMIT progressChanged(0.5 + 0.4 * static_cast<double>(i) / static_cast<double>(n),
                                       QStringLiteral("Generating audio (%1/%2 chunks)...").arg(i + 1).arg(n));
            const QString &chunk = chunks[i];
            QCoro::Task<std::optional<QString>> lookup = m_cache.getCachedAudio(chunk, voiceId, speed);
            if (const std::optional<QString> cached = co_await lookup) {
                PLOG(lcSpeech) << "💾 Cache HIT for chunk " << (i + 1);
                QFile file(*cached);
                if (!file.open(QIODevice::ReadOnly))
                    throw Error(QStringLiteral("Could not read the audio file ") + *cached + QStringLiteral(": ")
                                + file.errorString());
                stream->append(file.readAll());
                continue;
            }
            PLOG(lcSpeech) << "💾 Cache MISS for chunk " << (i + 1);
            // Sound starts with the first bytes. A chunk whose reading was stopped still arrives whole
            // and is cached (it is paid for), but the closed stream takes no more of it.
            QCoro::Task<QString> request =
                generateSpeechChunk(chunk, voice, speed, [stream](const QByteArray &piece) { stream->append(piece); });
            const QString generated = co_await request;
            QCoro::Task<> caching = m_cache.cacheAudio(generated, chunk, voiceId, speed);
            co_await caching;
            QFile::remove(generated);
            PLOG(lcSpeech) << "💾 Cached chunk " << (i + 1);
        }
        stream->finish();
    } catch (const Error &error) {
        PLOG(lcSpeech) << "❌ TTS generation failed: " << error.description();
        stream->fail(error.description());
        throw;
    }
}

} // namespace parlino
