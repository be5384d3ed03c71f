#pragma once

#include "ai/SpeechActivityDetector.h"

#include <QAudioFormat>
#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <qcoro/qcorotask.h>

#include <memory>
#include <vector>

class QAudioSource;
class QIODevice;

namespace parlino {

class Defaults;
class SpeechRecognizer;

// Listens for one spoken question at a time: records the default audio input in float samples, 1024
// frames a buffer, and hands the audio to the chosen recognition engine. While listening it reports
// the microphone level (the first sample of each buffer, for the meter), that speech was heard, and
// the engine's readings of the question as they come. Lives on the main thread.
//
// "Microphone authorised" means an audio input device exists; "speech recognition authorised" that
// an engine can work now (a key for the service, or the offline model installed).
class SpeechRecognitionService final : public QObject {
    Q_OBJECT
public:
    static constexpr int kFramesPerBuffer = 1024;
    static inline const QString automaticChoice = QStringLiteral("automatic");

    explicit SpeechRecognitionService(Defaults &defaults, QObject *parent = nullptr);
    ~SpeechRecognitionService() override;

    // Engines in order of preference for the automatic choice (the service first, then offline).
    void addRecognizer(std::unique_ptr<SpeechRecognizer> recognizer);
    // The names of the engines, for the settings window.
    [[nodiscard]] QStringList recognizerNames() const;
    // The engine that listens now: the one the "questionRecognizer" setting names when it can work,
    // else the first that can; null when none can.
    [[nodiscard]] SpeechRecognizer *recognizer() const;

    [[nodiscard]] bool isMicrophoneAvailable() const;
    [[nodiscard]] bool isSpeechRecognitionAvailable() const;
    // Linux asks no one: both are granted when they are available. Returns whether both are.
    bool requestPermissions();

    // Starts listening; throws SpeechRecognitionError ("Already listening for speech." on a second
    // start, or the missing recognizer, microphone or engine).
    void startListening();
    // Ends listening and returns the question's text: empty when no speech was heard (nothing is sent
    // anywhere then). Throws SpeechRecognitionError when recognition failed.
    QCoro::Task<QString> finishListening();
    // Ends listening and drops what was heard.
    void stopListening();

    [[nodiscard]] bool isListening() const { return m_listening; }
    [[nodiscard]] bool hasHeardSpeech() const { return m_detector.heard(); }
    [[nodiscard]] const QString &recognizedText() const { return m_recognizedText; }

Q_SIGNALS:
    // A reading of the question (partial readings replace the earlier ones).
    void transcriptionReceived(const QString &text);
    // Speech was heard since listening started; emitted once per question.
    void speechHeard();
    // The level of the latest buffer, 0…1, for the meter.
    void levelChanged(float amplitude);
    // Listening broke off ("Recognition error: …"); listening has ended.
    void recognitionFailed(const QString &description);

private:
    void readAudio();
    void processBuffer(const char *frames);
    void stopCapture();
    void failRecognition(const QString &underlying);

    Defaults &m_defaults;
    std::vector<std::unique_ptr<SpeechRecognizer>> m_recognizers;
    SpeechRecognizer *m_active = nullptr;
    QPointer<QAudioSource> m_source;
    QPointer<QIODevice> m_input;
    QAudioFormat m_format;
    QByteArray m_pending;
    // Where the next output sample falls in the device's samples, for devices not at 16 kHz.
    double m_resamplePosition = 0;
    float m_previousSample = 0;
    SpeechActivityDetector m_detector;
    bool m_listening = false;
    QString m_recognizedText;
};

} // namespace parlino
