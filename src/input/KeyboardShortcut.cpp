#include "input/KeyboardShortcut.h"

#include <QJsonValue>

#include <array>
#include <cmath>

namespace parlino {

namespace {

struct KeyName {
    quint32 keyCode;
    const char16_t *name;
};

// Virtual key codes of the ANSI layout and the names Linux desktops show for those keys.
// clang-format off
constexpr auto keyNames = std::to_array<KeyName>({
    {0, u"A"}, {1, u"S"}, {2, u"D"}, {3, u"F"}, {4, u"H"}, {5, u"G"}, {6, u"Z"}, {7, u"X"}, {8, u"C"},
    {9, u"V"}, {11, u"B"}, {12, u"Q"}, {13, u"W"}, {14, u"E"}, {15, u"R"}, {16, u"Y"}, {17, u"T"},
    {18, u"1"}, {19, u"2"}, {20, u"3"}, {21, u"4"}, {22, u"6"}, {23, u"5"}, {24, u"="}, {25, u"9"},
    {26, u"7"}, {27, u"-"}, {28, u"8"}, {29, u"0"}, {30, u"]"}, {31, u"O"}, {32, u"U"}, {33, u"["},
    {34, u"I"}, {35, u"P"}, {36, u"Return"}, {37, u"L"}, {38, u"J"}, {39, u"'"}, {40, u"K"}, {41, u";"},
    {42, u"\\"}, {43, u","}, {44, u"/"}, {45, u"N"}, {46, u"M"}, {47, u"."}, {48, u"Tab"}, {49, u"Space"},
    {50, u"`"}, {51, u"Backspace"}, {53, u"Escape"}, {64, u"F17"}, {65, u"Keypad ."}, {67, u"Keypad *"},
    {69, u"Keypad +"}, {71, u"Num Lock"}, {75, u"Keypad /"}, {76, u"Keypad Enter"}, {78, u"Keypad -"},
    {79, u"F18"}, {80, u"F19"}, {81, u"Keypad ="}, {82, u"Keypad 0"}, {83, u"Keypad 1"}, {84, u"Keypad 2"},
    {85, u"Keypad 3"}, {86, u"Keypad 4"}, {87, u"Keypad 5"}, {88, u"Keypad 6"}, {89, u"Keypad 7"},
    {90, u"F20"}, {91, u"Keypad 8"}, {92, u"Keypad 9"}, {96, u"F5"}, {97, u"F6"}, {98, u"F7"},
    {99, u"F3"}, {100, u"F8"}, {101, u"F9"}, {103, u"F11"}, {105, u"F13"}, {106, u"F16"}, {107, u"F14"},
    {109, u"F10"}, {111, u"F12"}, {113, u"F15"}, {114, u"Insert"}, {115, u"Home"}, {116, u"Page Up"},
    {117, u"Delete"}, {118, u"F4"}, {119, u"End"}, {120, u"F2"}, {121, u"Page Down"}, {122, u"F1"},
    {123, u"Left"}, {124, u"Right"}, {125, u"Down"}, {126, u"Up"},
});
// clang-format on

bool readWholeNumber(const QJsonObject &object, const QString &member, quint32 *value, QString *error)
{
    const QJsonValue json = object.value(member);
    const double number = json.toDouble(-1);
    if (!json.isDouble() || number < 0 || number > 0xFFFFFFFFu || std::floor(number) != number) {
        *error = QStringLiteral("\"%1\" is missing or not a non-negative whole number").arg(member);
        return false;
    }
    *value = quint32(number);
    return true;
}

} // namespace

QString KeyboardShortcut::displayString() const
{
    QString text;
    if (modifiers & command)
        text += u"Super+";
    if (modifiers & control)
        text += u"Ctrl+";
    if (modifiers & option)
        text += u"Alt+";
    if (modifiers & shift)
        text += u"Shift+";
    return text + keyCodeToString(keyCode);
}

std::optional<quint32> KeyboardShortcut::keyCodeFromString(const QString &name)
{
    for (const KeyName &key : keyNames) {
        if (name == QStringView(key.name))
            return key.keyCode;
    }
    return std::nullopt;
}

QString KeyboardShortcut::keyCodeToString(quint32 keyCode)
{
    for (const KeyName &key : keyNames) {
        if (key.keyCode == keyCode)
            return QString::fromUtf16(key.name);
    }
    return QStringLiteral("Key 0x%1").arg(keyCode, 2, 16, QLatin1Char('0'));
}

QJsonObject KeyboardShortcut::toJson() const
{
    return QJsonObject{{QStringLiteral("keyCode"), double(keyCode)}, {QStringLiteral("modifiers"), double(modifiers)}};
}

bool KeyboardShortcut::fromJson(const QJsonObject &object, KeyboardShortcut *shortcut, QString *error)
{
    KeyboardShortcut decoded;
    if (!readWholeNumber(object, QStringLiteral("keyCode"), &decoded.keyCode, error)
        || !readWholeNumber(object, QStringLiteral("modifiers"), &decoded.modifiers, error))
        return false;
    *shortcut = decoded;
    return true;
}

} // namespace parlino
