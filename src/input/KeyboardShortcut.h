#pragma once

#include <QJsonObject>
#include <QString>
#include <QtGlobal>

#include <optional>

namespace parlino {

// One global shortcut binding. The persisted form keeps the key codes and modifier masks of the
// format the bindings were first stored in (virtual key codes of the Apple keyboard layout, Carbon
// modifier masks), so saved bindings stay portable; the hot-key back end translates them for the
// window system.
struct KeyboardShortcut final {
    // Modifier masks.
    static constexpr quint32 command = 0x100; // the Super key on Linux
    static constexpr quint32 shift = 0x200;
    static constexpr quint32 option = 0x800; // the Alt key on Linux
    static constexpr quint32 control = 0x1000;

    quint32 keyCode{0};
    quint32 modifiers{0};

    // Super, Ctrl or Alt is held: a global grab of a bare key (or Shift with one) would take that key
    // away from typing in every application.
    [[nodiscard]] bool hasGlobalModifier() const { return (modifiers & (command | option | control)) != 0; }
    // For the settings screen, e.g. "Super+Shift+R".
    [[nodiscard]] QString displayString() const;
    // The name of a virtual key code ("R", "Right", "F5"); "Key 0x.." for codes outside the table.
    [[nodiscard]] static QString keyCodeToString(quint32 keyCode);
    // The virtual key code of a name keyCodeToString() gives ("R", "Page Up"); nothing for others.
    [[nodiscard]] static std::optional<quint32> keyCodeFromString(const QString &name);

    // {"keyCode": 15, "modifiers": 768}
    [[nodiscard]] QJsonObject toJson() const;
    // Reads the object written by toJson(); returns false and sets `error` when a member is missing or
    // is not a non-negative whole number.
    [[nodiscard]] static bool fromJson(const QJsonObject &object, KeyboardShortcut *shortcut, QString *error);

    friend bool operator==(const KeyboardShortcut &, const KeyboardShortcut &) = default;
};

} // namespace parlino
