#pragma once

#include "core/SettingsKeys.h"
#include "input/KeyboardShortcut.h"

#include <QMap>
#include <QObject>
#include <QString>

namespace parlino {

class Defaults;

// The global shortcut bindings: the default table, replaced as a whole by the user's saved bindings
// when there are any. Every change is saved at once and announced with keyboardShortcutsChanged(), to
// which the shortcut manager reacts by registering all keys again.
class KeyboardShortcutPreferences final : public QObject {
    Q_OBJECT
public:
    // Where the bindings are stored: a JSON object from action name to {"keyCode", "modifiers"}.
    static inline const QString &userDefaultsKey = SettingsKeys::customKeyboardShortcuts;
    // Where an unreadable stored value is kept when new bindings are saved over it.
    static inline const QString &unreadableBackupKey = SettingsKeys::customKeyboardShortcutsUnreadable;

    // Loads the bindings from `defaults` once, here.
    explicit KeyboardShortcutPreferences(Defaults &defaults, QObject *parent = nullptr);

    // The bindings the app ships with, by action name.
    [[nodiscard]] static QMap<QString, KeyboardShortcut> defaultShortcuts();

    [[nodiscard]] const QMap<QString, KeyboardShortcut> &shortcuts() const { return m_shortcuts; }

    // Binds `action` to `shortcut`, saves all bindings and announces the change. A shortcut without
    // Super, Ctrl or Alt is refused (and logged); a stored one is replaced by the action's default.
    void set(const KeyboardShortcut &shortcut, const QString &action);
    // Back to the bindings the app ships with, saved and announced like set().
    void resetToDefaults();
    // The action other than `except` that `shortcut` is bound to, or an empty string.
    [[nodiscard]] QString actionBoundTo(const KeyboardShortcut &shortcut, const QString &except = {}) const;

Q_SIGNALS:
    void keyboardShortcutsChanged();

private:
    void loadShortcuts();
    void saveShortcuts();

    Defaults &m_defaults;
    QMap<QString, KeyboardShortcut> m_shortcuts;
    QByteArray m_unreadableData;
};

} // namespace parlino
