#pragma once

#include "input/AccessibilityTextSource.h"

#include <functional>

namespace parlino {

class X11ActiveWindow;

// The focused element's text through AT-SPI. Focus is tracked from the accessibility bus's focus
// events; when the tracked element no longer has the focus (or belongs to another process than the
// active window), the active window of the front application is searched for its focused element.
// Applications only publish their text when the accessibility bus was on before they started.
class AtSpiTextReader final : public AccessibilityTextSource {
public:
    // `activeWindowProcessId` tells which process owns the active window (absent when unknown); the
    // focused element must belong to it, so an application that publishes nothing is never answered
    // with the text of another one that stayed in the background.
    explicit AtSpiTextReader(std::function<std::optional<qint64>()> activeWindowProcessId = {});
    ~AtSpiTextReader() override;
    AtSpiTextReader(const AtSpiTextReader &) = delete;
    AtSpiTextReader &operator=(const AtSpiTextReader &) = delete;

    [[nodiscard]] bool isProcessTrusted() override;
    [[nodiscard]] std::unique_ptr<Element> focusedElement() override;

private:
    bool ensureConnected();
    static void onFocusEvent(void *event, void *self);

    std::function<std::optional<qint64>()> m_activeWindowProcessId;
    void *m_listener{nullptr}; // AtspiEventListener
    void *m_focused{nullptr};  // AtspiAccessible, the last element that gained the focus
    bool m_connected{false};
};

} // namespace parlino
