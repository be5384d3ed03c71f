#pragma once

#include <QStringList>

namespace parlino {

// Facts about the window that has the keyboard focus.
class ActiveWindowInspector {
public:
    virtual ~ActiveWindowInspector() = default;

    // The window's class names (instance and class, e.g. {"xterm", "XTerm"}); empty when unknown.
    [[nodiscard]] virtual QStringList activeWindowClass() = 0;
};

} // namespace parlino
