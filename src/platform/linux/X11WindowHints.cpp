#include "platform/linux/X11WindowHints.h"

#include <QGuiApplication>
#include <QWidget>

#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>

namespace parlino::X11WindowHints {

namespace {

constexpr quint32 kAllDesktops = 0xFFFFFFFF;
constexpr quint32 kNetWmStateAdd = 1;
constexpr quint32 kSourceApplication = 1;

xcb_atom_t internAtom(xcb_connection_t *connection, const char *name)
{
    const xcb_intern_atom_cookie_t cookie =
        xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    return atom;
}

void sendToRoot(xcb_connection_t *connection, xcb_window_t root, xcb_window_t window, xcb_atom_t type,
                std::initializer_list<quint32> data)
{
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    int i = 0;
    for (quint32 value : data)
        message.data.data32[i++] = value;
    xcb_send_event(connection, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&message));
}

} // namespace

void placeOnAllDesktops(QWidget *window)
{
    if (!window || QGuiApplication::platformName() != QLatin1String("xcb"))
        return;
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return;
    const auto id = static_cast<xcb_window_t>(window->winId());
    const xcb_atom_t desktop = internAtom(connection, "_NET_WM_DESKTOP");
    const xcb_atom_t state = internAtom(connection, "_NET_WM_STATE");
    const xcb_atom_t sticky = internAtom(connection, "_NET_WM_STATE_STICKY");
    if (desktop == XCB_ATOM_NONE || state == XCB_ATOM_NONE || sticky == XCB_ATOM_NONE)
        return;

    if (!window->isVisible()) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1, &kAllDesktops);
    } else {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        sendToRoot(connection, root, id, desktop, {kAllDesktops, kSourceApplication});
        sendToRoot(connection, root, id, state, {kNetWmStateAdd, sticky, XCB_ATOM_NONE, kSourceApplication});
    }
    xcb_flush(connection);
}

} // namespace parlino::X11WindowHints
