#include "FakeCapturePlatform.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "input/TextCaptureService.h"

#include <QTest>

using namespace parlino;
using namespace parlino::test;

// The decision rules of text capture, over stand-ins for the desktop. The same paths against a real
// X server and real applications are in tst_TextCaptureDesktop.
class TextCaptureServiceTest final : public QObject {
    Q_OBJECT

    TestEnvironment m_environment;
    std::unique_ptr<Defaults> m_defaults;
    FakeCapturePlatform m_fake;
    std::unique_ptr<TextCaptureService> m_service;

private Q_SLOTS:
    void init()
    {
        m_defaults = std::make_unique<Defaults>(m_environment.defaultsFile());
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        m_fake = FakeCapturePlatform();
        m_service = std::make_unique<TextCaptureService>(*m_defaults, m_fake.platform());
    }

    void beforeOnboardingNothingIsTouched()
    {
        m_defaults->set(QStringLiteral("onboardingCompleted"), false);
        m_fake.selectedText = QStringLiteral("secret");
        m_fake.primary = QStringLiteral("secret");
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), std::nullopt);
        QVERIFY(log.contains(
            QStringLiteral("🔍 TextCaptureService.captureSelectedText() blocked - onboarding not completed")));
        QVERIFY(!m_service->hasAccessibilityPermission());
        QVERIFY(log.contains(QStringLiteral("🔒 Accessibility check skipped - onboarding not completed")));
        QCOMPARE(m_fake.calls, QStringList());
    }

    void diagnosticsCarryARealStackTrace()
    {
        LogCapture log;
        m_fake.selectedText = QStringLiteral("x");
        QVERIFY(m_service->captureSelectedText());
        const QStringList lines = log.lines();
        const int trace = lines.indexOf(QStringLiteral("   Stack trace:"));
        QVERIFY(trace > 0);
        QVERIFY(lines.at(trace - 2).startsWith(QStringLiteral(
            "🔍 DEBUG: About to call AXIsProcessTrusted() from TextCaptureService.captureSelectedText()")));
        QVERIFY(lines.at(trace - 1).startsWith(QStringLiteral("   Timestamp: ")));
        // Frames follow, indented: the test executable's own and, further out, the test library's runner.
        QStringList frames;
        for (int i = trace + 1; i < lines.size() && lines.at(i).startsWith(QStringLiteral("      ")); ++i)
            frames << lines.at(i);
        QVERIFY(frames.size() > 3);
        QVERIFY(!frames.filter(QStringLiteral("tst_TextCaptureService")).isEmpty());
        QVERIFY(!frames.filter(QStringLiteral("QTest::qExec")).isEmpty());
    }

    void noFocusedElementFallsBackToPrimarySelection()
    {
        m_fake.hasFocusedElement = false;
        m_fake.primary = QStringLiteral("from primary");
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("from primary"));
        QVERIFY(
            log.containsInOrder({QStringLiteral("⚠️ Could not get focused element"),
                                 QStringLiteral("ℹ️ Accessibility API returned no text, trying clipboard fallback"),
                                 QStringLiteral("✅ Captured text via clipboard (12 chars)")}));
        QVERIFY(!m_fake.calls.contains(QStringLiteral("press Ctrl+C")));
    }

    void copyCommandDecisions_data()
    {
        QTest::addColumn<std::optional<QString>>("oldContent");
        QTest::addColumn<bool>("countIncreases");
        QTest::addColumn<std::optional<QString>>("newContent");
        QTest::addColumn<std::optional<QString>>("expected");
        QTest::addColumn<QStringList>("expectedLines");
        const auto same = std::optional<QString>(QStringLiteral("same words"));
        QTest::newRow("content differs without a change")
            << same << false << std::optional<QString>(QStringLiteral("other"))
            << std::optional<QString>(QStringLiteral("other"))
            << QStringList{QStringLiteral("✅ Clipboard has different content (5 chars)"),
                           QStringLiteral("   Method: content comparison")};
        QTest::newRow("nothing written")
            << same << false << same << std::optional<QString>()
            << QStringList{QStringLiteral("⚠️ Clipboard content unchanged - same as before"),
                           QStringLiteral("   This likely means no text was selected in the frontmost app"),
                           QStringLiteral("❌ No text captured - no text may be selected")};
        QTest::newRow("no text at all") << std::optional<QString>() << true << std::optional<QString>(QString())
                                        << std::optional<QString>()
                                        << QStringList{QStringLiteral("📋 Old content preview: nil"),
                                                       QStringLiteral("⚠️ No text captured via clipboard")};
    }

    void copyCommandDecisions()
    {
        QFETCH(std::optional<QString>, oldContent);
        QFETCH(bool, countIncreases);
        QFETCH(std::optional<QString>, newContent);
        QFETCH(std::optional<QString>, expected);
        QFETCH(QStringList, expectedLines);
        m_fake.hasFocusedElement = false;
        m_fake.clipboard = oldContent;
        m_fake.count = 7;
        m_fake.onCopy = [&](FakeCapturePlatform &fake) {
            fake.clipboard = newContent;
            fake.count += countIncreases ? 1 : 0;
        };
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), expected);
        QVERIFY2(log.containsInOrder(expectedLines), qPrintable(log.lines().join(u'\n')));
        // The user's hot-key modifiers are let go before the chord, and the chord is released again.
        QCOMPARE(m_fake.calls.mid(m_fake.calls.indexOf(QStringLiteral("releaseModifiers"))),
                 (QStringList{QStringLiteral("releaseModifiers"), QStringLiteral("press Ctrl+C"),
                              QStringLiteral("release"), QStringLiteral("clipboard")}));
    }

    void copiedSecretsNeverReachTheLog()
    {
        m_fake.hasFocusedElement = false;
        m_fake.clipboard = QStringLiteral("key sk-proj-Abc123def456ghi789 and pass Zq7!mK2pR9wX4vB8nT");
        m_fake.onCopy = [](FakeCapturePlatform &fake) {
            fake.clipboard = QStringLiteral("Selected words");
            ++fake.count;
        };
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("Selected words"));
        QVERIFY(log.contains(QStringLiteral("📋 Old content preview: key [hidden] and pass [hidden]")));
        QVERIFY(log.lines().filter(QStringLiteral("sk-proj")).isEmpty());
        QVERIFY(log.lines().filter(QStringLiteral("Zq7!")).isEmpty());
    }

    void terminalWindowClasses()
    {
        QVERIFY(TextCaptureService::isTerminalWindowClass(
            {QStringLiteral("gnome-terminal-server"), QStringLiteral("Gnome-terminal")}));
        QVERIFY(TextCaptureService::isTerminalWindowClass({QStringLiteral("kitty"), QStringLiteral("kitty")}));
        QVERIFY(!TextCaptureService::isTerminalWindowClass({QStringLiteral("kate"), QStringLiteral("kate")}));
        QVERIFY(!TextCaptureService::isTerminalWindowClass({}));
    }

    void withoutAccessibilityTheClipboardIsStillTried()
    {
        m_fake.trusted = false;
        m_fake.primary = QStringLiteral("primary text");
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("primary text"));
        QVERIFY(log.containsInOrder(
            {QStringLiteral("⚠️ No accessibility permission - clipboard method requires it too"),
             QStringLiteral("⚠️ Ctrl+C keyboard simulation needs accessibility permission"),
             QStringLiteral("✅ Captured text via clipboard (12 chars)")}));
        QVERIFY(!m_fake.calls.contains(QStringLiteral("focusedElement")));

        m_fake.primary.reset();
        log.clear();
        QCOMPARE(m_service->captureSelectedText(), std::nullopt);
        QVERIFY(log.containsInOrder({QStringLiteral("❌ TEXT CAPTURE FAILED - PERMISSION REQUIRED"),
                                     QStringLiteral("============================================"),
                                     QStringLiteral("The app needs accessibility permission to:"),
                                     QStringLiteral("  • Read selected text from other apps"),
                                     QStringLiteral("  • Simulate Ctrl+C to copy text"), QString(),
                                     QStringLiteral("Please check Settings > Accessibility")}));

        log.clear();
        QVERIFY(!m_service->hasAccessibilityPermission());
        QVERIFY(log.containsInOrder(
            {QStringLiteral("🔍 Accessibility check details:"), QStringLiteral("   - AXIsProcessTrusted: false")}));
        QVERIFY(log.lines().contains(QStringLiteral("   - Process name: tst_TextCaptureService")));
    }
};

QTEST_GUILESS_MAIN(TextCaptureServiceTest)
#include "tst_TextCaptureService.moc"
