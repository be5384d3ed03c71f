#include "platform/linux/XTestKeySender.h"

#include "core/Logging.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <array>

namespace parlino {

namespace {

Display *xDisplay(void *display)
{
    return static_cast<Display *>(display);
}

bool isKeyDown(const std::array<char, 32> &keys, KeyCode keycode)
{
    return (keys[keycode / 8] & (1 << (keycode % 8))) != 0;
}

} // namespace

XTestKeySender::XTestKeySender() = default;

XTestKeySender::~XTestKeySender()
{
    if (m_display)
        XCloseDisplay(xDisplay(m_display));
}

bool XTestKeySender::ensureDisplay()
{
    if (m_display)
        return true;
    Display *display = XOpenDisplay(nullptr);
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (!display || !XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        PLOG(lcPlatform) << "⚠️ Cannot send keys: no X display with the XTest extension";
        if (display)
            XCloseDisplay(display);
        return false;
    }
    m_display = display;
    return true;
}

void XTestKeySender::releaseHeldModifiers()
{
    if (!ensureDisplay())
        return;
    Display *display = xDisplay(m_display);
    std::array<char, 32> keys{};
    XQueryKeymap(display, keys.data());
    XModifierKeymap *map = XGetModifierMapping(display);
    if (!map)
        return;
    // Shift, Alt and Super, on whichever keys the keyboard map puts them.
    for (const int modifier : {ShiftMapIndex, Mod1MapIndex, Mod4MapIndex}) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode keycode = map->modifiermap[modifier * map->max_keypermod + i];
            if (keycode != 0 && isKeyDown(keys, keycode))
                XTestFakeKeyEvent(display, keycode, False, CurrentTime);
        }
    }
    XFreeModifiermap(map);
    XFlush(display);
}

void XTestKeySender::sendKey(unsigned long keysym, bool press)
{
    Display *display = xDisplay(m_display);
    const KeyCode keycode = XKeysymToKeycode(display, keysym);
    if (keycode == 0) {
        PLOG(lcPlatform) << "⚠️ The keyboard map has no key for keysym 0x" << QString::number(keysym, 16);
        return;
    }
    XTestFakeKeyEvent(display, keycode, press ? True : False, CurrentTime);
}

void XTestKeySender::pressCopyChord(CopyChord chord)
{
    if (!ensureDisplay())
        return;
    sendKey(XK_Control_L, true);
    if (chord == CopyChord::controlShiftC)
        sendKey(XK_Shift_L, true);
    sendKey(XK_c, true);
    XFlush(xDisplay(m_display));
}

void XTestKeySender::releaseCopyChord(CopyChord chord)
{
    if (!ensureDisplay())
        return;
    sendKey(XK_c, false);
    if (chord == CopyChord::controlShiftC)
        sendKey(XK_Shift_L, false);
    sendKey(XK_Control_L, false);
    XFlush(xDisplay(m_display));
}

} // namespace parlino
