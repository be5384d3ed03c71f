#pragma once

class QWidget;

namespace parlino::X11WindowHints {

// Asks the X11 window manager to show `window` on every virtual desktop (sticky). Before the window
// is mapped the hint is written on the window; afterwards it is requested from the window manager.
// Does nothing on other platforms.
void placeOnAllDesktops(QWidget *window);

} // namespace parlino::X11WindowHints
