#include "FakePermissionProbe.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "core/Defaults.h"

#include <QSignalSpy>
#include <QTest>

using namespace parlino;
using namespace std::chrono_literals;

class TestPermissionManager final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_manager.reset(); // it holds on to the clock and state replaced below
        m_env = std::make_unique<test::TestEnvironment>();
        m_defaults = std::make_unique<Defaults>(m_env->defaultsFile());
        m_state = std::make_unique<AppState>(*m_defaults);
        m_probe = FakePermissionProbe();
        m_dialogs = ScriptedDialogs();
        m_clock = std::make_unique<ManualClock>();
        m_manager = std::make_unique<PermissionManager>(m_probe, m_dialogs, *m_state, *m_clock);
    }

    void pollingFollowsTheDesktop()
    {
        test::LogCapture log;
        QSignalSpy changed(m_manager.get(), &PermissionManager::accessibilityGrantedChanged);
        m_manager->startPolling();
        m_manager->startPolling();
        QCOMPARE(log.count(QStringLiteral("🔄 Starting permission polling (every 2 seconds)")), 1);
        QCOMPARE(log.count(QStringLiteral("ℹ️ Permission polling already started")), 1);

        m_probe.accessibility = true;
        m_probe.microphone = true;
        m_clock->advance(1999ms);
        QVERIFY(!m_manager->accessibilityGranted());
        m_clock->advance(1ms);
        QVERIFY(m_manager->accessibilityGranted());
        QVERIFY(m_manager->microphoneGranted());
        QVERIFY(!m_manager->speechRecognitionGranted());
        QCOMPARE(log.count(QStringLiteral("✅ Accessibility permission GRANTED!")), 1);

        // Revoked while running: noticed at the next tick, reported once however long it stays so.
        m_probe.accessibility = false;
        m_clock->advance(2s);
        m_clock->advance(30s);
        QCOMPARE(log.count(QStringLiteral("⚠️ Accessibility permission REVOKED")), 1);
        QCOMPARE(changed.count(), 2);
        // A single repeating timer (plus nothing else once the safety step has run).
        QCOMPARE(m_clock->pendingTimers(), 1);
    }

    void safetyStepEndsAStuckOnboarding()
    {
        test::LogCapture log;
        m_state->setIsOnboardingMode(true);
        m_manager->startPolling();
        m_clock->advance(29s);
        QVERIFY(m_state->isOnboardingMode());
        m_clock->advance(1s);
        QVERIFY(!m_state->isOnboardingMode());
        QVERIFY(log.containsInOrder(
            {QStringLiteral("⚠️ Safety timeout triggered - onboarding mode still active after 60s"),
             QStringLiteral("   Force disabling onboarding mode"),
             QStringLiteral("✅ Onboarding mode force-disabled - permission checks now active")}));
    }

    void safetyStepLeavesAFinishedOnboarding()
    {
        test::LogCapture log;
        m_manager->startPolling();
        m_clock->advance(31s);
        QVERIFY(!log.contains(QStringLiteral("   Force disabling onboarding mode")));
    }

    void everyQueryLeavesATrace()
    {
        test::LogCapture log;
        m_manager->checkAccessibilityPermission();
        const QStringList lines = log.lines();
        const int at = static_cast<int>(lines.indexOf(
            QStringLiteral("🔍 DEBUG: About to call AXIsProcessTrusted() from checkAccessibilityPermission()")));
        QVERIFY(at >= 0);
        QVERIFY(lines.value(at + 1).startsWith(QStringLiteral("   Timestamp: ")));
        QCOMPARE(lines.value(at + 1).mid(14).toDouble(), m_clock->now().toMSecsSinceEpoch() / 1000.0);
        QCOMPARE(lines.value(at + 2), QStringLiteral("   Stack trace:"));
        QVERIFY(lines.value(at + 3).startsWith(QStringLiteral("      ")));
    }

    void forcedCheckAlwaysReports()
    {
        test::LogCapture log;
        m_manager->forceCheckAccessibilityPermission();
        m_probe.accessibility = true;
        m_manager->forceCheckAccessibilityPermission();
        QVERIFY(log.containsInOrder(
            {QStringLiteral("🔄 Force accessibility check:"), QStringLiteral("   Permission status: DENIED ❌"),
             QStringLiteral("   Status unchanged"), QStringLiteral("🔄 Force accessibility check:"),
             QStringLiteral("   Permission status: GRANTED ✅"), QStringLiteral("   Status changed: GRANTED! ✅")}));
        QVERIFY(m_manager->accessibilityGranted());
    }

    void alertOpensSettingsOrQuits()
    {
        test::LogCapture log;
        bool completed = false;
        m_manager->showAccessibilityAlert([&] { completed = true; });
        QCOMPARE(m_dialogs.accessibilityAsked, 1);
        QVERIFY(!completed);
        QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Showing accessibility permission alert"),
                                     QStringLiteral("📋 Requesting accessibility permission...")}));
        QCOMPARE(m_probe.calls, QStringList{QStringLiteral("prompt")});
        m_clock->advance(1s);
        QCOMPARE(m_probe.calls, (QStringList{QStringLiteral("prompt"), QStringLiteral("openSettings")}));

        QSignalSpy quit(m_manager.get(), &PermissionManager::quitRequested);
        m_dialogs.accessibilityAnswer = PermissionDialogs::Answer::quit;
        m_manager->showAccessibilityAlert({});
        QCOMPARE(quit.count(), 1);

        m_probe.accessibility = true;
        m_manager->showAccessibilityAlert([&] { completed = true; });
        QVERIFY(completed);
        QCOMPARE(m_dialogs.accessibilityAsked, 2);
        QVERIFY(log.contains(QStringLiteral("✅ Accessibility already granted, no alert needed")));
    }

    void questionAlertOnlyWhenSomethingIsMissing()
    {
        int completed = 0;
        m_probe.microphone = true;
        m_manager->showQAPermissionsAlert([&] { ++completed; });
        QCOMPARE(m_dialogs.questionAsked, 1);
        m_probe.speech = true;
        m_manager->showQAPermissionsAlert([&] { ++completed; });
        QCOMPARE(m_dialogs.questionAsked, 1);
        QCOMPARE(completed, 2);
    }

private:
    std::unique_ptr<test::TestEnvironment> m_env;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<AppState> m_state;
    FakePermissionProbe m_probe;
    ScriptedDialogs m_dialogs;
    std::unique_ptr<ManualClock> m_clock;
    std::unique_ptr<PermissionManager> m_manager;
};

QTEST_GUILESS_MAIN(TestPermissionManager)
#include "tst_PermissionManager.moc"
