#include "speech/SpeechEndpointProvider.h"

#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"
#include "backend/RequestPolicy.h"
#include "core/Logging.h"
#include "speech/Mp3Frames.h"
#include "speech/TTSCacheService.h"
#include "speech/TemporaryAudio.h"
#include "speech/TextChunker.h"

#include <QJsonObject>

#include <memory>

namespace parlino {

namespace {

// What is wrong with a successful answer's body, or nothing when it is MP3 to play and keep. A proxy's
// error page, an empty body or a download that ended early must never be cached as speech.
std::optional<QString> problemWith(const OpenAIConnection::HttpAnswer &answer)
{
    if (answer.announcedLength && answer.body.size() < *answer.announcedLength)
        return QStringLiteral("OpenAI's answer was cut short (%1 of %2 bytes)")
            .arg(RequestPolicy::groupedNumber(answer.body.size()),
                 RequestPolicy::groupedNumber(*answer.announcedLength));
    if (!answer.contentType.startsWith("audio/"))
        return QStringLiteral("OpenAI answered with %1 instead of audio")
            .arg(answer.contentType.isEmpty() ? QStringLiteral("no content type")
                                              : QString::fromLatin1(answer.contentType));
    if (mp3Opening(answer.body, true) != Mp3Opening::audio)
        return QStringLiteral("OpenAI's answer held no audio");
    return std::nullopt;
}

// Holds the body back until it opens with MP3 frames, so the player never gets an error page.
struct AudioGate {
    SpeechProvider::AudioReceiver onAudio;
    QByteArray held;
    Mp3Opening opening = Mp3Opening::undecided;

    void take(const QByteArray &piece)
    {
        if (opening == Mp3Opening::audio) {
            onAudio(piece);
            return;
        }
        if (opening == Mp3Opening::notAudio)
            return;
        held += piece;
        opening = mp3Opening(held, false);
        if (opening == Mp3Opening::audio)
            onAudio(std::exchange(held, {}));
        else if (opening == Mp3Opening::notAudio)
            held.clear();
    }
};

} // namespace

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

    std::shared_ptr<AudioGate> gate;
    OpenAIConnection::BodyReceiver receiver;
    if (onAudio) {
        gate = std::make_shared<AudioGate>(AudioGate{std::move(onAudio), {}, Mp3Opening::undecided});
        receiver = [gate](const QByteArray &piece) { gate->take(piece); };
    }
    QCoro::Task<OpenAIConnection::HttpAnswer> posting =
        m_connection.postJSON(*url, body, std::move(receiver), RequestPolicy::audio);
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
    if (const std::optional<QString> problem = problemWith(answer)) {
        PLOG(lcSpeech) << "❌ Unusable speech answer: " << *problem << " (" << answer.contentType << ", "
                       << answer.body.size() << " bytes)";
        throw OpenAIError::invalidResponse(*problem);
    }
    // A whole answer of one or two frames never opened the gate: it goes to the listener now.
    if (gate && !gate->held.isEmpty())
        gate->onAudio(std::exchange(gate->held, {}));
    co_return writeTemporaryMp3(answer.body);
}

} // namespace parlino
