#include "speech/SpeechEndpointProvider.h"

#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"
#include "core/Logging.h"
#include "speech/TTSCacheService.h"
#include "speech/TemporaryAudio.h"
#include "speech/TextChunker.h"

#include <QJsonObject>

namespace parlino {

SpeechEndpointProvider::SpeechEndpointProvider(OpenAIConnection &connection, ModelSettings &models)
    : m_connection(connection)
    , m_models(models)
{
}

QString SpeechEndpointProvider::name() const
{
    return QString::fromLatin1(providerName);
}

QString SpeechEndpointProvider::model() const
{
    return m_models.speechModel();
}

QString SpeechEndpointProvider::cacheVoice(TTSVoice voice) const
{
    return identifier(voice);
}

QCoro::Task<QString> SpeechEndpointProvider::synthesize(QString text, TTSVoice voice, double speed,
                                                        AudioReceiver onAudio, StopCheck /*shouldStop*/)
{
    PLOG(lcSpeech) << "🎙️ generateSpeechChunk called with " << characterCount(text) << " characters";
    PLOG(lcSpeech) << "   - Voice: " << identifier(voice) << " (rawValue: " << identifier(voice) << ')';
    PLOG(lcSpeech) << "   - Speed: " << TTSCacheService::speedText(speed);

    const auto url = m_connection.endpoint(QStringLiteral("/audio/speech"));
    if (!url)
        throw OpenAIError::invalidURL();

    const QJsonObject body{{QStringLiteral("model"), model()},
                           {QStringLiteral("input"), text},
                           {QStringLiteral("voice"), identifier(voice)},
                           {QStringLiteral("speed"), speed}};

    PLOG(lcSpeech) << "📤 Sending TTS request to OpenAI";
    PLOG(lcSpeech) << "   - Endpoint: " << url->toString();
    PLOG(lcSpeech) << "   - Input text length: " << characterCount(text);
    PLOG(lcSpeech) << "   - Voice being sent to API: '" << identifier(voice) << '\'';

    QCoro::Task<OpenAIConnection::HttpAnswer> posting = m_connection.postJSON(*url, body, std::move(onAudio));
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

} // namespace parlino
