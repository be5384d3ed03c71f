#include "speech/OpenAIClient.h"

#include "app/AppState.h"
#include "backend/KeychainService.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "speech/NetworkError.h"
#include "speech/OpenAIError.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QStringDecoder>
#include <QUuid>

#include <qcoro/qcoronetworkreply.h>

#include <memory>

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

QString errorMessageFromBody(const QByteArray &body)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(body);
    if (decoder.hasError())
        return QStringLiteral("Unknown error");
    return text;
}

OpenAIClient::OpenAIClient(std::optional<QString> apiKey, QString baseURL, AppState &appState, TTSCacheService &cache,
                           QNetworkAccessManager *network, QObject *parent)
    : QObject(parent)
    , m_apiKey(std::move(apiKey))
    , m_baseURL(std::move(baseURL))
    , m_appState(appState)
    , m_cache(cache)
    , m_network(network ? network : new QNetworkAccessManager(this))
{
}

OpenAIClient::~OpenAIClient() = default;

OpenAIClient &OpenAIClient::shared()
{
    static OpenAIClient *instance = new OpenAIClient(lookUpAPIKey(KeychainService::shared(), Defaults::shared()),
                                                     defaultBaseURL(), AppState::shared(), TTSCacheService::shared());
    return *instance;
}

std::optional<QString> OpenAIClient::lookUpAPIKey(KeychainService &keychain, Defaults &defaults)
{
    const QString fromEnvironment = qEnvironmentVariable("OPENAI_API_KEY");
    if (!fromEnvironment.isEmpty()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from environment variable";
        return fromEnvironment;
    }
    if (auto fromKeychain = keychain.get(QStringLiteral("openai_api_key"))) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from Keychain";
        return fromKeychain;
    }
    if (auto fromDefaults = defaults.stringForKey(QStringLiteral("openai_api_key")); fromDefaults && !fromDefaults->isEmpty()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from UserDefaults";
        return fromDefaults;
    }
    PLOG(lcSpeech) << "⚠️ No OpenAI API key found - please configure in settings";
    return std::nullopt;
}

QString OpenAIClient::defaultBaseURL()
{
    const QString fromEnvironment = qEnvironmentVariable("OPENAI_BASE_URL");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment.endsWith(u'/') ? fromEnvironment.chopped(1) : fromEnvironment;
    return QStringLiteral("https://api.openai.com/v1");
}

std::optional<QUrl> OpenAIClient::endpoint(const QString &path) const
{
    const QUrl url(m_baseURL + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"https" && url.scheme() != u"http"))
        return std::nullopt;
    return url;
}

QCoro::Task<OpenAIClient::HttpAnswer> OpenAIClient::postJSON(QUrl url, QJsonObject body)
{
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + m_apiKey.value_or(QString()).toUtf8());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    request.setTransferTimeout(static_cast<int>(m_requestTimeout.count()));

    const QByteArray payload = QJsonDocument(body).toJson(QJsonDocument::Compact);
    // The coroutine resumes inside the reply's finished signal, so the reply must outlive this frame.
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        m_network->post(request, payload), [](QNetworkReply *finished) { finished->deleteLater(); });
    QNetworkReply *pending = reply.get();
    co_await pending;

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        if (reply->error() != QNetworkReply::NoError)
            throw NetworkError::fromReply(*reply);
        throw OpenAIError::invalidResponse();
    }
    co_return HttpAnswer{status.toInt(), reply->readAll()};
}

void OpenAIClient::publishProgress(double progress, const QString &message)
{
    // The state lives on the main thread; from there this runs at once, from elsewhere it is queued.
    QMetaObject::invokeMethod(&m_appState, [state = &m_appState, progress, message] {
        state->setProcessingProgress(progress);
        state->setProcessingMessage(message);
    });
}

QCoro::Task<QString> OpenAIClient::generateSpeechChunk(QString text, TTSVoice voice, double speed)
{
    PLOG(lcSpeech) << "🎙️ generateSpeechChunk called with " << characterCount(text) << " characters";
    PLOG(lcSpeech) << "   - Voice: " << identifier(voice) << " (rawValue: " << identifier(voice) << ')';
    PLOG(lcSpeech) << "   - Speed: " << TTSCacheService::speedText(speed);

    const auto url = endpoint(QStringLiteral("/audio/speech"));
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

    const HttpAnswer answer = co_await postJSON(*url, body);

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

QCoro::Task<QString> OpenAIClient::generateSpeech(QString text, TTSVoice voice, double speed)
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
        const QString generated = co_await generateSpeechChunk(text, voice, speed);
        co_await m_cache.cacheAudio(generated, text, voiceId, speed);
        PLOG(lcSpeech) << "💾 Cached new audio for single chunk";
        co_return generated;
    } catch (const Error &error) {
        PLOG(lcSpeech) << "❌ TTS generation failed: " << error.description();
        throw;
    }
}

QCoro::Task<QString> OpenAIClient::generateMultiChunkSpeech(QString text, TTSVoice voice, double speed)
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
        publishProgress(0.5 + 0.4 * static_cast<double>(i) / static_cast<double>(n),
                        QStringLiteral("Generating audio (%1/%2 chunks)...").arg(i + 1).arg(n));
        PLOG(lcSpeech) << "🎙️ Generating audio for chunk " << (i + 1) << '/' << n;
        const QString &chunk = chunks[i];
        if (auto cached = co_await m_cache.getCachedAudio(chunk, voiceId, speed)) {
            PLOG(lcSpeech) << "💾 Cache HIT for chunk " << (i + 1);
            chunkFiles.append(*cached);
            continue;
        }
        PLOG(lcSpeech) << "💾 Cache MISS for chunk " << (i + 1);
        const QString generated = co_await generateSpeechChunk(chunk, voice, speed);
        co_await m_cache.cacheAudio(generated, chunk, voiceId, speed);
        PLOG(lcSpeech) << "💾 Cached chunk " << (i + 1);
        chunkFiles.append(generated);
    }

    // MP3 frames stand alone, so the streams are joined byte for byte.
    const QString cacheFolder = QDir(m_cache.directory()).absolutePath() + u'/';
    QByteArray combined;
    for (const QString &path : std::as_const(chunkFiles)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            throw Error(QStringLiteral("Could not read the audio file ") + path + QStringLiteral(": ")
                        + file.errorString());
        combined += file.readAll();
        file.close();
        // The cache's own files stay; the chunks generated for this call are ours to remove.
        if (!QFileInfo(path).absoluteFilePath().startsWith(cacheFolder))
            QFile::remove(path);
    }
    const QString result = writeTemporaryMp3(combined);
    PLOG(lcSpeech) << "✅ Combined " << n << " audio chunks into single file";
    co_return result;
}

} // namespace parlino
