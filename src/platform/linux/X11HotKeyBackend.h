#pragma once

#include "input/HotKeyBackend.h"

#include <QAbstractNativeEventFilter>
#include <QHash>

#include <xcb/xcb.h>

namespace parlino {

// Global hot keys on X11: a passive key grab on the root window through Qt's own X connection, one
// for each combination of Caps Lock and Num Lock so the keys also work while a lock is on. Presses
// arrive through a native event filter. A combination that another client holds is refused by the
// server with BadAccess; that registration fails and the others are unaffected.
class X11HotKeyBackend final : public HotKeyBackend, public QAbstractNativeEventFilter {
    Q_OBJECT
public:
    // Needs the application to run on the xcb platform.
    explicit X11HotKeyBackend(QObject *parent = nullptr);
    ~X11HotKeyBackend() override;

    [[nodiscard]] Registration registerHotKey(quint32 id, const KeyboardShortcut &shortcut) override;
    void unregisterHotKey(quint32 id) override;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

    // The error number of a key that the keyboard map does not have.
    static constexpr int noSuchKey = -1;

private:
    struct Grab {
        xcb_keycode_t keycode;
        quint16 modifiers;
    };

    void ungrab(const Grab &grab);
    [[nodiscard]] QList<quint16> lockVariants() const;

    xcb_connection_t *m_connection{nullptr};
    void *m_display{nullptr}; // Xlib's Display, for the keyboard map
    xcb_window_t m_root{0};
    quint16 m_numLockMask{0};
    QHash<quint32, Grab> m_grabs; // registration id → grab
};

} // namespace parlino
