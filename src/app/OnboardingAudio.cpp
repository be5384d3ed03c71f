#include "app/OnboardingAudio.h"

#include "app/AppState.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "playback/AudioEngine.h"
#include "playback/AudioPlayerManager.h"
#include "speech/SpeechSynthesizer.h"

#include <QUrl>

namespace parlino {

OnboardingAudio::OnboardingAudio(SpeechSynthesizer &synthesizer, AudioEngine &narrationEngine,
                                 AudioPlayerManager &player, AppState &state, std::function<bool()> hasKey,
                                 QObject *parent)
    : QObject(parent)
    , m_synthesizer(synthesizer)
    , m_narration(narrationEngine)
    , m_player(player)
    , m_state(state)
    , m_hasKey(std::move(hasKey))
{
    // A narration starts as soon as its file has loaded.
    connect(&m_narration, &AudioEngine::loaded, this, [this] { m_narration.play(); });
}

OnboardingAudio::~OnboardingAudio() = default;

void OnboardingAudio::narrate(const QString &text)
{
    stopNarration();
    if (!m_narrationEnabled || !m_hasKey())
        return;
    speakNarration(text, m_narrationGeneration);
}

void OnboardingAudio::stopNarration()
{
    ++m_narrationGeneration;
    m_narration.unload();
}

void OnboardingAudio::setNarrationEnabled(bool enabled)
{
    m_narrationEnabled = enabled;
    if (!enabled)
        stopNarration();
}

QCoro::Task<> OnboardingAudio::speakNarration(QString text, int generation)
{
    try {
        QCoro::Task<QString> synthesis = m_synthesizer.generateSpeech(text, m_state.selectedVoice(), 1.0);
        const QString file = co_await synthesis;
        if (generation != m_narrationGeneration)
            co_return; // the user moved on
        m_narration.load(file);
    } catch (const Error &error) {
        // Narration is a courtesy: the page works without it.
        PWARN(lcApp) << "⚠️ Onboarding narration unavailable: " << error.description();
    }
}

QCoro::Task<> OnboardingAudio::beginTestStep(QString welcome)
{
    stopNarration();
    m_state.setIsOnboardingMode(true);
    if (m_state.pendingOnboardingAudioURL())
        co_return;
    try {
        QCoro::Task<QString> synthesis = m_synthesizer.generateSpeech(welcome, m_state.selectedVoice(), 1.0);
        const QString file = co_await synthesis;
        if (!m_state.isOnboardingMode())
            co_return; // onboarding moved on meanwhile
        m_state.setPendingOnboardingAudioURL(QUrl::fromLocalFile(file).toString());
        PLOG(lcApp) << "🎓 Welcome message ready for the test step";
        if (m_playWhenReady)
            playWelcome();
    } catch (const Error &error) {
        PLOG(lcApp) << "❌ Could not prepare the welcome message: " << error.description();
        Q_EMIT welcomeFailed(error.description());
    }
}

void OnboardingAudio::playWelcome()
{
    const std::optional<QString> pending = m_state.pendingOnboardingAudioURL();
    if (!pending) {
        // Still being made: it plays as soon as it is ready.
        m_playWhenReady = true;
        return;
    }
    m_playWhenReady = false;
    stopNarration();
    m_state.setCurrentPlayingTitle(QStringLiteral("Welcome to Parlino"));
    m_player.play(QUrl(*pending));
    Q_EMIT welcomePlaying();
}

void OnboardingAudio::endTestStep()
{
    m_playWhenReady = false;
    m_state.setPendingOnboardingAudioURL(std::nullopt);
    m_state.setIsOnboardingMode(false);
}

} // namespace parlino
