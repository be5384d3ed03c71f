#include "AppProcess.h"
#include "OpenAITestServer.h"
#include "SoundRecorder.h"
#include "TestEnvironment.h"

#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTest>

using namespace parlino::test;

namespace {

const QString goodKey = QStringLiteral("sk-test-onboarding-0123456789");

void press(const QString &keys)
{
    QProcess::execute(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys});
}

void type(const QString &text)
{
    QProcess::execute(QStringLiteral("xdotool"),
                      {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("5"), text});
}

// Requests to the speech endpoint whose input contains `words`.
qsizetype speechRequestsFor(const OpenAITestServer &server, const QString &words)
{
    qsizetype count = 0;
    for (const auto &request : server.requests())
        count += request.path == u"/v1/audio/speech" && request.json.value(u"input").toString().contains(words) ? 1 : 0;
    return count;
}

} // namespace

// A new user goes from the first start to hearing Parlino without a terminal: a wrong key is refused
// with OpenAI's own message and nothing is kept, the right one is kept for this user only and used at
// once, the test step speaks through the floating player, and finishing moves Parlino into the tray.
class TestOnboarding final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qunsetenv("OPENAI_API_KEY");
        m_server.setAcceptedKey(goodKey);
        qputenv("OPENAI_BASE_URL", m_server.baseUrlString().toUtf8());
    }

    void newUserSetsUpAKeyAndHearsTheTestStep()
    {
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("📋 Showing onboarding (first launch or incomplete onboarding)")));
        QTRY_VERIFY_WITH_TIMEOUT(
            !runTool(QStringLiteral("xdotool"),
                     {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("Welcome to Parlino")})
                 .isEmpty(),
            10000);
        QTest::qWait(500);
        press(QStringLiteral("alt+Right")); // to the key page, where the key field has the focus

        const QString keyFile = m_env.configHome() + QStringLiteral("/Parlino/openai-api-key");
        type(QStringLiteral("sk-wrong-key-9999"));
        press(QStringLiteral("Return"));
        QVERIFY(app.waitForLine(QStringLiteral("❌ OpenAI key not accepted: OpenAI refused the key (401): Incorrect "
                                               "API key provided: sk-***9999. You can find your API key at "
                                               "https://platform.openai.com/account/api-keys.")));
        QVERIFY(!QFile::exists(keyFile));

        press(QStringLiteral("ctrl+a"));
        type(goodKey);
        press(QStringLiteral("Return"));
        QVERIFY(app.waitForLine(QStringLiteral("✅ OpenAI key checked and saved to ") + keyFile));
        QFile stored(keyFile);
        QVERIFY(stored.open(QIODevice::ReadOnly));
        QCOMPARE(stored.readAll().trimmed(), goodKey.toUtf8());
        QCOMPARE(stored.permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        // The key works at once: the page's narration is spoken by OpenAI, with that key.
        QTRY_COMPARE_WITH_TIMEOUT(speechRequestsFor(m_server, QStringLiteral("Your OpenAI key is working")), 1, 10000);

        press(QStringLiteral("alt+Right")); // accessibility
        press(QStringLiteral("alt+Right")); // the test step
        QTRY_COMPARE_WITH_TIMEOUT(speechRequestsFor(m_server, QStringLiteral("This is how your selected text sounds")),
                                  1, 10000);
        QVERIFY(app.waitForLine(QStringLiteral("🎓 Welcome message ready for the test step")));
        SoundRecorder sound;
        press(QStringLiteral("super+shift+r"));
        QVERIFY(app.waitForLine(QStringLiteral("🎓 ONBOARDING MODE DETECTED - Replaying current audio")));
        // The welcome lasts about ten seconds; a good part of it reaches the sound server.
        QTRY_VERIFY_WITH_TIMEOUT(sound.loudSeconds() > 2.0, 15000);
        QVERIFY(
            !app.lines().contains(QStringLiteral("ℹ️ No OpenAI key configured - reading with the offline voice")));

        // The floating player came up beside the window; the user goes back to the onboarding window.
        QProcess::execute(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                      QStringLiteral("--name"), QStringLiteral("^Welcome to Parlino$"),
                                                      QStringLiteral("windowactivate"), QStringLiteral("--sync")});
        press(QStringLiteral("alt+Right")); // the last page, where Next reads "Finish"
        QTest::qWait(300);
        press(QStringLiteral("Return"));
        QVERIFY(app.waitForLine(QStringLiteral("✅ Onboarding completed - Parlino now lives in the system tray")));
        QSettings defaults(m_env.defaultsFile(), QSettings::IniFormat);
        QVERIFY(defaults.value(QStringLiteral("onboardingCompleted")).toBool());
        QVERIFY(defaults.value(QStringLiteral("hasLaunchedBefore")).toBool());
        QTRY_VERIFY_WITH_TIMEOUT(
            runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                QStringLiteral("--name"), QStringLiteral("Welcome to Parlino")})
                .isEmpty(),
            5000);
    }

private:
    TestEnvironment m_env;
    OpenAITestServer m_server;
};

QTEST_GUILESS_MAIN(TestOnboarding)
#include "tst_Onboarding.moc"
