#include "ui/SettingsShortcutsPage.h"

#include "input/KeyboardShortcut.h"
#include "input/KeyboardShortcutPreferences.h"
#include "ui/AccessibleHelp.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <array>
#include <utility>

namespace parlino {

namespace {

// The actions in the order a user looks for them, with their labels.
const std::array<std::pair<const char16_t *, const char16_t *>, 15> actionLabels{{
    {u"readAloud", u"Read aloud"},
    {u"readSummary", u"Read a summary"},
    {u"playPause", u"Pause or resume"},
    {u"stopReading", u"Stop"},
    {u"speedUp", u"Faster"},
    {u"speedDown", u"Slower"},
    {u"speedUpFaster", u"Much faster"},
    {u"slowDown", u"Much slower"},
    {u"askQuestion", u"Ask a question"},
    {u"generatePodcast", u"Make a podcast"},
    {u"summarizeText", u"Summarise the selection"},
    {u"readSelectedText", u"Read the selection"},
    {u"saveAudio", u"Save audio"},
    {u"downloadAudio", u"Download audio"},
    {u"openLibrary", u"Open the library"},
}};

// Where Qt's key names and the bindings' names differ.
const std::array<std::pair<const char16_t *, const char16_t *>, 6> qtKeyNames{{
    {u"PgUp", u"Page Up"},
    {u"PgDown", u"Page Down"},
    {u"Esc", u"Escape"},
    {u"Ins", u"Insert"},
    {u"Del", u"Delete"},
    {u"Enter", u"Return"},
}};

} // namespace

SettingsShortcutsPage::SettingsShortcutsPage(KeyboardShortcutPreferences &preferences, QWidget *parent)
    : QWidget(parent)
    , m_preferences(preferences)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 18, 18, 18);
    layout->addWidget(new QLabel(QStringLiteral("Click a shortcut and press the new keys. Global shortcuts need "
                                                "Super, Ctrl or Alt."),
                                 this));

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto *list = new QWidget(scroll);
    auto *form = new QFormLayout(list);
    for (const auto &[action, label] : actionLabels) {
        const QString name = QString::fromUtf16(action);
        if (!m_preferences.shortcuts().contains(name))
            continue;
        auto *editor = new QKeySequenceEdit(list);
        describe(editor, QStringLiteral("Shortcut for ") + QString::fromUtf16(label));
        connect(editor, &QKeySequenceEdit::editingFinished, this, [this, name] { record(name); });
        form->addRow(QString::fromUtf16(label) + u':', editor);
        m_editors.insert(name, editor);
    }
    scroll->setWidget(list);
    layout->addWidget(scroll, 1);

    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    m_status->setAccessibleName(QStringLiteral("Shortcut status"));
    layout->addWidget(m_status);
    auto *reset = new QPushButton(QStringLiteral("Reset to Defaults"), this);
    describe(reset, QStringLiteral("Reset every shortcut to its default"));
    auto *row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(reset);
    layout->addLayout(row);

    connect(reset, &QPushButton::clicked, this, [this] {
        m_preferences.resetToDefaults();
        m_status->setText(QStringLiteral("Every shortcut is back to its default."));
    });
    connect(&m_preferences, &KeyboardShortcutPreferences::keyboardShortcutsChanged, this,
            &SettingsShortcutsPage::refresh);
    refresh();
}

QString SettingsShortcutsPage::actionLabel(const QString &action)
{
    for (const auto &[name, label] : actionLabels) {
        if (action == QStringView(name))
            return QString::fromUtf16(label);
    }
    return action;
}

std::optional<KeyboardShortcut> SettingsShortcutsPage::fromKeySequence(const QKeySequence &sequence)
{
    if (sequence.isEmpty())
        return std::nullopt;
    const QKeyCombination chord = sequence[0];
    const Qt::KeyboardModifiers qtModifiers = chord.keyboardModifiers();
    quint32 modifiers = 0;
    if (qtModifiers & Qt::MetaModifier)
        modifiers |= KeyboardShortcut::command;
    if (qtModifiers & Qt::ControlModifier)
        modifiers |= KeyboardShortcut::control;
    if (qtModifiers & Qt::AltModifier)
        modifiers |= KeyboardShortcut::option;
    if (qtModifiers & Qt::ShiftModifier)
        modifiers |= KeyboardShortcut::shift;
    // Shift alone would take a letter away from typing everywhere.
    if ((modifiers & ~KeyboardShortcut::shift) == 0)
        return std::nullopt;
    QString name = QKeySequence(chord.key()).toString(QKeySequence::PortableText);
    for (const auto &[qtName, ownName] : qtKeyNames) {
        if (name == QStringView(qtName))
            name = QString::fromUtf16(ownName);
    }
    if (qtModifiers & Qt::KeypadModifier)
        name = QStringLiteral("Keypad ") + name;
    const std::optional<quint32> keyCode = KeyboardShortcut::keyCodeFromString(name);
    if (!keyCode)
        return std::nullopt;
    return KeyboardShortcut{*keyCode, modifiers};
}

QKeySequence SettingsShortcutsPage::toKeySequence(const KeyboardShortcut &shortcut)
{
    QString name = KeyboardShortcut::keyCodeToString(shortcut.keyCode);
    for (const auto &[qtName, ownName] : qtKeyNames) {
        if (name == QStringView(ownName))
            name = QString::fromUtf16(qtName);
    }
    QString text;
    if (shortcut.modifiers & KeyboardShortcut::command)
        text += QStringLiteral("Meta+");
    if (shortcut.modifiers & KeyboardShortcut::control)
        text += QStringLiteral("Ctrl+");
    if (shortcut.modifiers & KeyboardShortcut::option)
        text += QStringLiteral("Alt+");
    if (shortcut.modifiers & KeyboardShortcut::shift)
        text += QStringLiteral("Shift+");
    return QKeySequence::fromString(text + name, QKeySequence::PortableText);
}

void SettingsShortcutsPage::record(const QString &action)
{
    QKeySequenceEdit *editor = m_editors.value(action);
    const QKeySequence recorded = editor->keySequence();
    const KeyboardShortcut current = m_preferences.shortcuts().value(action);
    const std::optional<KeyboardShortcut> shortcut = fromKeySequence(recorded);
    const Qt::KeyboardModifiers held = recorded.isEmpty() ? Qt::NoModifier : recorded[0].keyboardModifiers();
    if (!recorded.isEmpty() && !(held & (Qt::MetaModifier | Qt::ControlModifier | Qt::AltModifier))) {
        m_status->setText(QStringLiteral("%1 cannot be a global shortcut: it needs Super, Ctrl or Alt (Shift alone is "
                                         "not enough).")
                              .arg(recorded.toString(QKeySequence::NativeText)));
        refresh();
        return;
    }
    if (!shortcut) {
        if (!recorded.isEmpty())
            m_status->setText(QStringLiteral("%1 cannot be a global shortcut: use Super, Ctrl or Alt with a letter, "
                                             "digit, arrow or function key.")
                                  .arg(recorded.toString(QKeySequence::NativeText)));
        refresh();
        return;
    }
    if (*shortcut == current) {
        refresh();
        return;
    }
    if (const QString other = m_preferences.actionBoundTo(*shortcut, action); !other.isEmpty()) {
        m_status->setText(QStringLiteral("%1 is already the shortcut for “%2”. Choose another combination, or change "
                                         "that one first.")
                              .arg(shortcut->displayString(), actionLabel(other)));
        refresh();
        return;
    }
    m_preferences.set(*shortcut, action);
    m_status->setText(QStringLiteral("“%1” is now %2.").arg(actionLabel(action), shortcut->displayString()));
}

void SettingsShortcutsPage::refresh()
{
    for (auto it = m_editors.cbegin(); it != m_editors.cend(); ++it) {
        const QSignalBlocker quiet(it.value());
        const KeyboardShortcut shortcut = m_preferences.shortcuts().value(it.key());
        it.value()->setKeySequence(toKeySequence(shortcut));
        // Qt calls the Super key "Meta"; the page uses the name Linux desktops show.
        if (auto *text = it.value()->findChild<QLineEdit *>())
            text->setText(shortcut.displayString());
    }
}

} // namespace parlino
