#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace parlino {

class AccessibilityTextSource;
class ActiveWindowInspector;
class Defaults;
class SelectionClipboard;
class SyntheticKeySender;

// Obtains the text the user has selected in the front application without the user copying it:
// first through the accessibility interface of the focused element, then from the primary selection,
// and last by sending the copy command to the focused window and reading the clipboard.
// Runs on the main thread; a capture may block it for up to 0.45 seconds.
class TextCaptureService final {
public:
    // The platform services a capture uses; all must outlive the service.
    struct Platform {
        AccessibilityTextSource *accessibility{nullptr};
        SelectionClipboard *clipboard{nullptr};
        SyntheticKeySender *keys{nullptr};
        ActiveWindowInspector *windows{nullptr};
    };

    TextCaptureService(Defaults &defaults, Platform platform);

    // The selected text; absent when nothing could be captured. A captured text is never empty.
    [[nodiscard]] std::optional<QString> captureSelectedText();
    // Whether the accessibility interface may be used, with diagnostics in the log when not.
    [[nodiscard]] bool hasAccessibilityPermission();

    // Terminal emulators by window class: they receive Ctrl+Shift+C, because Ctrl+C would interrupt
    // the program running in them.
    [[nodiscard]] static bool isTerminalWindowClass(const QStringList &windowClass);

private:
    [[nodiscard]] bool onboardingCompleted() const;
    void logTrustCheck(const QString &caller) const;
    [[nodiscard]] std::optional<QString> captureViaAccessibility();
    [[nodiscard]] std::optional<QString> captureViaClipboard();
    [[nodiscard]] std::optional<QString> captureViaCopyCommand();

    Defaults &m_defaults;
    Platform m_platform;
};

} // namespace parlino
