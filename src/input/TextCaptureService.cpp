#include "input/TextCaptureService.h"

#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"
#include "core/StackTrace.h"
#include "input/AccessibilityTextSource.h"
#include "input/ActiveWindowInspector.h"
#include "input/SelectionClipboard.h"
#include "input/SyntheticKeySender.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QGuiApplication>
#include <QRegularExpression>

#include <chrono>

namespace parlino {

namespace {

using namespace std::chrono_literals;

// How long the copy chord is held, and how long the front application then has to serve the copy.
constexpr auto chordHoldTime = 100ms;
constexpr auto copyServeTime = 350ms;

// The start of the clipboard for the diagnostics, with anything that looks like a key or a password
// hidden: a word of 16 or more characters mixing letters and digits, or an "sk-" key.
QString preview(const std::optional<QString> &text)
{
    if (!text)
        return QStringLiteral("nil");
    static const QRegularExpression secret(
        QStringLiteral(R"(\b(sk-[A-Za-z0-9_\-]{6,}|(?=[^\s]*[A-Za-z])(?=[^\s]*\d)[^\s]{16,}))"));
    // Hidden before it is shortened, so no part of a secret is shown.
    QString shown = *text;
    shown.replace(secret, QStringLiteral("[hidden]"));
    return shown.left(50);
}

bool hasText(const std::optional<QString> &text)
{
    return text && !text->isEmpty();
}

} // namespace

TextCaptureService::TextCaptureService(Defaults &defaults, Platform platform)
    : m_defaults(defaults)
    , m_platform(platform)
{
}

bool TextCaptureService::onboardingCompleted() const
{
    return m_defaults.boolForKey(SettingsKeys::onboardingCompleted);
}

void TextCaptureService::logTrustCheck(const QString &caller) const
{
    logAccessibilityQuery(QStringLiteral("TextCaptureService.") + caller, QDateTime::currentDateTime());
}

std::optional<QString> TextCaptureService::captureSelectedText()
{
    if (!onboardingCompleted()) {
        PLOG(lcInput) << "🔍 TextCaptureService.captureSelectedText() blocked - onboarding not completed";
        return std::nullopt;
    }
    logTrustCheck(QStringLiteral("captureSelectedText"));

    if (m_platform.accessibility->isProcessTrusted()) {
        PLOG(lcInput) << "✅ Accessibility permission granted";
        if (std::optional<QString> text = captureViaAccessibility(); hasText(text)) {
            PLOG(lcInput) << "✅ Captured text via Accessibility API (" << text->size() << " chars)";
            return text;
        }
        PLOG(lcInput) << "ℹ️ Accessibility API returned no text, trying clipboard fallback";
        if (std::optional<QString> text = captureViaClipboard()) {
            PLOG(lcInput) << "✅ Captured text via clipboard (" << text->size() << " chars)";
            return text;
        }
        PLOG(lcInput) << "❌ No text captured - no text may be selected";
        return std::nullopt;
    }

    PLOG(lcInput) << "⚠️ No accessibility permission - clipboard method requires it too";
    PLOG(lcInput) << "⚠️ Ctrl+C keyboard simulation needs accessibility permission";
    if (std::optional<QString> text = captureViaClipboard()) {
        PLOG(lcInput) << "✅ Captured text via clipboard (" << text->size() << " chars)";
        return text;
    }
    PLOG(lcInput) << "❌ TEXT CAPTURE FAILED - PERMISSION REQUIRED";
    PLOG(lcInput) << "============================================";
    PLOG(lcInput) << "The app needs accessibility permission to:";
    PLOG(lcInput) << "  • Read selected text from other apps";
    PLOG(lcInput) << "  • Simulate Ctrl+C to copy text";
    PLOG(lcInput) << "";
    PLOG(lcInput) << "Please check Settings > Accessibility";
    return std::nullopt;
}

std::optional<QString> TextCaptureService::captureViaAccessibility()
{
    if (!onboardingCompleted()) {
        PLOG(lcInput) << "🔍 TextCaptureService.captureViaAccessibility() blocked - onboarding not completed";
        return std::nullopt;
    }
    logTrustCheck(QStringLiteral("captureViaAccessibility"));
    if (!m_platform.accessibility->isProcessTrusted()) {
        PLOG(lcInput) << "⚠️ Accessibility permission not granted";
        return std::nullopt;
    }

    PLOG(lcInput) << "🔍 About to call AXUIElementCreateSystemWide()";
    const std::unique_ptr<AccessibilityTextSource::Element> focused = m_platform.accessibility->focusedElement();
    if (!focused) {
        PLOG(lcInput) << "⚠️ Could not get focused element";
        return std::nullopt;
    }
    if (std::optional<QString> selected = focused->selectedText(); hasText(selected))
        return selected;
    // A field without a selection gives its whole content: the user pointed at it on purpose.
    if (std::optional<QString> value = focused->value(); hasText(value))
        return value;
    return std::nullopt;
}

std::optional<QString> TextCaptureService::captureViaClipboard()
{
    // What is selected right now is on the primary selection already; reading it sends no key press
    // and leaves the clipboard alone.
    if (std::optional<QString> primary = m_platform.clipboard->primarySelectionText(); hasText(primary)) {
        PLOG(lcInput) << "📋 Primary selection has text (" << primary->size() << " chars)";
        return primary;
    }
    PLOG(lcInput) << "📋 Primary selection is empty, sending the copy command";
    return captureViaCopyCommand();
}

std::optional<QString> TextCaptureService::captureViaCopyCommand()
{
    SelectionClipboard &clipboard = *m_platform.clipboard;
    const quint64 oldCount = clipboard.changeCount();
    const std::optional<QString> oldContent = clipboard.clipboardText();
    PLOG(lcInput) << "📋 Clipboard before Ctrl+C - changeCount: " << oldCount;
    PLOG(lcDiagnostics) << "📋 Old content preview: " << preview(oldContent);

    const QStringList windowClass = m_platform.windows->activeWindowClass();
    const auto chord = isTerminalWindowClass(windowClass) ? SyntheticKeySender::CopyChord::controlShiftC
                                                          : SyntheticKeySender::CopyChord::controlC;
    if (chord == SyntheticKeySender::CopyChord::controlShiftC)
        PLOG(lcInput) << "📋 Terminal window (" << windowClass.join(u'/') << ") - sending Ctrl+Shift+C";

    m_platform.keys->releaseHeldModifiers();
    m_platform.keys->pressCopyChord(chord);
    // Most applications copy on the key press; as soon as the clipboard changes there is nothing
    // left to wait for.
    clipboard.waitForChange(oldCount, chordHoldTime);
    m_platform.keys->releaseCopyChord(chord);
    clipboard.waitForChange(oldCount, copyServeTime);

    const quint64 newCount = clipboard.changeCount();
    std::optional<QString> newContent = clipboard.clipboardText();
    PLOG(lcInput) << "📋 Clipboard after Ctrl+C - changeCount: " << newCount;
    PLOG(lcDiagnostics) << "📋 New content preview: " << preview(newContent);
    PLOG(lcInput) << "📋 Change count delta: " << qint64(newCount - oldCount);

    if (newCount > oldCount && hasText(newContent)) {
        PLOG(lcInput) << "✅ Clipboard updated with new content (" << newContent->size() << " chars)";
        PLOG(lcInput) << "   Method: changeCount increased";
        return newContent;
    }
    if (hasText(newContent) && (!oldContent || *newContent != *oldContent)) {
        PLOG(lcInput) << "✅ Clipboard has different content (" << newContent->size() << " chars)";
        PLOG(lcInput) << "   Method: content comparison";
        return newContent;
    }
    if (hasText(newContent)) {
        PLOG(lcInput) << "⚠️ Clipboard content unchanged - same as before";
        PLOG(lcInput) << "   This likely means no text was selected in the frontmost app";
        return std::nullopt;
    }
    PLOG(lcInput) << "⚠️ No text captured via clipboard";
    return std::nullopt;
}

bool TextCaptureService::hasAccessibilityPermission()
{
    if (!onboardingCompleted()) {
        PLOG(lcInput) << "🔒 Accessibility check skipped - onboarding not completed";
        return false;
    }
    if (m_platform.accessibility->isProcessTrusted())
        return true;
    const QString desktopFile = QGuiApplication::desktopFileName();
    const QString executable = QCoreApplication::applicationFilePath();
    PLOG(lcInput) << "🔍 Accessibility check details:";
    PLOG(lcInput) << "   - AXIsProcessTrusted: false";
    PLOG(lcInput) << "   - Bundle ID: " << (desktopFile.isEmpty() ? QStringLiteral("none") : desktopFile);
    PLOG(lcInput) << "   - Executable: " << (executable.isEmpty() ? QStringLiteral("none") : executable);
    PLOG(lcInput) << "   - Process name: " << QFileInfo(executable).fileName();
    return false;
}

bool TextCaptureService::isTerminalWindowClass(const QStringList &windowClass)
{
    static const QStringList terminals{QStringLiteral("xterm"),
                                       QStringLiteral("uxterm"),
                                       QStringLiteral("gnome-terminal"),
                                       QStringLiteral("gnome-terminal-server"),
                                       QStringLiteral("org.gnome.terminal"),
                                       QStringLiteral("org.gnome.console"),
                                       QStringLiteral("kgx"),
                                       QStringLiteral("org.gnome.ptyxis"),
                                       QStringLiteral("konsole"),
                                       QStringLiteral("org.kde.konsole"),
                                       QStringLiteral("yakuake"),
                                       QStringLiteral("xfce4-terminal"),
                                       QStringLiteral("mate-terminal"),
                                       QStringLiteral("lxterminal"),
                                       QStringLiteral("qterminal"),
                                       QStringLiteral("terminator"),
                                       QStringLiteral("tilix"),
                                       QStringLiteral("com.gexperts.tilix"),
                                       QStringLiteral("guake"),
                                       QStringLiteral("tilda"),
                                       QStringLiteral("sakura"),
                                       QStringLiteral("terminology"),
                                       QStringLiteral("alacritty"),
                                       QStringLiteral("kitty"),
                                       QStringLiteral("foot"),
                                       QStringLiteral("footclient"),
                                       QStringLiteral("wezterm"),
                                       QStringLiteral("org.wezfurlong.wezterm"),
                                       QStringLiteral("urxvt"),
                                       QStringLiteral("rxvt"),
                                       QStringLiteral("rxvt-unicode"),
                                       QStringLiteral("st"),
                                       QStringLiteral("st-256color"),
                                       QStringLiteral("eterm"),
                                       QStringLiteral("cool-retro-term"),
                                       QStringLiteral("deepin-terminal"),
                                       QStringLiteral("x-terminal-emulator"),
                                       QStringLiteral("contour"),
                                       QStringLiteral("blackbox"),
                                       QStringLiteral("com.raggesilver.blackbox"),
                                       QStringLiteral("hyper")};
    for (const QString &name : windowClass) {
        if (terminals.contains(name.toLower()))
            return true;
    }
    return false;
}

} // namespace parlino
