#include "ai/OpenAITranscriptionRecognizer.h"

#include "ai/SpeechRecognitionError.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/OpenAIError.h"
#include "core/Logging.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <optional>

namespace parlino {

namespace {

QHttpPart formField(const QByteArray &name, const QByteArray &value)
{
    QHttpPart part;
    const QByteArray disposition = QByteArrayLiteral("form-data; name=\"") + name + '"';
    part.setHeader(QNetworkRequest::ContentDispositionHeader, disposition);
    part.setBody(value);
    return part;
}

template <typename T> void appendLittleEndian(QByteArray &out, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(T));
}

QString describe(const std::exception &error)
{
    if (const auto *own = dynamic_cast<const Error *>(&error))
        return own->description();
    return QString::fromLocal8Bit(error.what());
}

} // namespace

OpenAITranscriptionRecognizer::OpenAITranscriptionRecognizer(OpenAIConnection &connection, ModelSettings &models,
                                                             QObject *parent)
    : SpeechRecognizer(parent)
    , m_connection(connection)
    , m_models(models)
{
}

OpenAITranscriptionRecognizer::~OpenAITranscriptionRecognizer() = default;

bool OpenAITranscriptionRecognizer::isAvailable() const
{
    return m_connection.apiKey() && !m_connection.apiKey()->isEmpty();
}

void OpenAITranscriptionRecognizer::begin()
{
    m_recording.clear();
}

void OpenAITranscriptionRecognizer::feed(std::span<const float> samples)
{
    m_recording.reserve(m_recording.size() + static_cast<qsizetype>(samples.size()));
    for (const float sample : samples)
        m_recording.append(sample);
}

void OpenAITranscriptionRecognizer::cancel()
{
    m_recording.clear();
}

QByteArray OpenAITranscriptionRecognizer::encodeWav(const QList<float> &samples, int sampleRate)
{
    constexpr quint16 bitsPerSample = 16;
    constexpr quint16 channels = 1;
    const auto dataBytes = static_cast<quint32>(samples.size() * 2);
    QByteArray wav;
    wav.reserve(44 + static_cast<qsizetype>(dataBytes));
    wav.append("RIFF");
    appendLittleEndian<quint32>(wav, 36 + dataBytes);
    wav.append("WAVEfmt ");
    appendLittleEndian<quint32>(wav, 16);
    appendLittleEndian<quint16>(wav, 1); // PCM
    appendLittleEndian<quint16>(wav, channels);
    appendLittleEndian<quint32>(wav, static_cast<quint32>(sampleRate));
    appendLittleEndian<quint32>(wav, static_cast<quint32>(sampleRate) * channels * bitsPerSample / 8);
    appendLittleEndian<quint16>(wav, channels * bitsPerSample / 8);
    appendLittleEndian<quint16>(wav, bitsPerSample);
    wav.append("data");
    appendLittleEndian<quint32>(wav, dataBytes);
    for (const float sample : samples) {
        const float clipped = std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
        appendLittleEndian<qint16>(wav, static_cast<qint16>(std::lround(clipped * 32767.0F)));
    }
    return wav;
}

QCoro::Task<QString> OpenAITranscriptionRecognizer::finish()
{
    const QList<float> recording = std::exchange(m_recording, {});
    if (recording.isEmpty())
        co_return QString();
    const QByteArray wav = encodeWav(recording, kSampleRate);
    const QString model = m_models.transcriptionModel();
    PLOG(lcAi) << "📤 Uploading " << QString::number(static_cast<double>(recording.size()) / kSampleRate, 'f', 1)
               << " s of the question to " << model;
    std::optional<OpenAIError> refused;
    try {
        QCoro::Task<QString> asking = transcribe(model, wav);
        co_return co_await asking;
    } catch (const OpenAIError &error) {
        if (!ModelCatalogue::isRetirementError(error))
            throw SpeechRecognitionError::recognitionFailed(error.description());
        refused = error;
    } catch (const std::exception &error) {
        throw SpeechRecognitionError::recognitionFailed(describe(error));
    }
    PLOG(lcAi) << "🔄 The service has retired " << model << " - switching to its successor";
    m_models.switchToSuccessor(ModelRole::transcription, model);
    const QString successor = m_models.transcriptionModel();
    if (successor == model)
        throw SpeechRecognitionError::recognitionFailed(refused->description());
    try {
        QCoro::Task<QString> again = transcribe(successor, wav);
        co_return co_await again;
    } catch (const std::exception &error) {
        throw SpeechRecognitionError::recognitionFailed(describe(error));
    }
}

QCoro::Task<QString> OpenAITranscriptionRecognizer::transcribe(QString model, QByteArray wav)
{
    const auto url = m_connection.endpoint(QStringLiteral("/audio/transcriptions"));
    if (!url)
        throw OpenAIError::invalidURL();

    auto *parts = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    QHttpPart file;
    file.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QByteArrayLiteral("form-data; name=\"file\"; filename=\"question.wav\""));
    file.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("audio/wav"));
    file.setBody(wav);
    parts->append(file);
    parts->append(formField("model", model.toUtf8()));
    parts->append(formField("language", "en"));
    parts->append(formField("response_format", "json"));

    QCoro::Task<OpenAIConnection::HttpAnswer> posting = m_connection.postMultipart(*url, parts);
    const OpenAIConnection::HttpAnswer answer = co_await posting;
    if (answer.statusCode != 200)
        throw OpenAIError::apiError(answer.statusCode, errorMessageFromBody(answer.body));
    const QJsonDocument document = QJsonDocument::fromJson(answer.body);
    const QJsonValue text = document.object().value(u"text");
    if (!text.isString())
        throw OpenAIError::invalidResponse();
    co_return text.toString().trimmed();
}

} // namespace parlino
