#pragma once

namespace parlino {

// What the shortcut handlers need to know about the app while they decide what a key press does and
// log why. The application state provides it.
class ShortcutContext {
public:
    virtual ~ShortcutContext() = default;

    // The onboarding's try-it step is showing: the read-aloud key replays its audio instead.
    [[nodiscard]] virtual bool isOnboardingMode() const = 0;
    [[nodiscard]] virtual bool hasPendingOnboardingAudio() const = 0;
    [[nodiscard]] virtual bool isProcessing() const = 0;
    [[nodiscard]] virtual bool isPlaying() const = 0;
    [[nodiscard]] virtual bool showFloatingPlayer() const = 0;
};

} // namespace parlino
