#pragma once

namespace parlino {

// The permission alerts, behind an interface so tests can answer them.
class PermissionDialogs {
public:
    enum class Answer { openSettings, quit, later };

    virtual ~PermissionDialogs() = default;

    // "Accessibility Permission Required": Open Settings or Quit.
    virtual Answer askForAccessibility() = 0;
    // Microphone and speech recognition for voice questions: Open Settings or Later.
    virtual Answer askForQuestionPermissions(bool microphoneGranted, bool speechGranted) = 0;
};

} // namespace parlino
