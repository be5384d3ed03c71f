#pragma once

#include "input/HotKeyID.h"

#include <QMap>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>

namespace parlino {

class ShortcutContext;
class HotKeyBackend;
class KeyboardShortcutPreferences;
class ShortcutActions;
class TextCaptureService;

// Registers one global hot key per action from the preferences, receives the presses and starts the
// action: the text actions capture the selection first. Re-registers every key when a binding changes.
// Everything runs on the main thread.
class KeyboardShortcutManager final : public QObject {
    Q_OBJECT
public:
    // What the user sees when a text shortcut finds nothing selected.
    static inline const QString noTextSelectedMessage =
        QStringLiteral("No text selected. Please select some text and try again.");

    // Registers all hot keys at once. `actions` may be attached later with setActions().
    KeyboardShortcutManager(std::unique_ptr<HotKeyBackend> backend, KeyboardShortcutPreferences &preferences,
                            TextCaptureService &capture, const ShortcutContext &context,
                            ShortcutActions *actions = nullptr, QObject *parent = nullptr);
    ~KeyboardShortcutManager() override;

    // Where presses go; presses before this is set are logged and dropped. Not owned.
    void setActions(ShortcutActions *actions) { m_actions = actions; }

    void registerHotKey(HotKeyID id, quint32 keyCode, quint32 modifiers);
    void unregisterAllHotKeys();
    void registerCustomHotKeys();
    void handleHotKey(HotKeyID id);

    // The actions that currently hold a hot key.
    [[nodiscard]] QList<HotKeyID> registeredHotKeys() const { return m_registered.keys(); }

private:
    void onHotKeyPressed(quint32 rawId);
    void onShortcutsChanged();
    void handleReadAloud();
    void handleReadSummary();
    void handleGeneratePodcast();
    [[nodiscard]] std::optional<QString> captureText();

    std::unique_ptr<HotKeyBackend> m_backend;
    KeyboardShortcutPreferences &m_preferences;
    TextCaptureService &m_capture;
    const ShortcutContext &m_context;
    ShortcutActions *m_actions;
    QMap<HotKeyID, quint32> m_registered; // action → backend registration id
    bool m_handling{false};
};

} // namespace parlino
