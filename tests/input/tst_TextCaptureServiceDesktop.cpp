#include "LogCapture.h"
#include "SelectionApp.h"
#include "TestEnvironment.h"
#include "core/Defaults.h"
#include "input/TextCaptureService.h"
#include "platform/linux/LinuxInputPlatform.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <optional>

using namespace parlino;
using namespace parlino::test;

// Text capture against real applications on the headless desktop: the accessibility bus, the X
// selections and synthetic key presses, with nothing standing in.
class TextCaptureDesktopTest final : public QObject {
    Q_OBJECT

    TestEnvironment m_environment;
    std::optional<parlino::test::QuietLog> m_quiet;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<LinuxInputPlatform> m_platform;
    std::unique_ptr<TextCaptureService> m_service;

    static QString activeWindowName()
    {
        QProcess xdotool;
        xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowname")});
        xdotool.waitForFinished();
        return QString::fromUtf8(xdotool.readAllStandardOutput()).trimmed();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run inside scripts/desktop-rig");
        m_defaults = std::make_unique<Defaults>(m_environment.defaultsFile());
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        m_platform = std::make_unique<LinuxInputPlatform>();
        m_service = std::make_unique<TextCaptureService>(*m_defaults, m_platform->textCapturePlatform());
    }

    void init()
    {
        m_quiet.emplace();
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        // A clipboard owned by this process, so each case starts from known content.
        QGuiApplication::clipboard()->setText(QStringLiteral("earlier clipboard"));
    }

    void cleanup() { m_quiet.reset(); }

    void accessibleFieldGivesItsSelection()
    {
        QVERIFY(m_service->hasAccessibilityPermission());
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("accessible"), QStringLiteral("--content"),
                          QStringLiteral("Some words before. The chosen sentence. Some after."),
                          QStringLiteral("--text"), QStringLiteral("The chosen sentence.")});
        QVERIFY(app.waitUntilReady());
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("The chosen sentence."));
        QVERIFY(log.contains(QStringLiteral("✅ Captured text via Accessibility API (20 chars)")));
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("earlier clipboard"));
    }

    void accessibleFieldWithoutSelectionGivesItsWholeText()
    {
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("accessible"), QStringLiteral("--text"),
                          QStringLiteral("A field nobody selected in."), QStringLiteral("--no-selection")});
        QVERIFY(app.waitUntilReady());
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("A field nobody selected in."));
    }

    void primarySelectionWhenNothingIsPublished()
    {
        QSignalSpy selectionChanges(QGuiApplication::clipboard(), &QClipboard::selectionChanged);
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("primary"), QStringLiteral("--text"),
                          QStringLiteral("Selected where no accessibility reaches.")});
        QVERIFY(app.waitUntilReady());
        // A user selects before pressing the shortcut; by then this process has heard of the new owner.
        QVERIFY(!selectionChanges.isEmpty() || selectionChanges.wait(20000));
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("Selected where no accessibility reaches."));
        QVERIFY(
            log.containsInOrder({QStringLiteral("ℹ️ Accessibility API returned no text, trying clipboard fallback"),
                                 QStringLiteral("📋 Primary selection has text (40 chars)"),
                                 QStringLiteral("✅ Captured text via clipboard (40 chars)")}));
        QVERIFY(!app.output().contains(QStringLiteral("copied")));
    }

    void copyCommandWhenThereIsNoSelectionToRead()
    {
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("copy"), QStringLiteral("--text"),
                          QStringLiteral("Only a copy command gets this.")});
        QVERIFY(app.waitUntilReady());
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("Only a copy command gets this."));
        QVERIFY(log.containsInOrder({QStringLiteral("📋 Old content preview: earlier clipboard"),
                                     QStringLiteral("📋 New content preview: Only a copy command gets this."),
                                     QStringLiteral("📋 Change count delta: 1"),
                                     QStringLiteral("✅ Clipboard updated with new content (30 chars)")}));
        QVERIFY(app.waitForLine(QStringLiteral("copied")));
        // As if the user had copied: the text stays on the clipboard.
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("Only a copy command gets this."));
    }

    void sameTextCopiedAgainIsStillCaptured()
    {
        QGuiApplication::clipboard()->setText(QStringLiteral("Copied twice."));
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("copy"), QStringLiteral("--text"),
                          QStringLiteral("Copied twice.")});
        QVERIFY(app.waitUntilReady());
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("Copied twice."));
        QVERIFY(log.contains(QStringLiteral("   Method: changeCount increased")));
    }

    void terminalIsSentControlShiftC()
    {
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("copy"), QStringLiteral("--terminal"),
                          QStringLiteral("--text"), QStringLiteral("make -j2 && ctest")});
        QVERIFY(app.waitUntilReady());
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("make -j2 && ctest"));
        QVERIFY(app.waitForLine(QStringLiteral("copied")));
        // Keys arrive in order: an interrupting Ctrl+C would have been reported before the copy.
        QCOMPARE(app.output(), (QStringList{QStringLiteral("ready"), QStringLiteral("copied")}));
    }

    void nothingSelectedAndNothingCopied()
    {
        SelectionApp app({QStringLiteral("--mode"), QStringLiteral("none"), QStringLiteral("--text"),
                          QStringLiteral("unreachable")});
        QVERIFY(app.waitUntilReady());
        // The window manager can still be settling focus after the previous test's window closed, and on a
        // loaded machine it may leave nothing focused: the user clicks the window, as here.
        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("^Selection test"),
                           QStringLiteral("windowactivate"), QStringLiteral("--sync")});
        QString active;
        QTRY_VERIFY2_WITH_TIMEOUT((active = activeWindowName()).startsWith(QStringLiteral("Selection test")),
                                  qPrintable(QStringLiteral("active window: ") + active), 3000);
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), std::nullopt);
        QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Clipboard content unchanged - same as before"),
                                     QStringLiteral("   This likely means no text was selected in the frontmost app"),
                                     QStringLiteral("❌ No text captured - no text may be selected")}));
    }

    void beforeOnboardingNothingIsCopied()
    {
        m_defaults->set(QStringLiteral("onboardingCompleted"), false);
        SelectionApp app(
            {QStringLiteral("--mode"), QStringLiteral("copy"), QStringLiteral("--text"), QStringLiteral("not yet")});
        QVERIFY(app.waitUntilReady());
        LogCapture log;
        QCOMPARE(m_service->captureSelectedText(), std::nullopt);
        QCOMPARE(log.lines(), QStringList{QStringLiteral(
                                  "🔍 TextCaptureService.captureSelectedText() blocked - onboarding not completed")});
        // The application was listening: once onboarding is done, the same capture copies from it, and
        // finds the clipboard as it was, with exactly one new write.
        m_defaults->set(QStringLiteral("onboardingCompleted"), true);
        QCOMPARE(m_service->captureSelectedText(), QStringLiteral("not yet"));
        QVERIFY(log.containsInOrder(
            {QStringLiteral("📋 Old content preview: earlier clipboard"), QStringLiteral("📋 Change count delta: 1")}));
    }
};

QTEST_MAIN(TextCaptureDesktopTest)
#include "tst_TextCaptureServiceDesktop.moc"
