#pragma once

#include "speech/TTSVoice.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

namespace parlino {

class AudioEngine;
class SpeechSynthesizer;

// A few words in a voice, so the user can choose by ear: made by whatever provider reads now (cached
// like any reading, so a second preview costs nothing) and played on an engine of its own, apart from
// the floating player and whatever it plays.
class VoicePreview final : public QObject {
    Q_OBJECT
public:
    VoicePreview(SpeechSynthesizer &synthesizer, AudioEngine &engine, QObject *parent = nullptr);

    // The sentence a voice says, e.g. "Hello, I am Nova. This is how Parlino reads to you."
    [[nodiscard]] static QString sampleText(const QString &voiceName);

    // Speaks the sample in `voice`, replacing any preview still playing.
    QCoro::Task<> preview(TTSVoice voice);
    // Speaks the sample with the offline voice the settings choose, even while OpenAI reads.
    QCoro::Task<> previewOffline();
    void stop();

Q_SIGNALS:
    void started(const QString &voiceName);
    void failed(const QString &message);

private:
    QCoro::Task<> speak(QString text, TTSVoice voice, QString voiceName, bool offline);

    SpeechSynthesizer &m_synthesizer;
    AudioEngine &m_engine;
    int m_generation = 0;
};

} // namespace parlino
