#pragma once

#include "input/ActiveWindowInspector.h"

#include <optional>
#include <xcb/xcb.h>

namespace parlino {

// The window that has the keyboard focus, read from the window manager's _NET_ACTIVE_WINDOW (or the
// server's input focus when no window manager publishes it) on a private X connection.
class X11ActiveWindow final : public ActiveWindowInspector {
public:
    X11ActiveWindow();
    ~X11ActiveWindow() override;
    X11ActiveWindow(const X11ActiveWindow &) = delete;
    X11ActiveWindow &operator=(const X11ActiveWindow &) = delete;

    [[nodiscard]] QStringList activeWindowClass() override;
    // The process that owns the window (_NET_WM_PID); absent when the window does not say.
    [[nodiscard]] std::optional<qint64> activeWindowProcessId();

private:
    [[nodiscard]] bool ensureConnection();
    [[nodiscard]] xcb_window_t activeWindow();
    [[nodiscard]] QByteArray property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type);
    [[nodiscard]] xcb_atom_t atom(const char *name);

    xcb_connection_t *m_connection{nullptr};
    xcb_window_t m_root{0};
};

} // namespace parlino
