#pragma once

namespace parlino {

// The permission alerts, behind an interface so tests can answer them.
class PermissionDialogs {
public:
    // openSoundSettings and chooseRecognizer are the voice questions' fixes: the desktop's sound
    // settings (for a microphone), the app's settings (for a key or the offline recognizer).
    enum class Answer { openSettings, quit, later, openSoundSettings, chooseRecognizer };

    virtual ~PermissionDialogs() = default;

    // "Accessibility Permission Required": Open Settings or Quit.
    virtual Answer askForAccessibility() = 0;
    // "Voice Q&A Permissions": a fix for what is missing, or later.
    virtual Answer askForQuestionPermissions(bool microphoneGranted, bool speechGranted) = 0;
};

} // namespace parlino
