#include "input/KeyboardShortcutPreferences.h"

#include "core/Defaults.h"
#include "core/Logging.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace parlino {

namespace {

constexpr quint32 commandShift = KeyboardShortcut::command | KeyboardShortcut::shift;

// Decodes the saved dictionary; returns false with a reason when any part of it is unreadable, so a
// damaged value never yields half a set of bindings.
bool decodeShortcuts(const QByteArray &data, QMap<QString, KeyboardShortcut> *shortcuts, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = parseError.errorString() + QStringLiteral(" at offset ") + QString::number(parseError.offset);
        return false;
    }
    if (!document.isObject()) {
        *error = QStringLiteral("the stored value is not a JSON object");
        return false;
    }
    QMap<QString, KeyboardShortcut> decoded;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        KeyboardShortcut shortcut;
        QString memberError;
        if (!it.value().isObject()) {
            *error = QStringLiteral("the binding for \"%1\" is not an object").arg(it.key());
            return false;
        }
        if (!KeyboardShortcut::fromJson(it.value().toObject(), &shortcut, &memberError)) {
            *error = QStringLiteral("the binding for \"%1\": %2").arg(it.key(), memberError);
            return false;
        }
        decoded.insert(it.key(), shortcut);
    }
    *shortcuts = decoded;
    return true;
}

} // namespace

KeyboardShortcutPreferences::KeyboardShortcutPreferences(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    loadShortcuts();
}

QMap<QString, KeyboardShortcut> KeyboardShortcutPreferences::defaultShortcuts()
{
    using K = KeyboardShortcut;
    return {
        {QStringLiteral("readAloud"), {15, commandShift}},
        {QStringLiteral("readSummary"), {4, commandShift}},
        {QStringLiteral("playPause"), {35, commandShift}},
        {QStringLiteral("speedUp"), {124, K::command}},
        {QStringLiteral("speedDown"), {123, K::command}},
        {QStringLiteral("generatePodcast"), {5, commandShift}},
        {QStringLiteral("downloadAudio"), {13, commandShift}},
        // Shares the S key with "stopReading"; Alt instead of Shift tells them apart.
        {QStringLiteral("saveAudio"), {1, K::command | K::option}},
        {QStringLiteral("summarizeText"), {17, commandShift}},
        {QStringLiteral("readSelectedText"), {0, commandShift}},
        {QStringLiteral("stopReading"), {1, commandShift}},
        {QStringLiteral("speedUpFaster"), {3, commandShift}},
        {QStringLiteral("slowDown"), {2, commandShift}},
        {QStringLiteral("openLibrary"), {37, commandShift}},
        {QStringLiteral("askQuestion"), {12, commandShift}},
    };
}

void KeyboardShortcutPreferences::set(const KeyboardShortcut &shortcut, const QString &action)
{
    if (!shortcut.hasGlobalModifier()) {
        PWARN(lcInput) << "⚠️ Refusing " << shortcut.displayString() << " for " << action
                       << ": a global shortcut needs Super, Ctrl or Alt";
        return;
    }
    m_shortcuts.insert(action, shortcut);
    saveShortcuts();
    Q_EMIT keyboardShortcutsChanged();
}

void KeyboardShortcutPreferences::resetToDefaults()
{
    m_shortcuts = defaultShortcuts();
    saveShortcuts();
    Q_EMIT keyboardShortcutsChanged();
}

QString KeyboardShortcutPreferences::actionBoundTo(const KeyboardShortcut &shortcut, const QString &except) const
{
    for (auto it = m_shortcuts.cbegin(); it != m_shortcuts.cend(); ++it) {
        if (it.value() == shortcut && it.key() != except)
            return it.key();
    }
    return {};
}

void KeyboardShortcutPreferences::loadShortcuts()
{
    m_shortcuts = defaultShortcuts();
    const QByteArray data = m_defaults.dataForKey(userDefaultsKey);
    if (data.isEmpty())
        return;
    QMap<QString, KeyboardShortcut> decoded;
    QString error;
    if (!decodeShortcuts(data, &decoded, &error)) {
        // The damaged value stays where it is; the first save moves it aside instead of dropping it.
        PLOG(lcInput) << "❌ Failed to load shortcuts: " << error;
        m_unreadableData = data;
        return;
    }
    const QMap<QString, KeyboardShortcut> defaults = defaultShortcuts();
    for (auto it = decoded.begin(); it != decoded.end();) {
        if (it.value().hasGlobalModifier()) {
            ++it;
            continue;
        }
        PWARN(lcInput) << "⚠️ The stored shortcut " << it.value().displayString() << " for " << it.key()
                       << " has no Super, Ctrl or Alt; using the default";
        if (defaults.contains(it.key())) {
            it.value() = defaults.value(it.key());
            ++it;
        } else {
            it = decoded.erase(it);
        }
    }
    m_shortcuts = decoded;
    PLOG(lcInput) << "✅ Loaded " << m_shortcuts.size() << " custom shortcuts";
}

void KeyboardShortcutPreferences::saveShortcuts()
{
    QJsonObject object;
    for (auto it = m_shortcuts.cbegin(); it != m_shortcuts.cend(); ++it)
        object.insert(it.key(), it.value().toJson());
    const QByteArray data = QJsonDocument(object).toJson(QJsonDocument::Compact);
    if (data.isEmpty()) {
        PLOG(lcInput) << "❌ Failed to save shortcuts: "
                      << "the bindings could not be encoded";
        return;
    }
    if (!m_unreadableData.isEmpty()) {
        m_defaults.set(unreadableBackupKey, m_unreadableData);
        PLOG(lcInput) << "ℹ️ Kept the unreadable shortcut bindings under " << unreadableBackupKey;
        m_unreadableData.clear();
    }
    m_defaults.set(userDefaultsKey, data);
}

} // namespace parlino
