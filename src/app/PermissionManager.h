#pragma once

#include "core/Clock.h"

#include <QObject>

#include <functional>
#include <optional>

namespace parlino {

class AppState;
class PermissionDialogs;
class PermissionProbe;

// Keeps the accessibility, microphone and speech-recognition states current, asks the user for them,
// and guards against an onboarding that never finishes.
class PermissionManager final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool accessibilityGranted READ accessibilityGranted NOTIFY accessibilityGrantedChanged)
    Q_PROPERTY(bool microphoneGranted READ microphoneGranted NOTIFY microphoneGrantedChanged)
    Q_PROPERTY(bool speechRecognitionGranted READ speechRecognitionGranted NOTIFY speechRecognitionGrantedChanged)

public:
    PermissionManager(PermissionProbe &probe, PermissionDialogs &dialogs, AppState &state, Clock &clock,
                      QObject *parent = nullptr);
    ~PermissionManager() override;

    [[nodiscard]] bool accessibilityGranted() const { return m_accessibilityGranted; }
    [[nodiscard]] bool microphoneGranted() const { return m_microphoneGranted; }
    [[nodiscard]] bool speechRecognitionGranted() const { return m_speechRecognitionGranted; }
    [[nodiscard]] bool isPolling() const { return m_pollTimer.has_value(); }

    void checkAccessibilityPermission();
    void forceCheckAccessibilityPermission();
    void requestAccessibilityPermission();
    void checkMicrophonePermission();
    void requestMicrophonePermission();
    void checkSpeechRecognitionPermission();
    void requestSpeechRecognitionPermission();

    // Polls the three states every 2 s for the life of the process; a second call does nothing.
    void startPolling();

    void showAccessibilityAlert(const std::function<void()> &onComplete);
    void showQAPermissionsAlert(const std::function<void()> &onComplete);
    void openAccessibilitySettings();

Q_SIGNALS:
    void accessibilityGrantedChanged();
    void microphoneGrantedChanged();
    void speechRecognitionGrantedChanged();
    // The user chose "Quit" in the accessibility alert.
    void quitRequested();
    // The user asked, from the voice questions' alert, for the settings where the recognizer is chosen.
    void recognizerSettingsRequested();

private:
    bool queryAccessibility(const char *caller);

    PermissionProbe &m_probe;
    PermissionDialogs &m_dialogs;
    AppState &m_state;
    Clock &m_clock;
    std::optional<Clock::TimerId> m_pollTimer;
    bool m_accessibilityGranted = false;
    bool m_microphoneGranted = false;
    bool m_speechRecognitionGranted = false;
};

} // namespace parlino
