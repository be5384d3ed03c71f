#include "platform/linux/X11HotKeyBackend.h"

#include "core/Logging.h"
#include "platform/linux/X11KeyMap.h"

#include <QGuiApplication>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <cstdlib>

namespace parlino {

namespace {

// The modifiers a binding is made of; the lock modifiers (and AltGr) are ignored when matching.
constexpr quint16 bindingModifiers = ShiftMask | ControlMask | Mod1Mask | Mod4Mask;

Display *xDisplay(void *display)
{
    return static_cast<Display *>(display);
}

quint16 findNumLockMask(Display *display)
{
    const KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
    XModifierKeymap *map = XGetModifierMapping(display);
    quint16 mask = Mod2Mask;
    if (map && numLock != 0) {
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int i = 0; i < map->max_keypermod; ++i) {
                if (map->modifiermap[modifier * map->max_keypermod + i] == numLock)
                    mask = quint16(1u << modifier);
            }
        }
    }
    if (map)
        XFreeModifiermap(map);
    return mask;
}

} // namespace

X11HotKeyBackend::X11HotKeyBackend(QObject *parent)
    : HotKeyBackend(parent)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    // The offscreen platform answers the X11 interface without a connection to a display.
    if (!x11 || !x11->connection()) {
        PLOG(lcPlatform) << "⚠️ Global shortcuts need an X11 session; none will be registered";
        return;
    }
    m_connection = x11->connection();
    m_display = x11->display();
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    m_numLockMask = findNumLockMask(xDisplay(m_display));
    qGuiApp->installNativeEventFilter(this);
}

X11HotKeyBackend::~X11HotKeyBackend()
{
    if (!m_connection)
        return;
    for (const Grab &grab : std::as_const(m_grabs))
        ungrab(grab);
    xcb_flush(m_connection);
    if (qGuiApp)
        qGuiApp->removeNativeEventFilter(this);
}

QList<quint16> X11HotKeyBackend::lockVariants() const
{
    return {0, LockMask, m_numLockMask, quint16(LockMask | m_numLockMask)};
}

HotKeyBackend::Registration X11HotKeyBackend::registerHotKey(quint32 id, const KeyboardShortcut &shortcut)
{
    if (!m_connection)
        return {false, noSuchKey};
    const std::optional<quint32> keysym = X11KeyMap::keysymForKeyCode(shortcut.keyCode);
    const KeyCode keycode = keysym ? XKeysymToKeycode(xDisplay(m_display), *keysym) : 0;
    if (keycode == 0) {
        PLOG(lcPlatform) << "⚠️ The keyboard has no key for " << shortcut.displayString();
        return {false, noSuchKey};
    }
    const Grab grab{keycode, X11KeyMap::modifierMask(shortcut.modifiers)};
    for (auto it = m_grabs.cbegin(); it != m_grabs.cend(); ++it) {
        // The server lets a client grab its own combination twice; only one action could get it.
        if (it.key() != id && it->keycode == grab.keycode && it->modifiers == grab.modifiers)
            return {false, BadAccess};
    }
    unregisterHotKey(id);

    int status = 0;
    QList<quint16> grabbed;
    for (const quint16 variant : lockVariants()) {
        const xcb_void_cookie_t cookie = xcb_grab_key_checked(m_connection, 1, m_root, grab.modifiers | variant,
                                                              grab.keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        if (xcb_generic_error_t *error = xcb_request_check(m_connection, cookie)) {
            status = error->error_code;
            std::free(error);
            break;
        }
        grabbed << variant;
    }
    if (status != 0) {
        for (const quint16 variant : std::as_const(grabbed))
            xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers | variant);
        xcb_flush(m_connection);
        return {false, status};
    }
    m_grabs.insert(id, grab);
    return {true, 0};
}

void X11HotKeyBackend::unregisterHotKey(quint32 id)
{
    const auto found = m_grabs.constFind(id);
    if (found == m_grabs.cend())
        return;
    ungrab(*found);
    xcb_flush(m_connection);
    m_grabs.erase(found);
}

void X11HotKeyBackend::ungrab(const Grab &grab)
{
    for (const quint16 variant : lockVariants())
        xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers | variant);
}

bool X11HotKeyBackend::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & ~0x80) != XCB_KEY_PRESS)
        return false;
    const auto *press = static_cast<const xcb_key_press_event_t *>(message);
    const quint16 modifiers = press->state & bindingModifiers;
    for (auto it = m_grabs.cbegin(); it != m_grabs.cend(); ++it) {
        if (it->keycode != press->detail || it->modifiers != modifiers)
            continue;
        // The grab keeps the keyboard until the key goes up; give it back now, so that the keys the
        // capture sends next reach the focused window instead of this application.
        xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
        xcb_flush(m_connection);
        const quint32 id = it.key();
        QMetaObject::invokeMethod(
            this, [this, id] { Q_EMIT hotKeyPressed(id); }, Qt::QueuedConnection);
        return true;
    }
    return false;
}

} // namespace parlino
