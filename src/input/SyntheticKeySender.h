#pragma once

namespace parlino {

// Sends key presses to the focused window as if typed on the keyboard.
class SyntheticKeySender {
public:
    enum class CopyChord {
        controlC,      // the copy command of ordinary applications
        controlShiftC, // the copy command of terminals, where Ctrl+C interrupts the running program
    };

    virtual ~SyntheticKeySender() = default;

    // Releases Shift, Super and Alt, which the user may still hold from the hot key; while they are
    // down, the copy chord would arrive as a different combination.
    virtual void releaseHeldModifiers() = 0;
    virtual void pressCopyChord(CopyChord chord) = 0;
    virtual void releaseCopyChord(CopyChord chord) = 0;
};

} // namespace parlino
