#pragma once

#include "input/ShortcutActions.h"

#include <functional>

namespace parlino {

class AppState;
class AudioPlayerManager;
class LibraryActions;
class OnboardingAudio;
class QuestionActions;
class ServicesProvider;
class TextCaptureService;
class UserNotifier;

// What each global shortcut does in this app: the text flows of the Services provider, the player's
// controls, and the speed steps.
class AppShortcutActions final : public ShortcutActions {
public:
    AppShortcutActions(ServicesProvider &services, AudioPlayerManager &player, AppState &state,
                       TextCaptureService &capture, UserNotifier &notifier);

    // Download and save act on the playing audio through these; without them they do nothing.
    void setLibraryActions(LibraryActions *library) { m_library = library; }
    // Onboarding's test step plays its welcome through this; without it the pending audio plays as is.
    void setOnboardingAudio(OnboardingAudio *onboarding) { m_onboarding = onboarding; }
    // The question shortcut acts as the floating player's question button does.
    void setQuestionActions(QuestionActions *questions) { m_questions = questions; }
    // Opens (or raises) the library window; without it the shortcut does nothing.
    void setLibraryOpener(std::function<void()> open) { m_openLibrary = std::move(open); }

    void readAloud(const QString &text) override;
    void readSummary(const QString &text) override;
    void createPodcast(const QString &text) override;
    void showNoTextSelected(const QString &message) override;
    void togglePlayPause() override;
    void stopReading() override;
    void adjustSpeed(bool increase) override;
    void adjustSpeedFaster(bool increase) override;
    void downloadAudio() override;
    void saveAudio() override;
    void summarizeText() override;
    void openLibrary() override;
    void askQuestion() override;
    void handleOnboardingAudioReplay() override;

private:
    void stepSpeed(int steps);

    ServicesProvider &m_services;
    AudioPlayerManager &m_player;
    AppState &m_state;
    TextCaptureService &m_capture;
    UserNotifier &m_notifier;
    LibraryActions *m_library = nullptr;
    OnboardingAudio *m_onboarding = nullptr;
    QuestionActions *m_questions = nullptr;
    std::function<void()> m_openLibrary;
};

} // namespace parlino
