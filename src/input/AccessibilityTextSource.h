#pragma once

#include <QString>

#include <memory>
#include <optional>

namespace parlino {

// The desktop's accessibility interface as text capture needs it: whether it may be used at all, and
// the text of the element that has the keyboard focus in the front application.
class AccessibilityTextSource {
public:
    class Element {
    public:
        virtual ~Element() = default;
        // The selected part of the element's text; absent when it has no text or no selection.
        [[nodiscard]] virtual std::optional<QString> selectedText() = 0;
        // The element's whole text.
        [[nodiscard]] virtual std::optional<QString> value() = 0;
    };

    virtual ~AccessibilityTextSource() = default;

    // The counterpart of the accessibility trust test: other applications' text can be read.
    [[nodiscard]] virtual bool isProcessTrusted() = 0;
    // The focused element of the front application; null when there is none or it cannot be reached.
    [[nodiscard]] virtual std::unique_ptr<Element> focusedElement() = 0;
};

} // namespace parlino
