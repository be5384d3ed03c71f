#include "app/AppShortcutActions.h"

#include "app/AppState.h"
#include "app/LibraryActions.h"
#include "app/OnboardingAudio.h"
#include "app/QuestionActions.h"
#include "app/ServicesProvider.h"
#include "app/UserNotifier.h"
#include "core/Logging.h"
#include "input/TextCaptureService.h"
#include "playback/AudioPlayerManager.h"

#include <QUrl>

#include <algorithm>

namespace parlino {

AppShortcutActions::AppShortcutActions(ServicesProvider &services, AudioPlayerManager &player, AppState &state,
                                       TextCaptureService &capture, UserNotifier &notifier)
    : m_services(services)
    , m_player(player)
    , m_state(state)
    , m_capture(capture)
    , m_notifier(notifier)
{
}

void AppShortcutActions::readAloud(const QString &text)
{
    m_services.processReadAloud(text);
}

void AppShortcutActions::readSummary(const QString &text)
{
    m_services.processReadSummary(text);
}

void AppShortcutActions::createPodcast(const QString &text)
{
    m_services.processCreatePodcast(text);
}

void AppShortcutActions::showNoTextSelected(const QString &message)
{
    m_notifier.notify(QStringLiteral("Parlino"), message);
}

void AppShortcutActions::togglePlayPause()
{
    m_player.togglePlayPause();
}

void AppShortcutActions::stopReading()
{
    m_player.stop(false);
    PLOG(lcApp) << "⏹️ Playback stopped";
}

void AppShortcutActions::stepSpeed(int steps)
{
    const int current = static_cast<int>(m_state.currentSpeed());
    const int last = static_cast<int>(allPlaybackSpeeds.size()) - 1;
    const auto next = static_cast<PlaybackSpeed>(std::clamp(current + steps, 0, last));
    if (next == m_state.currentSpeed())
        return;
    m_player.setSpeed(static_cast<float>(rawValue(next)));
    // The player mirrors the rate into the state once it applies; keep the state right without a player.
    m_state.setCurrentSpeed(next);
    PLOG(lcApp) << "⏩ Playback speed: " << displayName(next);
}

void AppShortcutActions::adjustSpeed(bool increase)
{
    stepSpeed(increase ? 1 : -1);
}

void AppShortcutActions::adjustSpeedFaster(bool increase)
{
    // Two steps: 0.5× at a time.
    stepSpeed(increase ? 2 : -2);
}

// Into the download folder (the save dialog when none is chosen).
void AppShortcutActions::downloadAudio()
{
    PLOG(lcApp) << "🎯 Download Audio shortcut triggered";
    if (m_library)
        m_library->download();
}

void AppShortcutActions::saveAudio()
{
    PLOG(lcApp) << "🎯 Save Audio shortcut triggered";
    if (m_library)
        m_library->saveWithDialog();
}

// The shortcut manager has logged the press already.
void AppShortcutActions::openLibrary()
{
    if (m_openLibrary)
        m_openLibrary();
}

void AppShortcutActions::askQuestion()
{
    PLOG(lcInput) << "🎯 Ask Question shortcut triggered";
    if (m_questions) {
        m_questions->handleQuestionButton();
        return;
    }
    m_notifier.notify(QStringLiteral("Ask Question"),
                      QStringLiteral("Voice questions about what you are listening to are coming soon."));
}

void AppShortcutActions::summarizeText()
{
    // The selection's spoken summary, as the summary shortcut does.
    if (const std::optional<QString> text = m_capture.captureSelectedText())
        m_services.processReadSummary(*text);
    else
        showNoTextSelected(QStringLiteral("No text selected. Please select some text and try again."));
}

void AppShortcutActions::handleOnboardingAudioReplay()
{
    if (m_onboarding) {
        m_onboarding->playWelcome();
        return;
    }
    if (const std::optional<QString> pending = m_state.pendingOnboardingAudioURL()) {
        m_player.play(QUrl(*pending));
        return;
    }
    m_player.togglePlayPause();
}

} // namespace parlino
