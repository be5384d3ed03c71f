#pragma once

#include "app/PermissionProbe.h"

namespace parlino {

// Accessibility: the AT-SPI bus is switched on (org.a11y.Status.IsEnabled on the session bus); only then
// do other applications publish their text. Microphone: an audio input device exists. Speech
// recognition: an offline recogniser's English model is installed.
class LinuxPermissionProbe final : public PermissionProbe {
public:
    bool isAccessibilityEnabled() override;
    bool isMicrophoneAvailable() override;
    bool isSpeechRecognitionAvailable() override;
    void promptForAccessibility() override;
    bool openAccessibilitySettings() override;
};

} // namespace parlino
