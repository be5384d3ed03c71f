#pragma once

#include "input/SyntheticKeySender.h"

namespace parlino {

// Synthetic key presses through the XTest extension on a private X connection: the server treats
// them like keys typed on the keyboard and sends them to the focused window.
class XTestKeySender final : public SyntheticKeySender {
public:
    XTestKeySender();
    ~XTestKeySender() override;
    XTestKeySender(const XTestKeySender &) = delete;
    XTestKeySender &operator=(const XTestKeySender &) = delete;

    void releaseHeldModifiers() override;
    void pressCopyChord(CopyChord chord) override;
    void releaseCopyChord(CopyChord chord) override;

private:
    [[nodiscard]] bool ensureDisplay();
    void sendKey(unsigned long keysym, bool press);

    void *m_display{nullptr}; // Xlib's Display
};

} // namespace parlino
