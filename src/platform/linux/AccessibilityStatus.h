#pragma once

namespace parlino {

// Whether the desktop's accessibility bus (AT-SPI) is switched on: the org.a11y.Status.IsEnabled
// property of org.a11y.Bus on the session bus. When it is on, applications started afterwards publish
// their text to it and other applications' selections can be read; it is Linux's counterpart of the
// accessibility permission.
class AccessibilityStatus final {
public:
    AccessibilityStatus() = delete;

    [[nodiscard]] static bool isEnabled();
    // Switches the bus on (or off); false when the session bus or the accessibility bus is missing.
    static bool setEnabled(bool enabled);
};

} // namespace parlino
