#pragma once

#include <QMap>
#include <QWidget>

#include <optional>

class QKeySequence;
class QKeySequenceEdit;
class QLabel;

namespace parlino {

class KeyboardShortcutPreferences;
struct KeyboardShortcut;

// Every global shortcut with a key recorder: a new combination is taken at once (the shortcut manager
// grabs it again), a combination another action already uses is refused with the name of that action,
// and one button brings back the shipped bindings.
class SettingsShortcutsPage final : public QWidget {
    Q_OBJECT
public:
    explicit SettingsShortcutsPage(KeyboardShortcutPreferences &preferences, QWidget *parent = nullptr);

    // The label of an action as the page shows it ("Read aloud"); the action's name when unknown.
    [[nodiscard]] static QString actionLabel(const QString &action);
    // A recorded key combination as a binding; nothing for keys a global shortcut cannot use.
    [[nodiscard]] static std::optional<KeyboardShortcut> fromKeySequence(const QKeySequence &sequence);
    [[nodiscard]] static QKeySequence toKeySequence(const KeyboardShortcut &shortcut);

private:
    void record(const QString &action);
    void refresh();

    KeyboardShortcutPreferences &m_preferences;
    QMap<QString, QKeySequenceEdit *> m_editors;
    QLabel *m_status = nullptr;
};

} // namespace parlino
