#pragma once

#include <QString>

namespace parlino {

// What the global shortcuts start. The shortcut manager captures the selection and logs each press;
// the application shell implements these with its orchestration, the player and the libraries.
// Called on the main thread.
class ShortcutActions {
public:
    virtual ~ShortcutActions() = default;

    virtual void readAloud(const QString &text) = 0;
    virtual void readSummary(const QString &text) = 0;
    virtual void createPodcast(const QString &text) = 0;
    // A text shortcut was pressed but nothing was selected: show `message` to the user.
    virtual void showNoTextSelected(const QString &message) = 0;

    virtual void togglePlayPause() = 0;
    virtual void stopReading() = 0;
    virtual void adjustSpeed(bool increase) = 0;
    virtual void adjustSpeedFaster(bool increase) = 0;
    virtual void downloadAudio() = 0;
    virtual void saveAudio() = 0;
    virtual void summarizeText() = 0;
    virtual void openLibrary() = 0;
    // Shows the "Ask Question" notification and starts a voice question.
    virtual void askQuestion() = 0;
    // The read-aloud shortcut while onboarding's test step runs: play the onboarding audio.
    virtual void handleOnboardingAudioReplay() = 0;
};

} // namespace parlino
