#pragma once

namespace parlino {

// What the desktop tells about the three permissions the app uses. On Linux "accessibility" means the
// desktop's accessibility bus is switched on (selected text can be read from other applications),
// "microphone" that an audio input device exists, "speech recognition" that a recogniser is installed.
class PermissionProbe {
public:
    virtual ~PermissionProbe() = default;

    [[nodiscard]] virtual bool isAccessibilityEnabled() = 0;
    [[nodiscard]] virtual bool isMicrophoneAvailable() = 0;
    [[nodiscard]] virtual bool isSpeechRecognitionAvailable() = 0;

    // Asks the desktop to switch accessibility on (the counterpart of the system's permission prompt).
    virtual void promptForAccessibility() = 0;
    // Opens the desktop's accessibility settings; false when no settings application was found.
    virtual bool openAccessibilitySettings() = 0;
    // Opens the desktop's sound settings (input devices); false when none was found.
    virtual bool openSoundSettings() { return false; }
};

} // namespace parlino
