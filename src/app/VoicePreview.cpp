#include "app/VoicePreview.h"

#include "core/Error.h"
#include "core/Logging.h"
#include "playback/AudioEngine.h"
#include "speech/SpeechSynthesizer.h"

namespace parlino {

VoicePreview::VoicePreview(SpeechSynthesizer &synthesizer, AudioEngine &engine, QObject *parent)
    : QObject(parent)
    , m_synthesizer(synthesizer)
    , m_engine(engine)
{
    connect(&m_engine, &AudioEngine::loaded, this, [this] { m_engine.play(); });
}

QString VoicePreview::sampleText(const QString &voiceName)
{
    return QStringLiteral("Hello, I am %1. This is how Parlino reads to you.").arg(voiceName);
}

QCoro::Task<> VoicePreview::preview(TTSVoice voice)
{
    QString name = identifier(voice);
    name[0] = name[0].toUpper();
    QCoro::Task<> speaking = speak(sampleText(name), voice, name, false);
    co_await speaking;
}

QCoro::Task<> VoicePreview::previewOffline()
{
    QCoro::Task<> speaking = speak(sampleText(QStringLiteral("the offline voice")), TTSVoice::alloy,
                                   QStringLiteral("the offline voice"), true);
    co_await speaking;
}

void VoicePreview::stop()
{
    ++m_generation;
    m_engine.unload();
}

QCoro::Task<> VoicePreview::speak(QString text, TTSVoice voice, QString voiceName, bool offline)
{
    stop();
    const int generation = m_generation;
    try {
        // The offline voice is asked directly, whichever provider the settings choose for reading; it
        // makes a sentence faster than a cache look-up would save.
        SpeechProvider *offlineVoice = offline ? m_synthesizer.provider(QStringLiteral("offline")) : nullptr;
        if (offline && !offlineVoice)
            throw Error(QStringLiteral("The offline voice is not available."));
        QCoro::Task<QString> synthesis = offline ? offlineVoice->synthesize(text, voice, 1.0, {}, {})
                                                 : m_synthesizer.generateSpeech(text, voice, 1.0);
        const QString file = co_await synthesis;
        if (generation != m_generation)
            co_return; // another preview was asked for meanwhile
        PLOG(lcApp) << "🔈 Previewing " << voiceName;
        m_engine.load(file);
        Q_EMIT started(voiceName);
    } catch (const Error &error) {
        PLOG(lcApp) << "❌ Voice preview failed: " << error.description();
        Q_EMIT failed(error.description());
    }
}

} // namespace parlino
