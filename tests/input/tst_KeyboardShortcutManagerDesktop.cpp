#include "LogCapture.h"
#include "RecordingShortcutActions.h"
#include "SelectionApp.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "input/KeyboardShortcutManager.h"
#include "input/KeyboardShortcutPreferences.h"
#include "platform/linux/LinuxInputPlatform.h"
#include "platform/linux/X11HotKeyBackend.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <optional>

using namespace parlino;
using namespace parlino::test;

// Global shortcuts through the X server: real key grabs, key presses typed with xdotool, and a second
// X client that holds a key first.
class KeyboardShortcutManagerDesktopTest final : public QObject {
    Q_OBJECT

    TestEnvironment m_environment;
    std::optional<parlino::test::QuietLog> m_quiet;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<KeyboardShortcutPreferences> m_preferences;
    std::unique_ptr<LinuxInputPlatform> m_platform;
    std::unique_ptr<TextCaptureService> m_capture;
    RecordingShortcutActions m_actions;

    static void type(const QString &keys, const QString &command = QStringLiteral("key"))
    {
        QProcess xdotool;
        xdotool.start(QStringLiteral("xdotool"), {command, keys});
        QVERIFY(xdotool.waitForFinished());
        QCOMPARE(xdotool.exitCode(), 0);
    }

    // Presses arrive in the order typed; once `call` shows up, every press typed before it was handled.
    bool waitForCall(const QString &call)
    {
        return QTest::qWaitFor([&] { return m_actions.calls.contains(call); }, 20000);
    }

    std::unique_ptr<KeyboardShortcutManager> makeManager()
    {
        m_preferences = std::make_unique<KeyboardShortcutPreferences>(*m_defaults);
        return std::make_unique<KeyboardShortcutManager>(m_platform->createHotKeyBackend(), *m_preferences, *m_capture,
                                                         *m_appState, &m_actions);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run inside scripts/desktop-rig");
        m_defaults = std::make_unique<Defaults>(m_environment.defaultsFile());
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        m_appState = std::make_unique<AppState>(*m_defaults);
        m_platform = std::make_unique<LinuxInputPlatform>();
        m_capture = std::make_unique<TextCaptureService>(*m_defaults, m_platform->textCapturePlatform());
    }

    void init()
    {
        m_quiet.emplace();
        m_defaults->remove(KeyboardShortcutPreferences::userDefaultsKey);
        m_actions.calls.clear();
    }

    void cleanup() { m_quiet.reset(); }

    void readAloudShortcutReadsTheSelection()
    {
        auto manager = makeManager();
        QCOMPARE(manager->registeredHotKeys().size(), 15);
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("copy"), QStringLiteral("--text"),
                          QStringLiteral("Read this aloud.")});
        QVERIFY(app.waitUntilReady());
        // Held down, as a user's fingers are while the capture runs: the key grab must not swallow the
        // copy command meant for the application.
        type(QStringLiteral("super+shift+r"), QStringLiteral("keydown"));
        QVERIFY(waitForCall(QStringLiteral("readAloud(Read this aloud.)")));
        QVERIFY(app.waitForLine(QStringLiteral("copied")));
        type(QStringLiteral("super+shift+r"), QStringLiteral("keyup"));

        type(QStringLiteral("super+Right"));
        type(QStringLiteral("super+alt+s"));
        type(QStringLiteral("super+shift+s"));
        QVERIFY(waitForCall(QStringLiteral("stopReading")));
        QCOMPARE(m_actions.calls,
                 (QStringList{QStringLiteral("readAloud(Read this aloud.)"), QStringLiteral("adjustSpeed(true)"),
                              QStringLiteral("saveAudio"), QStringLiteral("stopReading")}));
    }

    void locksDoNotStopTheShortcuts()
    {
        auto manager = makeManager();
        type(QStringLiteral("Caps_Lock"));
        type(QStringLiteral("super+shift+p"));
        type(QStringLiteral("Caps_Lock"));
        QVERIFY(waitForCall(QStringLiteral("togglePlayPause")));
    }

    void rebindingTakesEffectAtOnce()
    {
        auto manager = makeManager();
        LogCapture log;
        m_preferences->set(KeyboardShortcut{17, KeyboardShortcut::command | KeyboardShortcut::option},
                           QStringLiteral("playPause")); // Super+Alt+T
        QVERIFY(log.contains(QStringLiteral("🔄 Keyboard shortcuts changed - re-registering...")));
        type(QStringLiteral("super+shift+p"));
        type(QStringLiteral("super+alt+t"));
        QVERIFY(waitForCall(QStringLiteral("togglePlayPause")));
        QCOMPARE(m_actions.calls, QStringList{QStringLiteral("togglePlayPause")});
    }

    void keyHeldByAnotherClientIsSkipped()
    {
        Display *other = XOpenDisplay(nullptr);
        QVERIFY(other);
        const KeyCode h = XKeysymToKeycode(other, XK_h);
        XGrabKey(other, h, ShiftMask | Mod4Mask, DefaultRootWindow(other), True, GrabModeAsync, GrabModeAsync);
        XSync(other, False);

        LogCapture log;
        auto manager = makeManager();
        QVERIFY(log.contains(QStringLiteral("⚠️ Failed to register hotkey 2: 10")));
        QVERIFY(!manager->registeredHotKeys().contains(HotKeyID::readSummary));
        QCOMPARE(manager->registeredHotKeys().size(), 14);
        type(QStringLiteral("super+shift+h"));
        type(QStringLiteral("super+shift+d"));
        QVERIFY(waitForCall(QStringLiteral("adjustSpeedFaster(false)")));
        QCOMPARE(m_actions.calls, QStringList{QStringLiteral("adjustSpeedFaster(false)")});
        XCloseDisplay(other);
    }

    void storedBindingsWithoutAnActionLeaveItFree()
    {
        m_defaults->set(KeyboardShortcutPreferences::userDefaultsKey,
                        QByteArray(R"({"openLibrary": {"keyCode": 37, "modifiers": 768}})"));
        auto manager = makeManager();
        QCOMPARE(manager->registeredHotKeys(), QList<HotKeyID>{HotKeyID::openLibrary});
        // Free for any other client now.
        Display *other = XOpenDisplay(nullptr);
        QVERIFY(other);
        XGrabKey(other, XKeysymToKeycode(other, XK_r), ShiftMask | Mod4Mask, DefaultRootWindow(other), True,
                 GrabModeAsync, GrabModeAsync);
        XSync(other, False);
        type(QStringLiteral("super+shift+r"));
        type(QStringLiteral("super+shift+l"));
        QVERIFY(waitForCall(QStringLiteral("openLibrary")));
        QCOMPARE(m_actions.calls, QStringList{QStringLiteral("openLibrary")});
        XCloseDisplay(other);
    }
};

QTEST_MAIN(KeyboardShortcutManagerDesktopTest)
#include "tst_KeyboardShortcutManagerDesktop.moc"
