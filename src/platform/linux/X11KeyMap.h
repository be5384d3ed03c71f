#pragma once

#include <QtGlobal>

#include <optional>

namespace parlino {

// Translates stored shortcut bindings (Apple virtual key codes, Carbon modifier masks) into X11 terms.
class X11KeyMap final {
public:
    X11KeyMap() = delete;

    // The X keysym of the key at `keyCode`; absent for codes without a counterpart.
    [[nodiscard]] static std::optional<quint32> keysymForKeyCode(quint32 keyCode);
    // command → Mod4 (Super), option → Mod1 (Alt), control → Control, shift → Shift.
    [[nodiscard]] static quint16 modifierMask(quint32 carbonModifiers);
};

} // namespace parlino
