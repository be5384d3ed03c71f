#pragma once

#include "input/AccessibilityTextSource.h"
#include "input/ActiveWindowInspector.h"
#include "input/SelectionClipboard.h"
#include "input/SyntheticKeySender.h"
#include "input/TextCaptureService.h"

#include <QStringList>

#include <functional>

namespace parlino::test {

// Stand-ins for the desktop services text capture uses, for the decisions a real application cannot
// be made to produce on demand. Every call is recorded in `calls`.
class FakeCapturePlatform final : public AccessibilityTextSource,
                                  public SelectionClipboard,
                                  public SyntheticKeySender,
                                  public ActiveWindowInspector {
public:
    class FakeElement final : public Element {
    public:
        FakeElement(FakeCapturePlatform &owner)
            : m_owner(owner)
        {
        }
        std::optional<QString> selectedText() override { return m_owner.selectedText; }
        std::optional<QString> value() override { return m_owner.value; }

    private:
        FakeCapturePlatform &m_owner;
    };

    // Accessibility
    bool trusted{true};
    bool hasFocusedElement{true};
    std::optional<QString> selectedText;
    std::optional<QString> value;
    // Selections
    std::optional<QString> primary;
    std::optional<QString> clipboard;
    quint64 count{0};
    // Runs when the copy chord goes down: plays the front application serving (or ignoring) the copy.
    std::function<void(FakeCapturePlatform &)> onCopy;
    QStringList windowClass{QStringLiteral("editor"), QStringLiteral("Editor")};

    QStringList calls;

    TextCaptureService::Platform platform() { return {this, this, this, this}; }

    bool isProcessTrusted() override
    {
        calls << QStringLiteral("trusted");
        return trusted;
    }
    std::unique_ptr<Element> focusedElement() override
    {
        calls << QStringLiteral("focusedElement");
        return hasFocusedElement ? std::make_unique<FakeElement>(*this) : nullptr;
    }
    std::optional<QString> primarySelectionText() override
    {
        calls << QStringLiteral("primary");
        return primary;
    }
    std::optional<QString> clipboardText() override
    {
        calls << QStringLiteral("clipboard");
        return clipboard;
    }
    quint64 changeCount() override { return count; }
    bool waitForChange(quint64 since, std::chrono::milliseconds) override { return count > since; }
    void releaseHeldModifiers() override { calls << QStringLiteral("releaseModifiers"); }
    void pressCopyChord(CopyChord chord) override
    {
        calls << (chord == CopyChord::controlC ? QStringLiteral("press Ctrl+C") : QStringLiteral("press Ctrl+Shift+C"));
        if (onCopy)
            onCopy(*this);
    }
    void releaseCopyChord(CopyChord) override { calls << QStringLiteral("release"); }
    QStringList activeWindowClass() override
    {
        calls << QStringLiteral("windowClass");
        return windowClass;
    }
};

} // namespace parlino::test
