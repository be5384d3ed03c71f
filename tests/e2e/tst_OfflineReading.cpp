#include "AppProcess.h"
#include "OpenAITestServer.h"
#include "SelectionApp.h"
#include "SoundRecorder.h"
#include "TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

using namespace parlino::test;

// A user who finished onboarding but has no OpenAI key selects text and presses the shortcut: the
// offline voice reads it through the usual player. (A key whose server cannot be reached is the
// speech side's test.)
class TestOfflineReading final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QDir().mkpath(QFileInfo(m_env.defaultsFile()).absolutePath());
        QFile defaults(m_env.defaultsFile());
        QVERIFY(defaults.open(QIODevice::WriteOnly));
        defaults.write(
            "[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\nofflineVoice=en-us\nmaxTextLength=200\n");
        defaults.close();
        qunsetenv("OPENAI_API_KEY");
        qputenv("OPENAI_BASE_URL", m_server.baseUrlString().toUtf8());
    }

    void shortcutReadsWithTheOfflineVoice()
    {
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
        SelectionApp selection({QStringLiteral("--mode"), QStringLiteral("primary"), QStringLiteral("--text"),
                                QStringLiteral("Nobody gave Parlino a key, and it reads this all the same.")});
        QVERIFY(selection.waitUntilReady());
        SoundRecorder sound;

        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), QStringLiteral("super+shift+r")});
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ No OpenAI key configured - reading with the offline voice")));
        QVERIFY(app.waitForLine(QStringLiteral("✅ Successfully streamed audio")));
        // About three seconds of speech reach the sound server; OpenAI was never asked.
        QTRY_VERIFY_WITH_TIMEOUT(sound.loudSeconds() > 1.0, 15000);
        QVERIFY(m_server.requests().isEmpty());

        // Over the settings' limit the read-aloud service refuses the text before reading anything.
        QString output;
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--read-aloud"), QString(250, u'x')}, &output), 1);
        QVERIFY2(
            output.contains(QStringLiteral("This text is too long to read: 250 characters, and the limit is 200.")),
            qPrintable(output));
        QVERIFY(
            app.waitForLine(QStringLiteral("❌ Text refused before any request: 250 characters over the limit of 200")));
        QCOMPARE(app.lines().filter(QStringLiteral("Offline voice en-us reads")).size(), 1);
    }

private:
    TestEnvironment m_env;
    OpenAITestServer m_server;
};

QTEST_GUILESS_MAIN(TestOfflineReading)
#include "tst_OfflineReading.moc"
