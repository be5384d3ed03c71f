#include "FakePermissionProbe.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TestEnvironment.h"
#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "core/Defaults.h"
#include "ui/StatusBarController.h"

#include <QSystemTrayIcon>
#include <QTest>

using namespace parlino;
using namespace std::chrono_literals;

namespace {
QString lineFor(bool completed, bool launched)
{
    return QStringLiteral("🔍 onboardingCompleted = %1, hasLaunchedBefore = %2")
        .arg(completed ? u"true" : u"false", launched ? u"true" : u"false");
}
} // namespace

class TestAppDelegate final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<test::TestEnvironment>();
        m_defaults = std::make_unique<Defaults>(m_env->defaultsFile());
        m_probe = FakePermissionProbe();
        m_dialogs = ScriptedDialogs();
        m_clock = std::make_unique<ManualClock>();
        m_created.clear();
        m_onboardingShown = 0;
        m_synced.clear();
    }

    void launchModes_data()
    {
        QTest::addColumn<QVariant>("completed");
        QTest::addColumn<QVariant>("launched");
        QTest::addColumn<bool>("trayOnly");
        QTest::addColumn<bool>("repaired");

        QTest::newRow("fresh install") << QVariant() << QVariant() << false << false;
        QTest::newRow("onboarding finished") << QVariant(true) << QVariant(true) << true << false;
        QTest::newRow("onboarding interrupted") << QVariant(false) << QVariant(true) << false << false;
        // Finished onboarding without a first launch cannot happen: the state is wiped and this very
        // launch runs as a first launch.
        QTest::newRow("corrupt") << QVariant(true) << QVariant(false) << false << true;
        QTest::newRow("corrupt, launched key absent") << QVariant(true) << QVariant() << false << true;
    }

    void launchModes()
    {
        QFETCH(QVariant, completed);
        QFETCH(QVariant, launched);
        QFETCH(bool, trayOnly);
        QFETCH(bool, repaired);
        if (completed.isValid())
            m_defaults->set(QStringLiteral("onboardingCompleted"), completed);
        if (launched.isValid())
            m_defaults->set(QStringLiteral("hasLaunchedBefore"), launched);
        m_defaults->set(QStringLiteral("hasViewedOnboarding"), true);
        m_defaults->set(QStringLiteral("userEmail"), QStringLiteral("reader@example.org"));
        m_defaults->set(QStringLiteral("deviceId"), QStringLiteral("old"));
        m_defaults->set(QStringLiteral("deviceID"), QStringLiteral("KEEP-ME"));

        AppState state(*m_defaults);
        PermissionManager permissions(m_probe, m_dialogs, state, *m_clock);
        test::LogCapture log;
        AppDelegate delegate(components(), *m_defaults, state, &permissions, *m_clock);
        delegate.applicationDidFinishLaunching();
        QCoreApplication::processEvents(); // the account sync runs after start-up

        QCOMPARE(m_created, (QStringList{QStringLiteral("services"), QStringLiteral("keyboard"),
                                         QStringLiteral("player"), QStringLiteral("statusBar")}));
        QCOMPARE(delegate.activationPolicy(), trayOnly ? ActivationPolicy::accessory : ActivationPolicy::regular);
        QCOMPARE(permissions.isPolling(), trayOnly);
        QCOMPARE(m_onboardingShown, trayOnly ? 0 : 1);
        QCOMPARE(m_synced, trayOnly ? QStringList{QStringLiteral("reader@example.org")} : QStringList());
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("deviceID")), QStringLiteral("KEEP-ME"));
        QCOMPARE(m_defaults->contains(QStringLiteral("deviceId")), !repaired);
        QCOMPARE(m_defaults->contains(QStringLiteral("userEmail")), !repaired);
        if (!trayOnly) {
            // Onboarding starts from a clean slate.
            QVERIFY(!m_defaults->contains(QStringLiteral("onboardingCompleted")));
            QVERIFY(!m_defaults->contains(QStringLiteral("hasViewedOnboarding")));
        }

        const bool fresh = !completed.isValid() && !launched.isValid();
        QStringList expected;
        if (fresh)
            expected << QStringLiteral("ℹ️ No Parlino data found - fresh install");
        else if (repaired)
            expected << QStringLiteral("⚠️ CORRUPTED STATE DETECTED:")
                     << QStringLiteral("   🗑️ Removed: onboardingCompleted")
                     << QStringLiteral("   🗑️ Removed: hasLaunchedBefore")
                     << QStringLiteral("   🗑️ Removed: hasViewedOnboarding")
                     << QStringLiteral("   🗑️ Removed: userEmail")
                     << QStringLiteral("   🗑️ Removed: deviceId")
                     << QStringLiteral("✅ UserDefaults cleared successfully - fresh start")
                     << QStringLiteral("   onboardingCompleted = false")
                     << QStringLiteral("   hasLaunchedBefore = false");
        else
            expected << QStringLiteral("✅ UserDefaults state is valid:");
        expected << QStringLiteral("🔧 Checking build configuration...") << QStringLiteral("✅ Services initialized")
                 << QStringLiteral("✅ Keyboard shortcuts registered (safe - no permission checks)")
                 << QStringLiteral("✅ Floating player initialized")
                 << QStringLiteral("🚀 ParlinoApp: About to initialize StatusBarController...")
                 << QStringLiteral("✅ ParlinoApp: StatusBarController initialized");
        if (trayOnly)
            expected << lineFor(true, true)
                     << QStringLiteral("✅ ParlinoApp: Activation policy set to accessory (menu bar only)")
                     << QStringLiteral("🔐 Checking permissions...")
                     << QStringLiteral("🔄 Starting permission polling (every 2 seconds)")
                     << QStringLiteral("ℹ️ Keyboard shortcuts already active")
                     << QStringLiteral("✅ Onboarding already completed - skipping")
                     << QStringLiteral("🔄 Syncing account data for reader@example.org on app launch...");
        else
            expected << lineFor(completed.toBool() && !repaired, launched.toBool())
                     << QStringLiteral("✅ ParlinoApp: Activation policy set to regular (onboarding not completed)")
                     << QStringLiteral("ℹ️ Skipping permission checks - onboarding will handle permissions")
                     << QStringLiteral("📋 Showing onboarding (first launch or incomplete onboarding)")
                     << QStringLiteral("✅ Stale data cleared - fresh start for onboarding")
                     << QStringLiteral("ℹ️ Skipping account sync - onboarding not completed yet");
        QVERIFY2(log.containsInOrder(expected), qPrintable(log.lines().join(u'\n')));
    }

    void accessibilityAlertAfterLaunch_data()
    {
        QTest::addColumn<bool>("granted");
        QTest::addColumn<bool>("grantedWithinHalfSecond");
        QTest::addColumn<int>("alerts");
        QTest::newRow("granted") << true << false << 0;
        QTest::newRow("missing") << false << false << 1;
        QTest::newRow("granted just in time") << false << true << 0;
    }

    void accessibilityAlertAfterLaunch()
    {
        QFETCH(bool, granted);
        QFETCH(bool, grantedWithinHalfSecond);
        QFETCH(int, alerts);
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        m_defaults->set(QStringLiteral("hasLaunchedBefore"), true);
        m_probe.accessibility = granted;
        m_dialogs.accessibilityAnswer = PermissionDialogs::Answer::later;
        AppState state(*m_defaults);
        PermissionManager permissions(m_probe, m_dialogs, state, *m_clock);
        test::LogCapture log;
        AppDelegate delegate(AppComponents(), *m_defaults, state, &permissions, *m_clock);
        delegate.applicationDidFinishLaunching();

        m_clock->advance(999ms);
        QVERIFY(!log.contains(QStringLiteral("✅ Accessibility permission granted")));
        m_clock->advance(1ms);
        QCOMPARE(log.contains(QStringLiteral("⚠️ Accessibility permission missing - will show alert")), !granted);
        if (grantedWithinHalfSecond) {
            m_probe.accessibility = true;
            permissions.checkAccessibilityPermission();
        }
        m_clock->advance(500ms);
        QCOMPARE(m_dialogs.accessibilityAsked, alerts);
        if (granted)
            QVERIFY(log.containsInOrder({QStringLiteral("✅ Accessibility permission granted"),
                                         QStringLiteral("ℹ️ Q&A permissions not granted (optional)")}));
    }

    void completingOnboardingMovesToTheTray()
    {
        AppState state(*m_defaults);
        PermissionManager permissions(m_probe, m_dialogs, state, *m_clock);
        AppDelegate delegate(AppComponents(), *m_defaults, state, &permissions, *m_clock);
        delegate.applicationDidFinishLaunching();
        QCOMPARE(delegate.activationPolicy(), ActivationPolicy::regular);
        delegate.completeOnboarding();
        QCOMPARE(delegate.activationPolicy(), ActivationPolicy::accessory);
        QVERIFY(permissions.isPolling());

        // The next launch is tray-only with a valid state.
        test::LogCapture log;
        AppState nextState(*m_defaults);
        PermissionManager nextPermissions(m_probe, m_dialogs, nextState, *m_clock);
        AppDelegate next(AppComponents(), *m_defaults, nextState, &nextPermissions, *m_clock);
        next.applicationDidFinishLaunching();
        QCOMPARE(next.activationPolicy(), ActivationPolicy::accessory);
        QVERIFY(log.contains(QStringLiteral("✅ UserDefaults state is valid:")));
    }

    void urls_data()
    {
        QTest::addColumn<QStringList>("urls");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("ours") << QStringList{QStringLiteral("parlino://auth/callback?code=1"),
                                             QStringLiteral("parlino://second")}
                              << QStringList{QStringLiteral("🔗 Received URL redirect: parlino://auth/callback?code=1"),
                                             QStringLiteral("📍 URL path: auth, components: /callback"),
                                             QStringLiteral("⚠️ Unknown URL path: auth")};
        QTest::newRow("scheme in another case")
            << QStringList{QStringLiteral("Parlino://auth")}
            << QStringList{QStringLiteral("⚠️ URL redirect ignored - wrong scheme: Parlino")};
        QTest::newRow("other scheme") << QStringList{QStringLiteral(
            "https://example.org")} << QStringList{QStringLiteral("⚠️ URL redirect ignored - wrong scheme: https")};
        QTest::newRow("no scheme") << QStringList{QStringLiteral("just-text")}
                                   << QStringList{QStringLiteral("⚠️ URL redirect ignored - wrong scheme: nil")};
        QTest::newRow("nothing") << QStringList() << QStringList();
    }

    void urls()
    {
        QFETCH(QStringList, urls);
        QFETCH(QStringList, lines);
        AppState state(*m_defaults);
        AppDelegate delegate(AppComponents(), *m_defaults, state, nullptr, *m_clock);
        test::LogCapture log;
        delegate.openURLs(urls);
        QCOMPARE(log.lines(), lines);
    }

    void libraryUrlsOpenTheLibraryOnTheirTab()
    {
        AppState state(*m_defaults);
        QList<LibraryTab> opened;
        AppComponents parts;
        parts.showLibrary = [&](LibraryTab tab) { opened.append(tab); };
        AppDelegate delegate(std::move(parts), *m_defaults, state, nullptr, *m_clock);
        test::LogCapture log;
        delegate.openURLs({QStringLiteral("parlino://library")});
        delegate.openURLs({QStringLiteral("parlino://podcasts"), QStringLiteral("parlino://library")});
        delegate.openURLs({QStringLiteral("parlino://libraries")});
        QCOMPARE(opened, (QList<LibraryTab>{LibraryTab::savedAudio, LibraryTab::podcasts}));
        QVERIFY(log.contains(QStringLiteral("⚠️ Unknown URL path: libraries")));
        QVERIFY(!log.contains(QStringLiteral("⚠️ Unknown URL path: library")));
    }

    void terminationStopsPlaybackWithoutClosingThePlayer()
    {
        AppState state(*m_defaults);
        int stops = 0;
        AppComponents parts;
        parts.stopPlayback = [&] { ++stops; };
        AppDelegate delegate(std::move(parts), *m_defaults, state, nullptr, *m_clock);
        delegate.applicationWillTerminate();
        QCOMPARE(stops, 1);
    }

private:
    AppComponents components()
    {
        AppComponents parts;
        parts.servicesProvider = [this] { return record(QStringLiteral("services")); };
        parts.keyboardManager = [this] { return record(QStringLiteral("keyboard")); };
        parts.floatingPlayer = [this] { return record(QStringLiteral("player")); };
        parts.statusBar = [this] {
            m_created << QStringLiteral("statusBar");
            m_statusBar =
                std::make_unique<StatusBarController>(StatusBarController::PopoverContentFactory(), std::nullopt);
            m_statusBar->setupStatusBar();
        };
        parts.showOnboarding = [this] { ++m_onboardingShown; };
        parts.syncAccount = [this](const QString &email) { m_synced << email; };
        return parts;
    }

    QObject *record(const QString &name)
    {
        m_created << name;
        return &m_placeholder;
    }

    std::unique_ptr<test::TestEnvironment> m_env;
    std::unique_ptr<Defaults> m_defaults;
    FakePermissionProbe m_probe;
    ScriptedDialogs m_dialogs;
    std::unique_ptr<ManualClock> m_clock;
    std::unique_ptr<StatusBarController> m_statusBar;
    QObject m_placeholder;
    QStringList m_created;
    QStringList m_synced;
    int m_onboardingShown = 0;
};

QTEST_MAIN(TestAppDelegate)
#include "tst_AppDelegate.moc"
