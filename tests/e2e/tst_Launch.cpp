#include "AppProcess.h"
#include "LogCapture.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

// The tray host's window on screen (it also owns a small hidden window; the largest one is the tray).
QRect trayGeometry()
{
    QRect largest;
    const QStringList ids = runTool(QStringLiteral("xdotool"),
                                    {QStringLiteral("search"), QStringLiteral("--class"), QStringLiteral("trayer")})
                                .split(u'\n', Qt::SkipEmptyParts);
    for (const QString &id : ids) {
        QRect rect;
        const QString geometry =
            runTool(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), id});
        for (const QString &line : geometry.split(u'\n')) {
            const int value = line.section(u'=', 1).toInt();
            if (line.startsWith(u"X="))
                rect.moveLeft(value);
            else if (line.startsWith(u"Y="))
                rect.moveTop(value);
            else if (line.startsWith(u"WIDTH="))
                rect.setWidth(value);
            else if (line.startsWith(u"HEIGHT="))
                rect.setHeight(value);
        }
        if (rect.width() * rect.height() > largest.width() * largest.height())
            largest = rect;
    }
    return largest;
}

QImage screenshot(const QString &path)
{
    QProcess::execute(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), path});
    return QImage(path);
}

// Pixels of the tray icon's dark disc, which the tray host's own background never has.
int iconPixels(const QImage &shot, const QRect &tray)
{
    int count = 0;
    for (int y = tray.top(); y <= tray.bottom(); ++y)
        for (int x = tray.left(); x <= tray.right(); ++x) {
            const QColor c = shot.pixelColor(x, y);
            if (c.red() < 0x30 && c.green() < 0x30 && c.blue() < 0x30)
                ++count;
        }
    return count;
}

void writeDefaults(const TestEnvironment &env, const QString &content)
{
    QDir().mkpath(QFileInfo(env.defaultsFile()).absolutePath());
    QFile file(env.defaultsFile());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content.toUtf8());
}

} // namespace

class TestLaunch final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void helpAndVersion()
    {
        QString output;
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--version")}, &output), 0);
        QVERIFY(QRegularExpression(QStringLiteral("^parlino \\d+\\.\\d+\\.\\d+\\n$")).match(output).hasMatch());
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--help")}, &output), 0);
        QVERIFY(output.contains(QStringLiteral("Usage: parlino")));
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--no-such-option")}, &output), 2);
        QVERIFY(output.contains(QStringLiteral("unknown argument: --no-such-option")));
    }

    void firstLaunchShowsOnboarding()
    {
        TestEnvironment env;
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ Skipping account sync - onboarding not completed yet")));
        const QStringList expected{
            QStringLiteral("ℹ️ No Parlino data found - fresh install"),
            QStringLiteral("🔧 Checking build configuration..."),
            QStringLiteral("🚀 ParlinoApp: About to initialize StatusBarController..."),
            QStringLiteral("✅ ParlinoApp: StatusBarController initialized"),
            QStringLiteral("🔍 onboardingCompleted = false, hasLaunchedBefore = false"),
            QStringLiteral("✅ ParlinoApp: Activation policy set to regular (onboarding not completed)"),
            QStringLiteral("ℹ️ Skipping permission checks - onboarding will handle permissions"),
            QStringLiteral("📋 Showing onboarding (first launch or incomplete onboarding)"),
            QStringLiteral("ℹ️ Skipping account sync - onboarding not completed yet"),
        };
        const QStringList lines = app.lines();
        int at = 0;
        for (const QString &line : expected) {
            at = static_cast<int>(lines.indexOf(line, at));
            QVERIFY2(at >= 0,
                     qPrintable(QStringLiteral("missing or out of order: ") + line + u'\n' + lines.join(u'\n')));
        }
        QTRY_VERIFY_WITH_TIMEOUT(
            !runTool(QStringLiteral("xdotool"),
                     {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("Welcome to Parlino")})
                 .isEmpty(),
            10000);
        // Seeing the window is what marks onboarding as viewed.
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                QFile file(env.defaultsFile());
                return file.open(QIODevice::ReadOnly) && file.readAll().contains("hasViewedOnboarding=true");
            }(),
            5000);
    }

    void trayOnlyLaunchShowsTheIcon()
    {
        TestEnvironment env;
        writeDefaults(env, QStringLiteral("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n"));
        const QRect tray = trayGeometry();
        QVERIFY2(tray.width() > 0, "no tray host on this display");
        const int before = iconPixels(screenshot(env.root() + QStringLiteral("/before.png")), tray);

        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
        QVERIFY(app.waitForLine(QStringLiteral("✅ Onboarding already completed - skipping")));
        const QStringList lines = app.lines();
        QVERIFY(lines.indexOf(QStringLiteral("✅ UserDefaults state is valid:"))
                < lines.indexOf(QStringLiteral("✅ ParlinoApp: Activation policy set to accessory (menu bar only)")));
        QVERIFY(lines.indexOf(QStringLiteral("✅ ParlinoApp: Activation policy set to accessory (menu bar only)"))
                < lines.indexOf(QStringLiteral("🔄 Starting permission polling (every 2 seconds)")));
        QVERIFY(lines.contains(QStringLiteral("✅ StatusBarController: Custom menu bar icon set")));

        // The icon is embedded by the tray host a moment after start-up.
        QTRY_VERIFY_WITH_TIMEOUT(iconPixels(screenshot(env.root() + QStringLiteral("/after.png")), tray) > before + 40,
                                 10000);
        // No onboarding window in tray-only mode.
        QVERIFY(runTool(QStringLiteral("xdotool"),
                        {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("Welcome to Parlino")})
                    .isEmpty());

        // Idle in the tray it writes nothing more: the permission checks every 2 s stay silent unless
        // something changes (their diagnostics are off unless turned on).
        QTest::qWait(1000);
        const qsizetype settled = app.lines().size();
        QTest::qWait(4500);
        QCOMPARE(app.lines().mid(settled), QStringList());
    }

    void secondLaunchHandsOverToTheRunningApp()
    {
        TestEnvironment env;
        writeDefaults(env, QStringLiteral("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n"));
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("✅ Onboarding already completed - skipping")));

        QString output;
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("parlino://auth/callback")}, &output), 0);
        QVERIFY(app.waitForLine(QStringLiteral("🔗 Received URL redirect: parlino://auth/callback")));
        QVERIFY(app.waitForLine(QStringLiteral("⚠️ Unknown URL path: auth")));
        // The second process handed over and did not start a second tray app.
        QVERIFY(!output.contains(QStringLiteral("🔧 Checking build configuration...")));

        QCOMPARE(AppProcess::runToEnd({QStringLiteral("Parlino://auth")}), 0);
        QVERIFY(app.waitForLine(QStringLiteral("⚠️ URL redirect ignored - wrong scheme: Parlino")));

        // A plain second launch brings the running app forward and exits.
        QCOMPARE(AppProcess::runToEnd({}), 0);
        QCOMPARE(app.lines().count(QStringLiteral("🔧 Checking build configuration...")), 1);
    }

    void playHandsAFileToTheRunningApp()
    {
        TestEnvironment env;
        writeDefaults(env, QStringLiteral("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n"));
        const QString mp3 = env.root() + QStringLiteral("/Morning news.mp3");
        QVERIFY(makeSpeechMp3(QStringLiteral("Good morning, here is the news."), mp3));

        // With no app running, play starts one.
        AppProcess app({QStringLiteral("play"), mp3});
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("▶️ Playing ") + mp3));
        QVERIFY(app.waitForLine(QStringLiteral("✅ AVPlayerItem ready to play!")));
        QTRY_VERIFY_WITH_TIMEOUT(
            !runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                 QStringLiteral("--name"), QStringLiteral("^Parlino Player$")})
                 .isEmpty(),
            5000);

        // A second play goes to the running app; a missing file is reported, not played.
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("play"), mp3}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(app.lines().count(QStringLiteral("🎵 AudioPlayerManager.play() called")), 2, 10000);
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("play"), env.root() + QStringLiteral("/missing.mp3")}), 0);
        QVERIFY(app.waitForLine(QStringLiteral("❌ Cannot play “") + env.root()
                                + QStringLiteral("/missing.mp3”: the file does not exist or cannot be read.")));
        QCOMPARE(app.lines().count(QStringLiteral("🎵 AudioPlayerManager.play() called")), 2);
    }

    void urlStartsTheAppWhenNoneRuns()
    {
        TestEnvironment env;
        AppProcess app({QStringLiteral("parlino://welcome")});
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("🔗 Received URL redirect: parlino://welcome")));
    }
};

QTEST_GUILESS_MAIN(TestLaunch)
#include "tst_Launch.moc"
