#pragma once

#include <QString>

#include <chrono>
#include <optional>

namespace parlino {

// The desktop's selections: the primary selection (what is selected right now, no key press needed)
// and the clipboard with a change count that grows with every new clipboard owner or content.
class SelectionClipboard {
public:
    virtual ~SelectionClipboard() = default;

    [[nodiscard]] virtual std::optional<QString> primarySelectionText() = 0;
    [[nodiscard]] virtual std::optional<QString> clipboardText() = 0;
    [[nodiscard]] virtual quint64 changeCount() = 0;
    // Waits until the change count exceeds `changeCount` or `timeout` has passed; true on a change.
    // Keeps serving the event loop meanwhile, except for user input.
    virtual bool waitForChange(quint64 changeCount, std::chrono::milliseconds timeout) = 0;
};

} // namespace parlino
