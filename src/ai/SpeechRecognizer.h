#pragma once

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <span>

namespace parlino {

// One engine that turns a spoken question into text. The recognition service owns the microphone and
// hands every engine the same audio: mono float samples at kSampleRate, from begin() to finish().
// Lives on the main thread.
class SpeechRecognizer : public QObject {
    Q_OBJECT
public:
    static constexpr int kSampleRate = 16000;

    using QObject::QObject;
    ~SpeechRecognizer() override = default;

    // "openai" or "offline": the value of the setting that chooses it.
    [[nodiscard]] virtual QString name() const = 0;
    // Whether the engine can work now (a key for the service, the model files for the offline one).
    [[nodiscard]] virtual bool isAvailable() const = 0;

    // A new utterance; what was fed before is dropped. Throws SpeechRecognitionError when the engine
    // cannot start.
    virtual void begin() = 0;
    virtual void feed(std::span<const float> samples) = 0;
    // The text of everything fed since begin(); throws SpeechRecognitionError when recognition failed.
    virtual QCoro::Task<QString> finish() = 0;
    // Drops the utterance; nothing is recognised or sent.
    virtual void cancel() = 0;

Q_SIGNALS:
    // The best reading of the utterance so far, while it is still being spoken (engines that can).
    void partialResult(const QString &text);
};

} // namespace parlino
