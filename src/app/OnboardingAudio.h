#pragma once

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

namespace parlino {

class AppState;
class AudioEngine;
class AudioPlayerManager;
class SpeechSynthesizer;

// The sound of onboarding. Each page can be narrated (only once a key works: without one the pages
// stay silent), through an engine of its own so the floating player stays out of the way. The test
// step prepares a spoken welcome with whatever voice reads now — the offline one before any key — and
// plays it in the floating player when the user presses the read-aloud shortcut.
class OnboardingAudio final : public QObject {
    Q_OBJECT
public:
    // hasKey: whether OpenAI can be asked; it decides whether pages are narrated.
    OnboardingAudio(SpeechSynthesizer &synthesizer, AudioEngine &narrationEngine, AudioPlayerManager &player,
                    AppState &state, std::function<bool()> hasKey, QObject *parent = nullptr);
    ~OnboardingAudio() override;

    // Speaks a page's narration, replacing any narration still playing. Synthesised once and then
    // served from the speech cache. Does nothing without a key or while narration is switched off.
    void narrate(const QString &text);
    void stopNarration();
    void setNarrationEnabled(bool enabled);
    [[nodiscard]] bool narrationEnabled() const { return m_narrationEnabled; }

    // Enters the test step: onboarding mode on, the welcome synthesised and kept as the pending
    // onboarding audio. A shortcut press that comes before it is ready plays it once it is.
    QCoro::Task<> beginTestStep(QString welcome);
    // The read-aloud shortcut during the test step: plays the welcome (again).
    void playWelcome();
    // Leaves the test step: onboarding mode off, the pending audio dropped.
    void endTestStep();

Q_SIGNALS:
    // The welcome could not be made; message says why.
    void welcomeFailed(const QString &message);
    // The welcome started playing in the floating player.
    void welcomePlaying();

private:
    QCoro::Task<> speakNarration(QString text, int generation);

    SpeechSynthesizer &m_synthesizer;
    AudioEngine &m_narration;
    AudioPlayerManager &m_player;
    AppState &m_state;
    std::function<bool()> m_hasKey;
    bool m_narrationEnabled = true;
    // Bumped by every narrate()/stopNarration(), so a narration that finishes late is not played.
    int m_narrationGeneration = 0;
    bool m_playWhenReady = false;
};

} // namespace parlino
