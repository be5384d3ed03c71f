#include "input/KeyboardShortcutManager.h"

#include "core/Logging.h"
#include "input/HotKeyBackend.h"
#include "input/KeyboardShortcutPreferences.h"
#include "input/ShortcutActions.h"
#include "input/ShortcutContext.h"
#include "input/TextCaptureService.h"

#include <QScopedValueRollback>

#include <array>

namespace parlino {

namespace {

// The order in which the bindings are registered.
constexpr std::array registrationOrder{
    HotKeyID::readAloud,        HotKeyID::readSummary,   HotKeyID::speedUp,     HotKeyID::speedDown,
    HotKeyID::generatePodcast,  HotKeyID::downloadAudio, HotKeyID::saveAudio,   HotKeyID::summarizeText,
    HotKeyID::readSelectedText, HotKeyID::playPause,     HotKeyID::stopReading, HotKeyID::speedUpFaster,
    HotKeyID::slowDown,         HotKeyID::openLibrary,   HotKeyID::askQuestion,
};

} // namespace

KeyboardShortcutManager::KeyboardShortcutManager(std::unique_ptr<HotKeyBackend> backend,
                                                 KeyboardShortcutPreferences &preferences, TextCaptureService &capture,
                                                 const ShortcutContext &context, ShortcutActions *actions,
                                                 QObject *parent)
    : QObject(parent)
    , m_backend(std::move(backend))
    , m_preferences(preferences)
    , m_capture(capture)
    , m_context(context)
    , m_actions(actions)
{
    connect(m_backend.get(), &HotKeyBackend::hotKeyPressed, this, &KeyboardShortcutManager::onHotKeyPressed);
    registerCustomHotKeys();
    connect(&m_preferences, &KeyboardShortcutPreferences::keyboardShortcutsChanged, this,
            &KeyboardShortcutManager::onShortcutsChanged);
}

KeyboardShortcutManager::~KeyboardShortcutManager()
{
    for (const quint32 registration : std::as_const(m_registered))
        m_backend->unregisterHotKey(registration);
}

void KeyboardShortcutManager::registerHotKey(HotKeyID id, quint32 keyCode, quint32 modifiers)
{
    const quint32 raw = quint32(id);
    const HotKeyBackend::Registration result = m_backend->registerHotKey(raw, KeyboardShortcut{keyCode, modifiers});
    if (!result.registered) {
        // A key another application holds only costs this one action its hot key.
        PLOG(lcInput) << "⚠️ Failed to register hotkey " << raw << ": " << result.status;
        return;
    }
    m_registered.insert(id, raw);
}

void KeyboardShortcutManager::unregisterAllHotKeys()
{
    for (const quint32 registration : std::as_const(m_registered))
        m_backend->unregisterHotKey(registration);
    m_registered.clear();
    PLOG(lcInput) << "✅ Unregistered all keyboard shortcuts";
}

void KeyboardShortcutManager::registerCustomHotKeys()
{
    const QMap<QString, KeyboardShortcut> &shortcuts = m_preferences.shortcuts();
    for (const HotKeyID id : registrationOrder) {
        const auto found = shortcuts.constFind(actionName(id));
        if (found != shortcuts.cend())
            registerHotKey(id, found->keyCode, found->modifiers);
    }
    PLOG(lcInput) << "✅ Registered custom keyboard shortcuts";
}

void KeyboardShortcutManager::onShortcutsChanged()
{
    PLOG(lcInput) << "🔄 Keyboard shortcuts changed - re-registering...";
    unregisterAllHotKeys();
    registerCustomHotKeys();
}

void KeyboardShortcutManager::onHotKeyPressed(quint32 rawId)
{
    const std::optional<HotKeyID> id = hotKeyIDFromRaw(rawId);
    if (!id)
        return;
    handleHotKey(*id);
}

void KeyboardShortcutManager::handleHotKey(HotKeyID id)
{
    if (!m_actions) {
        PLOG(lcInput) << "⚠️ Shortcut " << actionName(id) << " pressed before the app was ready - ignored";
        return;
    }
    // A capture serves the event loop while it waits for the clipboard; a press arriving then would
    // start a second capture inside the first.
    if (m_handling) {
        PLOG(lcInput) << "ℹ️ Shortcut " << actionName(id) << " ignored - the previous one is still running";
        return;
    }
    const QScopedValueRollback<bool> handling(m_handling, true);

    switch (id) {
    case HotKeyID::readAloud: handleReadAloud(); break;
    case HotKeyID::readSummary: handleReadSummary(); break;
    case HotKeyID::playPause: m_actions->togglePlayPause(); break;
    case HotKeyID::speedUp: m_actions->adjustSpeed(true); break;
    case HotKeyID::speedDown: m_actions->adjustSpeed(false); break;
    case HotKeyID::reserved: break;
    case HotKeyID::generatePodcast: handleGeneratePodcast(); break;
    case HotKeyID::downloadAudio: m_actions->downloadAudio(); break;
    case HotKeyID::saveAudio: m_actions->saveAudio(); break;
    case HotKeyID::summarizeText: m_actions->summarizeText(); break;
    case HotKeyID::readSelectedText:
        PLOG(lcInput) << "🎯 Read Selected Text shortcut triggered";
        handleReadAloud();
        break;
    case HotKeyID::stopReading: m_actions->stopReading(); break;
    case HotKeyID::speedUpFaster: m_actions->adjustSpeedFaster(true); break;
    case HotKeyID::slowDown: m_actions->adjustSpeedFaster(false); break;
    case HotKeyID::openLibrary:
        PLOG(lcInput) << "🎯 Open Library shortcut triggered";
        m_actions->openLibrary();
        break;
    case HotKeyID::askQuestion:
        PLOG(lcInput) << "🎯 Ask Question shortcut triggered";
        m_actions->askQuestion();
        break;
    }
}

std::optional<QString> KeyboardShortcutManager::captureText()
{
    std::optional<QString> text = m_capture.captureSelectedText();
    if (!text)
        m_actions->showNoTextSelected(noTextSelectedMessage);
    return text;
}

void KeyboardShortcutManager::handleReadAloud()
{
    if (m_context.isOnboardingMode()) {
        // Onboarding's test step: the shortcut plays the onboarding audio instead of reading.
        if (m_context.hasPendingOnboardingAudio())
            PLOG(lcInput) << "🎓 ONBOARDING MODE DETECTED - Replaying current audio";
        else
            PLOG(lcInput) << "🎓 ONBOARDING TEST MODE DETECTED - Playing welcome message";
        m_actions->handleOnboardingAudioReplay();
        return;
    }
    PLOG(lcInput) << "🎯 READ ALOUD SHORTCUT TRIGGERED";
    PLOG(lcInput) << "   - isProcessing: " << boolText(m_context.isProcessing());
    PLOG(lcInput) << "   - isPlaying: " << boolText(m_context.isPlaying());
    PLOG(lcInput) << "   - showFloatingPlayer: " << boolText(m_context.showFloatingPlayer());
    PLOG(lcInput) << "   - isOnboardingMode: " << boolText(m_context.isOnboardingMode());
    if (const std::optional<QString> text = captureText())
        m_actions->readAloud(*text);
}

void KeyboardShortcutManager::handleReadSummary()
{
    PLOG(lcInput) << "🎯 READ SUMMARY SHORTCUT TRIGGERED";
    if (const std::optional<QString> text = captureText())
        m_actions->readSummary(*text);
}

void KeyboardShortcutManager::handleGeneratePodcast()
{
    PLOG(lcInput) << "🎯 GENERATE PODCAST SHORTCUT TRIGGERED";
    if (const std::optional<QString> text = captureText())
        m_actions->createPodcast(*text);
}

} // namespace parlino
