#pragma once

#include "app/PermissionProbe.h"

#include <functional>

namespace parlino {

// Accessibility: the AT-SPI bus is switched on (org.a11y.Status.IsEnabled on the session bus); only then
// do other applications publish their text. Microphone: an audio input device exists. Speech
// recognition: a recognizer can work (by default: the offline recognizer's English model is
// installed; the app sets the check of its own recognizers).
class LinuxPermissionProbe final : public PermissionProbe {
public:
    void setSpeechRecognitionCheck(std::function<bool()> check) { m_speechCheck = std::move(check); }

    bool isAccessibilityEnabled() override;
    bool isMicrophoneAvailable() override;
    bool isSpeechRecognitionAvailable() override;
    void promptForAccessibility() override;
    bool openAccessibilitySettings() override;
    // pavucontrol, else the desktop's own sound settings.
    bool openSoundSettings() override;

private:
    std::function<bool()> m_speechCheck;
};

} // namespace parlino
