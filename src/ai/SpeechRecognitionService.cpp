#include "ai/SpeechRecognitionService.h"

#include "ai/SpeechRecognitionError.h"
#include "ai/SpeechRecognizer.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QAudioDevice>
#include <QAudioSource>
#include <QMediaDevices>

#include <cmath>
#include <span>

namespace parlino {

namespace {

QString audioErrorText(QAudio::Error error)
{
    switch (error) {
    case QAudio::OpenError: return QStringLiteral("the microphone could not be opened");
    case QAudio::IOError: return QStringLiteral("the microphone stopped delivering sound");
    case QAudio::FatalError: return QStringLiteral("the sound system failed");
    case QAudio::UnderrunError:
    case QAudio::NoError: break;
    }
    return {};
}

} // namespace

SpeechRecognitionService::SpeechRecognitionService(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_detector(SpeechRecognizer::kSampleRate)
{
}

SpeechRecognitionService::~SpeechRecognitionService()
{
    stopCapture();
}

void SpeechRecognitionService::addRecognizer(std::unique_ptr<SpeechRecognizer> recognizer)
{
    recognizer->setParent(nullptr);
    connect(recognizer.get(), &SpeechRecognizer::partialResult, this,
            [this, engine = recognizer.get()](const QString &text) {
                if (!m_listening || engine != m_active)
                    return;
                m_recognizedText = text;
                Q_EMIT transcriptionReceived(text);
            });
    m_recognizers.push_back(std::move(recognizer));
}

QStringList SpeechRecognitionService::recognizerNames() const
{
    QStringList names;
    for (const auto &recognizer : m_recognizers)
        names.append(recognizer->name());
    return names;
}

SpeechRecognizer *SpeechRecognitionService::recognizer() const
{
    const QString chosen = m_defaults.stringForKey(SettingsKeys::questionRecognizer).value_or(automaticChoice);
    for (const auto &recognizer : m_recognizers) {
        if (recognizer->name() == chosen && recognizer->isAvailable())
            return recognizer.get();
    }
    for (const auto &recognizer : m_recognizers) {
        if (recognizer->isAvailable())
            return recognizer.get();
    }
    return nullptr;
}

bool SpeechRecognitionService::isMicrophoneAvailable() const
{
    return !QMediaDevices::audioInputs().isEmpty();
}

bool SpeechRecognitionService::isSpeechRecognitionAvailable() const
{
    return recognizer() != nullptr;
}

bool SpeechRecognitionService::requestPermissions()
{
    return isMicrophoneAvailable() && isSpeechRecognitionAvailable();
}

void SpeechRecognitionService::startListening()
{
    if (m_listening)
        throw SpeechRecognitionError::alreadyListening();
    if (m_recognizers.empty())
        throw SpeechRecognitionError::recognizerUnavailable();
    const QAudioDevice device = QMediaDevices::defaultAudioInput();
    if (device.isNull())
        throw SpeechRecognitionError::microphoneNotAuthorized();
    SpeechRecognizer *engine = recognizer();
    if (!engine)
        throw SpeechRecognitionError::speechNotAuthorized();

    // The engines take 16 kHz mono; a device that cannot give it directly is converted here.
    QAudioFormat format;
    format.setSampleRate(SpeechRecognizer::kSampleRate);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Float);
    if (!device.isFormatSupported(format)) {
        format = device.preferredFormat();
        format.setSampleFormat(QAudioFormat::Float);
        if (!device.isFormatSupported(format))
            format = device.preferredFormat();
    }

    engine->begin();
    m_active = engine;
    m_format = format;
    m_pending.clear();
    m_resamplePosition = 0;
    m_previousSample = 0;
    m_detector.reset();
    m_recognizedText.clear();

    m_source = new QAudioSource(device, format, this);
    m_source->setBufferSize(kFramesPerBuffer * format.bytesPerFrame());
    connect(m_source, &QAudioSource::stateChanged, this, [this] {
        if (m_source && m_listening) {
            const QString problem = audioErrorText(m_source->error());
            if (!problem.isEmpty())
                failRecognition(problem);
        }
    });
    m_input = m_source->start();
    if (!m_input || !audioErrorText(m_source->error()).isEmpty()) {
        const QString problem = m_source ? audioErrorText(m_source->error()) : QString();
        stopCapture();
        engine->cancel();
        m_active = nullptr;
        throw SpeechRecognitionError::recognitionFailed(
            problem.isEmpty() ? QStringLiteral("no sound from the microphone") : problem);
    }
    connect(m_input, &QIODevice::readyRead, this, &SpeechRecognitionService::readAudio);
    m_listening = true;
    PLOG(lcAi) << "🎤 Listening on \"" << device.description() << "\" with the " << engine->name() << " recognizer ("
               << format.sampleRate() << " Hz, " << format.channelCount() << " channel(s))";
}

void SpeechRecognitionService::readAudio()
{
    if (!m_listening || !m_input)
        return;
    m_pending.append(m_input->readAll());
    const qsizetype bufferBytes = static_cast<qsizetype>(kFramesPerBuffer) * m_format.bytesPerFrame();
    qsizetype offset = 0;
    while (m_listening && m_pending.size() - offset >= bufferBytes) {
        processBuffer(m_pending.constData() + offset);
        offset += bufferBytes;
    }
    m_pending.remove(0, offset);
}

void SpeechRecognitionService::processBuffer(const char *frames)
{
    const int bytesPerFrame = m_format.bytesPerFrame();
    std::vector<float> mono(kFramesPerBuffer);
    for (int i = 0; i < kFramesPerBuffer; ++i)
        mono[static_cast<size_t>(i)] =
            m_format.normalizedSampleValue(frames + static_cast<qsizetype>(i) * bytesPerFrame);

    // The meter shows the first sample of the buffer, not its mean: a lively, cheap reading.
    Q_EMIT levelChanged(std::fabs(mono.front()));

    std::vector<float> resampled;
    const int rate = m_format.sampleRate();
    if (rate == SpeechRecognizer::kSampleRate || rate <= 0) {
        resampled = std::move(mono);
    } else {
        // Linear interpolation, carried across buffers: position -1 is the last sample of the one before.
        const double step = static_cast<double>(rate) / SpeechRecognizer::kSampleRate;
        const auto last = static_cast<double>(kFramesPerBuffer - 1);
        double position = m_resamplePosition;
        while (position < last) {
            const auto index = static_cast<int>(std::floor(position));
            const double fraction = position - index;
            const float before = index < 0 ? m_previousSample : mono[static_cast<size_t>(index)];
            const float after = mono[static_cast<size_t>(index + 1)];
            resampled.push_back(before + static_cast<float>(fraction) * (after - before));
            position += step;
        }
        m_resamplePosition = position - kFramesPerBuffer;
        m_previousSample = mono.back();
    }

    const bool heardBefore = m_detector.heard();
    if (m_detector.feed(resampled) && !heardBefore) {
        PLOG(lcAi) << "🗣️ Speech heard - the question can be sent";
        Q_EMIT speechHeard();
    }
    if (m_active && m_listening)
        m_active->feed(resampled);
}

QCoro::Task<QString> SpeechRecognitionService::finishListening()
{
    if (!m_listening)
        co_return m_recognizedText;
    // What the device still holds belongs to the question.
    readAudio();
    stopCapture();
    m_listening = false;
    SpeechRecognizer *engine = std::exchange(m_active, nullptr);
    if (!m_detector.heard()) {
        PLOG(lcAi) << "🔇 No speech was heard";
        engine->cancel();
        m_recognizedText.clear();
        co_return QString();
    }
    QCoro::Task<QString> recognising = engine->finish();
    const QString text = co_await recognising;
    m_recognizedText = text;
    if (!text.isEmpty())
        Q_EMIT transcriptionReceived(text);
    co_return text;
}

void SpeechRecognitionService::stopListening()
{
    stopCapture();
    if (SpeechRecognizer *engine = std::exchange(m_active, nullptr))
        engine->cancel();
    m_listening = false;
}

void SpeechRecognitionService::stopCapture()
{
    if (m_input)
        disconnect(m_input, nullptr, this, nullptr);
    m_input = nullptr;
    if (m_source) {
        QAudioSource *source = m_source;
        m_source = nullptr;
        disconnect(source, nullptr, this, nullptr);
        source->stop();
        // It may be the sender of the signal being handled.
        source->deleteLater();
    }
    m_pending.clear();
}

void SpeechRecognitionService::failRecognition(const QString &underlying)
{
    PLOG(lcAi) << "❌ Speech recognition failed: " << underlying;
    stopListening();
    Q_EMIT recognitionFailed(SpeechRecognitionError::recognitionFailed(underlying).description());
}

} // namespace parlino
