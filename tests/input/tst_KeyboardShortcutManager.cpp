#include "FakeCapturePlatform.h"
#include "LogCapture.h"
#include "RecordingShortcutActions.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "input/HotKeyBackend.h"
#include "input/KeyboardShortcutManager.h"
#include "input/KeyboardShortcutPreferences.h"

#include <QTest>

#include <optional>

using namespace parlino;
using namespace parlino::test;

namespace {

// A hot-key service that refuses the combinations in `taken`, as the X server does for keys another
// client holds, and lets the test press registered ids.
class FakeHotKeyBackend final : public HotKeyBackend {
public:
    QList<KeyboardShortcut> taken;
    QMap<quint32, KeyboardShortcut> registered;
    QStringList calls;

    Registration registerHotKey(quint32 id, const KeyboardShortcut &shortcut) override
    {
        calls << QStringLiteral("register %1").arg(id);
        if (taken.contains(shortcut))
            return {false, 10};
        registered.insert(id, shortcut);
        return {true, 0};
    }
    void unregisterHotKey(quint32 id) override
    {
        calls << QStringLiteral("unregister %1").arg(id);
        registered.remove(id);
    }
    void press(quint32 id) { Q_EMIT hotKeyPressed(id); }
};

} // namespace

class KeyboardShortcutManagerTest final : public QObject {
    Q_OBJECT

    TestEnvironment m_environment;
    std::optional<parlino::test::QuietLog> m_quiet;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<KeyboardShortcutPreferences> m_preferences;
    FakeCapturePlatform m_capturePlatform;
    std::unique_ptr<TextCaptureService> m_capture;
    RecordingShortcutActions m_actions;
    FakeHotKeyBackend *m_backend{nullptr};

    std::unique_ptr<KeyboardShortcutManager> makeManager(QList<KeyboardShortcut> taken = {})
    {
        m_preferences = std::make_unique<KeyboardShortcutPreferences>(*m_defaults);
        auto backend = std::make_unique<FakeHotKeyBackend>();
        backend->taken = taken;
        m_backend = backend.get();
        return std::make_unique<KeyboardShortcutManager>(std::move(backend), *m_preferences, *m_capture, *m_appState,
                                                         &m_actions);
    }

private Q_SLOTS:
    void cleanup() { m_quiet.reset(); }

    void init()
    {
        m_quiet.emplace();
        QFile::remove(m_environment.defaultsFile());
        m_defaults = std::make_unique<Defaults>(m_environment.defaultsFile());
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        m_appState = std::make_unique<AppState>(*m_defaults);
        m_capturePlatform = FakeCapturePlatform();
        m_capturePlatform.hasFocusedElement = false;
        m_capture = std::make_unique<TextCaptureService>(*m_defaults, m_capturePlatform.platform());
        m_actions = RecordingShortcutActions();
    }

    void registersEveryBindingInOrderAndSkipsTakenKeys()
    {
        LogCapture log;
        auto manager = makeManager({KeyboardShortcut{35, 0x300}});
        QCOMPARE(m_backend->calls.size(), 15);
        QCOMPARE(m_backend->calls.first(), QStringLiteral("register 1"));
        QCOMPARE(m_backend->calls.at(2), QStringLiteral("register 4"));
        QCOMPARE(m_backend->calls.at(9), QStringLiteral("register 3"));
        QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Failed to register hotkey 3: 10"),
                                     QStringLiteral("✅ Registered custom keyboard shortcuts")}));
        QCOMPARE(manager->registeredHotKeys().size(), 14);
        QVERIFY(!manager->registeredHotKeys().contains(HotKeyID::playPause));
        QVERIFY(!m_backend->registered.contains(6));
    }

    void actionLackingFromStoredBindingsStaysUnregistered()
    {
        m_defaults->set(
            KeyboardShortcutPreferences::userDefaultsKey,
            QByteArray(
                R"({"readAloud": {"keyCode": 15, "modifiers": 768}, "playPause": {"keyCode": 35, "modifiers": 768}})"));
        auto manager = makeManager();
        QCOMPARE(manager->registeredHotKeys(), (QList<HotKeyID>{HotKeyID::readAloud, HotKeyID::playPause}));
    }

    void rebindingRegistersEverythingAgain()
    {
        auto manager = makeManager();
        m_backend->calls.clear();
        LogCapture log;
        m_preferences->set(KeyboardShortcut{17, 0x100}, QStringLiteral("playPause"));
        QVERIFY(log.containsInOrder({QStringLiteral("🔄 Keyboard shortcuts changed - re-registering..."),
                                     QStringLiteral("✅ Unregistered all keyboard shortcuts"),
                                     QStringLiteral("✅ Registered custom keyboard shortcuts")}));
        QCOMPARE(m_backend->calls.filter(QStringLiteral("unregister")).size(), 15);
        QCOMPARE(m_backend->calls.filter(QStringLiteral("register")).size() - 15, 15);
        QCOMPARE(m_backend->registered.value(3), (KeyboardShortcut{17, 0x100}));
    }

    void pressesStartTheirActions()
    {
        auto manager = makeManager();
        m_capturePlatform.primary = QStringLiteral("chosen words");
        LogCapture log;
        for (quint32 id = 0; id <= 17; ++id)
            m_backend->press(id);
        QCOMPARE(
            m_actions.calls,
            (QStringList{QStringLiteral("readAloud(chosen words)"), QStringLiteral("readSummary(chosen words)"),
                         QStringLiteral("togglePlayPause"), QStringLiteral("adjustSpeed(true)"),
                         QStringLiteral("adjustSpeed(false)"), QStringLiteral("createPodcast(chosen words)"),
                         QStringLiteral("downloadAudio"), QStringLiteral("saveAudio"), QStringLiteral("summarizeText"),
                         QStringLiteral("readAloud(chosen words)"), QStringLiteral("stopReading"),
                         QStringLiteral("adjustSpeedFaster(true)"), QStringLiteral("adjustSpeedFaster(false)"),
                         QStringLiteral("openLibrary"), QStringLiteral("askQuestion")}));
        QVERIFY(log.containsInOrder({QStringLiteral("🎯 READ ALOUD SHORTCUT TRIGGERED"),
                                     QStringLiteral("🎯 Read Selected Text shortcut triggered"),
                                     QStringLiteral("🎯 READ ALOUD SHORTCUT TRIGGERED"),
                                     QStringLiteral("🎯 Open Library shortcut triggered"),
                                     QStringLiteral("🎯 Ask Question shortcut triggered")}));
    }

    void nothingSelectedReachesTheUser()
    {
        auto manager = makeManager();
        m_capturePlatform.clipboard = QStringLiteral("old clipboard");
        m_backend->press(1);
        QCOMPARE(m_actions.calls, QStringList{QStringLiteral(
                                      "showNoTextSelected(No text selected. Please select some text and try again.)")});
    }

    void onboardingTestStepReplaysInsteadOfCapturing()
    {
        auto manager = makeManager();
        m_appState->setIsOnboardingMode(true);
        LogCapture log;
        m_backend->press(1);
        QCOMPARE(m_actions.calls, QStringList{QStringLiteral("handleOnboardingAudioReplay")});
        QVERIFY(log.contains(QStringLiteral("🎓 ONBOARDING TEST MODE DETECTED - Playing welcome message")));
        QCOMPARE(m_capturePlatform.calls, QStringList());
    }
};

QTEST_GUILESS_MAIN(KeyboardShortcutManagerTest)
#include "tst_KeyboardShortcutManager.moc"
