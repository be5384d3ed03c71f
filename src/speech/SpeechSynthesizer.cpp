#include "speech/SpeechSynthesizer.h"

#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/NetworkError.h"
#include "backend/OpenAIError.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "speech/RealtimeSpeechProvider.h"
#include "speech/SpeechStream.h"
#include "speech/TTSCacheService.h"
#include "speech/TemporaryAudio.h"
#include "speech/TextChunker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace parlino {

namespace {

// The bytes of an audio file the reading needs whole; a file that cannot be read fails the reading.
QByteArray readAudioFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Error(QStringLiteral("Could not read the audio file ") + path + QStringLiteral(": ")
                    + file.errorString());
    return file.readAll();
}

} // namespace

SpeechSynthesizer::SpeechSynthesizer(TTSCacheService &cache, ModelSettings &models, std::function<bool()> hasAPIKey,
                                     QObject *parent)
    : QObject(parent)
    , m_cache(cache)
    , m_models(models)
    , m_hasAPIKey(std::move(hasAPIKey))
{
}

SpeechSynthesizer::~SpeechSynthesizer() = default;

SpeechProvider &SpeechSynthesizer::addProvider(std::unique_ptr<SpeechProvider> provider)
{
    m_providers.push_back(std::move(provider));
    return *m_providers.back();
}

SpeechProvider *SpeechSynthesizer::provider(const QString &name) const
{
    for (const auto &provider : m_providers) {
        if (provider->name() == name)
            return provider.get();
    }
    return nullptr;
}

bool SpeechSynthesizer::useProvider(const QString &name)
{
    SpeechProvider *named = provider(name);
    if (!named)
        return false;
    m_chosenProvider = named;
    return true;
}

SpeechProvider *SpeechSynthesizer::offlineProvider() const
{
    for (const auto &provider : m_providers) {
        if (provider->worksOffline())
            return provider.get();
    }
    return nullptr;
}

SpeechProvider &SpeechSynthesizer::currentProvider() const
{
    Q_ASSERT(!m_providers.empty());
    if (m_chosenProvider)
        return *m_chosenProvider;
    SpeechProvider *chosen = provider(m_models.speechProvider());
    if (!chosen)
        chosen = m_providers.front().get();
    if (!chosen->worksOffline() && m_hasAPIKey && !m_hasAPIKey()) {
        if (SpeechProvider *offline = offlineProvider())
            return *offline;
    }
    return *chosen;
}

SpeechProvider &SpeechSynthesizer::readerOf(const Reading &reading) const
{
    SpeechProvider *offline = reading.offline ? offlineProvider() : nullptr;
    return offline ? *offline : currentProvider();
}

QString SpeechSynthesizer::cacheVoice(TTSVoice voice) const
{
    return currentProvider().cacheVoice(voice);
}

bool SpeechSynthesizer::readsOfflineAfter(const NetworkError &error)
{
    switch (error.code()) {
    case QNetworkReply::ConnectionRefusedError:       // nothing listens there (or a firewall says no)
    case QNetworkReply::HostNotFoundError:            // no name service: offline, or the host is unknown
    case QNetworkReply::TemporaryNetworkFailureError: // the system has no network
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:     // no route to the host, network down
    case QNetworkReply::SslHandshakeFailedError: // a captive portal or an intercepting firewall
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyNotFoundError:
    case QNetworkReply::ProxyTimeoutError:
    case QNetworkReply::UnknownProxyError: return true;
    default:
        // Time-outs and connections the server closed: a server was reached, so the reading fails
        // as before rather than changing voice behind a slow or broken answer.
        return false;
    }
}

void SpeechSynthesizer::announceReading()
{
    const SpeechProvider &reader = currentProvider();
    if (!reader.worksOffline() || m_chosenProvider == &reader)
        return;
    const SpeechProvider *chosen = provider(m_models.speechProvider());
    if (chosen && chosen->worksOffline())
        return; // the user's own choice needs no explanation
    PLOG(lcSpeech) << "ℹ️ No OpenAI key configured - reading with the offline voice";
    Q_EMIT readingOffline(OfflineReason::noAPIKey, QString());
}

bool SpeechSynthesizer::switchFromRetiredModel(const SpeechProvider &provider)
{
    const QString retired = provider.model();
    const ModelRole role = provider.name() == QLatin1String(RealtimeSpeechProvider::providerName)
                               ? ModelRole::realtimeSpeech
                               : ModelRole::speech;
    m_models.switchToSuccessor(role, retired);
    // Another reading may have switched first; either way the retry goes to whatever reads now.
    const SpeechProvider &now = currentProvider();
    return &now != &provider || now.model() != retired;
}

QCoro::Task<QString> SpeechSynthesizer::generateSpeechChunk(QString text, TTSVoice voice, double speed,
                                                            Reading &reading, SpeechProvider::AudioReceiver onAudio,
                                                            SpeechProvider::StopCheck shouldStop)
{
    SpeechProvider *provider = &readerOf(reading);
    // Whether the listener has heard any of this chunk: an answer that broke off after that is no
    // missing connection, and reading it again offline would repeat what was heard.
    auto heard = std::make_shared<bool>(false);
    SpeechProvider::AudioReceiver receiver;
    if (onAudio) {
        receiver = [heard, onAudio](const QByteArray &piece) {
            *heard = true;
            onAudio(piece);
        };
    }
    std::optional<OpenAIError> refused;
    std::optional<NetworkError> unreachable;
    try {
        QCoro::Task<QString> asking = provider->synthesize(text, voice, speed, receiver, shouldStop);
        co_return co_await asking;
    } catch (const OpenAIError &error) {
        if (!ModelCatalogue::isRetirementError(error))
            throw;
        refused = error;
    } catch (const NetworkError &error) {
        SpeechProvider *offline = offlineProvider();
        if (provider->worksOffline() || !offline || *heard || !readsOfflineAfter(error))
            throw;
        unreachable = error;
    }
    if (unreachable) {
        PWARN(lcSpeech) << "📡 No connection to OpenAI (" << unreachable->description()
                        << ") - reading with the offline voice";
        reading.offline = true;
        Q_EMIT readingOffline(OfflineReason::noConnection, unreachable->description());
        QCoro::Task<QString> offline = offlineProvider()->synthesize(text, voice, speed, onAudio, shouldStop);
        co_return co_await offline;
    }
    PLOG(lcSpeech) << "🔄 The service has retired " << provider->model() << " - switching to its successor";
    if (!switchFromRetiredModel(*provider))
        throw *refused;
    SpeechProvider &successor = currentProvider();
    PLOG(lcSpeech) << "🔄 Asking again through " << successor.name() << " with " << successor.model();
    QCoro::Task<QString> again = successor.synthesize(text, voice, speed, onAudio, shouldStop);
    co_return co_await again;
}

QCoro::Task<QString> SpeechSynthesizer::generateSpeech(QString text, TTSVoice voice, double speed,
                                                       SpeechProvider::StopCheck shouldStop)
{
    const int length = characterCount(text);
    PLOG(lcSpeech) << "🔍 OpenAIClient.generateSpeech called";
    PLOG(lcSpeech) << "   - Text length: " << length << " characters";
    PLOG(lcSpeech) << "   - Voice: " << identifier(voice);
    PLOG(lcSpeech) << "   - Max chunk size: " << maxChunkSize;

    // No temporaries inside co_await expressions: GCC 12 destroys them twice.
    const QString voiceId = cacheVoice(voice);
    try {
        if (length > maxChunkSize) {
            QCoro::Task<QString> chunked = generateMultiChunkSpeech(text, voice, speed, shouldStop);
            co_return co_await chunked;
        }
        announceReading();

        PLOG(lcSpeech) << "✅ Text is within limit, processing as single chunk";
        if (auto cached = co_await m_cache.getCachedAudio(text, voiceId, speed)) {
            PLOG(lcSpeech) << "💾 Cache HIT for single chunk - returning cached audio";
            co_return *cached;
        }
        PLOG(lcSpeech) << "💾 Cache MISS for single chunk - generating new audio";
        Reading reading;
        QCoro::Task<QString> request = generateSpeechChunk(text, voice, speed, reading, {}, shouldStop);
        const QString generated = co_await request;
        if (generated.isEmpty())
            co_return QString();
        // A retired model may have been replaced meanwhile, or the offline voice stood in: the key
        // names the voice that really read.
        const QString readBy = readerOf(reading).cacheVoice(voice);
        co_await m_cache.cacheAudio(generated, text, readBy, speed);
        PLOG(lcSpeech) << "💾 Cached new audio for single chunk";
        co_return generated;
    } catch (const Error &error) {
        PLOG(lcSpeech) << "❌ TTS generation failed: " << error.description();
        throw;
    }
}

QCoro::Task<QString> SpeechSynthesizer::generateMultiChunkSpeech(QString text, TTSVoice voice, double speed,
                                                                 SpeechProvider::StopCheck shouldStop)
{
    PLOG(lcSpeech) << "⚠️ Text exceeds " << maxChunkSize << " characters, splitting into chunks...";
    const QStringList chunks = splitTextIntoChunks(text, maxChunkSize);
    const qsizetype n = chunks.size();
    PLOG(lcSpeech) << "📝 Splitting text into " << n;
    if (n == 0)
        throw Error(QStringLiteral("The text has nothing to read aloud"));
    announceReading();

    // Strictly one request after another, in reading order.
    Reading reading;
    QStringList chunkFiles;
    const auto dropGenerated = [this](const QStringList &files) {
        for (const QString &path : files) {
            if (!m_cache.ownsFile(path))
                QFile::remove(path);
        }
    };
    for (qsizetype i = 0; i < n; ++i) {
        if (shouldStop && shouldStop()) {
            PLOG(lcSpeech) << "⏹️ Reading stopped before chunk " << (i + 1) << '/' << n;
            dropGenerated(chunkFiles);
            co_return QString();
        }
        Q_EMIT progressChanged(0.5 + 0.4 * static_cast<double>(i) / static_cast<double>(n),
                               QStringLiteral("Generating audio (%1/%2 chunks)...").arg(i + 1).arg(n));
        PLOG(lcSpeech) << "🎙️ Generating audio for chunk " << (i + 1) << '/' << n;
        const QString &chunk = chunks[i];
        const QString voiceId = readerOf(reading).cacheVoice(voice);
        if (auto cached = co_await m_cache.getCachedAudio(chunk, voiceId, speed)) {
            PLOG(lcSpeech) << "💾 Cache HIT for chunk " << (i + 1);
            chunkFiles.append(*cached);
            continue;
        }
        PLOG(lcSpeech) << "💾 Cache MISS for chunk " << (i + 1);
        QCoro::Task<QString> request = generateSpeechChunk(chunk, voice, speed, reading, {}, shouldStop);
        const QString generated = co_await request;
        if (generated.isEmpty()) {
            dropGenerated(chunkFiles);
            co_return QString();
        }
        const QString readBy = readerOf(reading).cacheVoice(voice);
        co_await m_cache.cacheAudio(generated, chunk, readBy, speed);
        PLOG(lcSpeech) << "💾 Cached chunk " << (i + 1);
        chunkFiles.append(generated);
    }

    // MP3 frames stand alone, so the streams are joined byte for byte.
    QByteArray combined;
    for (const QString &path : std::as_const(chunkFiles)) {
        combined += readAudioFile(path);
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
    PLOG(lcSpeech) << "🔍 Streaming speech: " << characterCount(text) << " characters in " << n << " chunk(s), voice "
                   << identifier(voice) << " through " << currentProvider().name();
    Reading reading;
    try {
        if (n == 0)
            throw Error(QStringLiteral("The text has nothing to read aloud"));
        announceReading();
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
            const QString voiceId = readerOf(reading).cacheVoice(voice);
            QCoro::Task<std::optional<QString>> lookup = m_cache.getCachedAudio(chunk, voiceId, speed);
            if (const std::optional<QString> cached = co_await lookup) {
                PLOG(lcSpeech) << "💾 Cache HIT for chunk " << (i + 1);
                stream->append(readAudioFile(*cached));
                continue;
            }
            PLOG(lcSpeech) << "💾 Cache MISS for chunk " << (i + 1);
            // Sound starts with the first bytes. A chunk whose reading was stopped still arrives whole
            // and is cached (it is paid for), but the closed stream takes no more of it.
            QCoro::Task<QString> request = generateSpeechChunk(
                chunk, voice, speed, reading, [stream](const QByteArray &piece) { stream->append(piece); },
                [stream] { return stream->isCancelled(); });
            const QString generated = co_await request;
            if (generated.isEmpty()) {
                PLOG(lcSpeech) << "⏹️ Reading stopped - chunk " << (i + 1) << '/' << n << " left unfinished";
                co_return;
            }
            const QString readBy = readerOf(reading).cacheVoice(voice);
            QCoro::Task<> caching = m_cache.cacheAudio(generated, chunk, readBy, speed);
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
