#pragma once

#include "input/KeyboardShortcut.h"

#include <QObject>

namespace parlino {

// The window system's global hot-key service. Registrations are identified by the caller's id; a
// press of a registered combination anywhere on the desktop emits hotKeyPressed(id) on the main thread.
class HotKeyBackend : public QObject {
    Q_OBJECT
public:
    struct Registration {
        bool registered{false};
        int status{0}; // the window system's error number when not registered
    };

    using QObject::QObject;
    ~HotKeyBackend() override = default;

    [[nodiscard]] virtual Registration registerHotKey(quint32 id, const KeyboardShortcut &shortcut) = 0;
    virtual void unregisterHotKey(quint32 id) = 0;

Q_SIGNALS:
    void hotKeyPressed(quint32 id);
};

} // namespace parlino
