#pragma once

#include "ai/SpeechRecognizer.h"

#include <QByteArray>
#include <QList>

namespace parlino {

class ModelSettings;
class OpenAIConnection;

// Records the question while it is spoken and, on finish(), uploads it as a WAV file to OpenAI's
// transcription endpoint with the settings' "transcriptionModel". Nothing leaves the machine before
// the question is sent, and a recording without samples is never uploaded. A model the service has
// retired is replaced by its successor (kept in the settings) and the upload repeated once.
class OpenAITranscriptionRecognizer final : public SpeechRecognizer {
    Q_OBJECT
public:
    OpenAITranscriptionRecognizer(OpenAIConnection &connection, ModelSettings &models, QObject *parent = nullptr);
    ~OpenAITranscriptionRecognizer() override;

    [[nodiscard]] QString name() const override { return QStringLiteral("openai"); }
    // A key is configured.
    [[nodiscard]] bool isAvailable() const override;

    void begin() override;
    void feed(std::span<const float> samples) override;
    QCoro::Task<QString> finish() override;
    void cancel() override;

    // Mono 16-bit PCM WAV of samples (clipped to [-1, 1]) at sampleRate.
    [[nodiscard]] static QByteArray encodeWav(const QList<float> &samples, int sampleRate);

private:
    QCoro::Task<QString> transcribe(QString model, QByteArray wav);

    OpenAIConnection &m_connection;
    ModelSettings &m_models;
    QList<float> m_recording;
};

} // namespace parlino
