#include "AppProcess.h"
#include "OpenAITestServer.h"
#include "RealtimeTestServer.h"
#include "TestEnvironment.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTest>

using namespace parlino::test;
using parlino::test::OpenAITestServer;

namespace {

void pressKeys(const QString &combination)
{
    QProcess::execute(QStringLiteral("xdotool"),
                      {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), combination});
}

QStringList spokenInputs(const OpenAITestServer &server)
{
    QStringList inputs;
    for (const auto &request : server.requests(QStringLiteral("/audio/speech")))
        inputs << request.json.value(u"input").toString();
    return inputs;
}

// Notifications the desktop's notification daemon has seen: on screen, waiting and in its history.
int notificationCount()
{
    int count = 0;
    for (const QString &kind : {QStringLiteral("displayed"), QStringLiteral("waiting"), QStringLiteral("history")})
        count += runTool(QStringLiteral("dunstctl"), {QStringLiteral("count"), kind}).trimmed().toInt();
    return count;
}

bool floatingPlayerVisible()
{
    return !runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                                QStringLiteral("--name"), QStringLiteral("^Parlino Player$")})
                .isEmpty();
}

// The small application the user selects text in.
class SelectionApp final {
public:
    SelectionApp(const QString &mode, const QString &text)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (mode == u"accessible")
            environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(PARLINO_SELECTION_APP),
                        {QStringLiteral("--mode"), mode, QStringLiteral("--text"), text});
    }
    ~SelectionApp()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    bool waitUntilReady()
    {
        for (int i = 0; i < 100; ++i) {
            if (m_process.canReadLine() && m_process.readLine().trimmed() == "ready")
                return true;
            m_process.waitForReadyRead(100);
        }
        return false;
    }

private:
    QProcess m_process;
};

} // namespace

class TestReadAloud final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QDir().mkpath(QFileInfo(m_env.defaultsFile()).absolutePath());
        QFile defaults(m_env.defaultsFile());
        QVERIFY(defaults.open(QIODevice::WriteOnly));
        // The whole-file path; the streamed one has its own test at the end.
        defaults.write("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\nstreamSpeech=false\n");
        defaults.close();
        qputenv("OPENAI_BASE_URL", m_server.baseUrlString().toUtf8());
        qputenv("OPENAI_WEBSOCKET_BASE_URL", m_realtime.baseUrlString().toUtf8());
        qputenv("OPENAI_API_KEY", "sk-test");

        m_app = std::make_unique<AppProcess>();
        QVERIFY(m_app->start());
        QVERIFY(m_app->waitForLine(QStringLiteral("✅ Registered custom keyboard shortcuts")));
        QVERIFY(m_app->waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
    }

    void cleanupTestCase() { m_app.reset(); }

    void init()
    {
        m_server.clearRequests();
        m_server.clearFailures();
    }

    void shortcutReadsTheSelection_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("text");
        QTest::newRow("accessibility") << "accessible"
                                       << "The accessible field holds this sentence.";
        QTest::newRow("primary selection") << "primary"
                                           << "Only the primary selection has these words.";
        QTest::newRow("copy command") << "copy"
                                      << "This text arrives through the copy command.";
    }

    void shortcutReadsTheSelection()
    {
        QFETCH(QString, mode);
        QFETCH(QString, text);
        SelectionApp selection(mode, text);
        QVERIFY(selection.waitUntilReady());
        const int playsBefore = plays();

        pressKeys(QStringLiteral("super+shift+r"));
        QTRY_COMPARE_WITH_TIMEOUT(spokenInputs(m_server), QStringList{text}, 15000);
        QTRY_COMPARE_WITH_TIMEOUT(plays(), playsBefore + 1, 15000);
        QVERIFY(m_app->waitForLine(QStringLiteral("✅ Audio cached successfully")));
        QTRY_VERIFY_WITH_TIMEOUT(floatingPlayerVisible(), 5000);

        // The same selection again plays from the cache, without a request.
        pressKeys(QStringLiteral("super+shift+r"));
        QTRY_COMPARE_WITH_TIMEOUT(plays(), playsBefore + 2, 15000);
        QCOMPARE(spokenInputs(m_server).size(), 1);
    }

    void summaryAndPodcastShortcuts()
    {
        const QString text = QStringLiteral("A long article about rivers, their deltas and the towns along them.");
        SelectionApp selection(QStringLiteral("primary"), text);
        QVERIFY(selection.waitUntilReady());

        m_server.setChatContent(QStringLiteral("Rivers shape towns."));
        int before = plays();
        pressKeys(QStringLiteral("super+shift+h"));
        QTRY_COMPARE_WITH_TIMEOUT(plays(), before + 1, 15000);
        const auto chats = m_server.requests(QStringLiteral("/chat/completions"));
        QCOMPARE(chats.size(), 1);
        QVERIFY(chats.first().body.contains(text.toUtf8()));
        QCOMPARE(spokenInputs(m_server), QStringList{QStringLiteral("Rivers shape towns.")});

        m_server.clearRequests();
        m_server.setChatContent(QStringLiteral("Welcome to the river show."));
        before = plays();
        pressKeys(QStringLiteral("super+shift+g"));
        QTRY_COMPARE_WITH_TIMEOUT(plays(), before + 1, 15000);
        // The script, then the title.
        QCOMPARE(m_server.requests(QStringLiteral("/chat/completions")).size(), 2);
        QCOMPARE(spokenInputs(m_server), QStringList{QStringLiteral("Welcome to the river show.")});
    }

    void serverErrorHidesThePlayer()
    {
        // While earlier audio still plays the player rightly stays; this is about a request on its own.
        pressKeys(QStringLiteral("super+shift+s"));
        QVERIFY(m_app->waitForLine(QStringLiteral("⏹️ Playback stopped")));
        m_server.setSpeechFailure(OpenAITestServer::Failure::error(500, R"({"error":{"message":"boom"}})"));
        SelectionApp selection(QStringLiteral("primary"),
                               QStringLiteral("This request is going to fail on the server."));
        QVERIFY(selection.waitUntilReady());
        pressKeys(QStringLiteral("super+shift+r"));
        QTRY_VERIFY_WITH_TIMEOUT(std::any_of(m_app->lines().cbegin(), m_app->lines().cend(),
                                             [](const QString &line) {
                                                 return line.startsWith(QStringLiteral("❌ Failed to generate audio: "));
                                             }),
                                 15000);
        QTRY_VERIFY_WITH_TIMEOUT(!floatingPlayerVisible(), 5000);
    }

    void commandLineReadsThroughTheRunningApp()
    {
        const int before = plays();
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--read-aloud"), QStringLiteral("Some text from a script.")}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(spokenInputs(m_server), QStringList{QStringLiteral("Some text from a script.")},
                                  15000);
        QTRY_COMPARE_WITH_TIMEOUT(plays(), before + 1, 15000);

        QString output;
        QCOMPARE(AppProcess::runToEnd({QStringLiteral("--read-aloud"), QString()}, &output), 1);
        QVERIFY(output.contains(QStringLiteral("No text selected")));
        QCOMPARE(spokenInputs(m_server).size(), 1);
    }

    void requestsInAFloodStartOneReadingAtATime()
    {
        // Twenty requests within a second on the session bus, as a script in a loop would send them:
        // a few are taken, each replacing the one before, the rest refused; only the newest reading
        // goes on past its first piece, and it is the one played.
        m_server.setSpeechPace(2000);
        const int playsBefore = plays();
        const auto text = [](int request) {
            QString body = QStringLiteral("Request %1 begins here. ").arg(request);
            while (body.size() < 6000)
                body += QStringLiteral("Its sentences go on for a while. ");
            return body;
        };
        QList<QDBusPendingCall> calls;
        for (int request = 1; request <= 20; ++request) {
            QDBusMessage message = QDBusMessage::createMethodCall(
                QStringLiteral("com.parlino.app"), QStringLiteral("/com/parlino/Services"),
                QStringLiteral("com.parlino.Services"), QStringLiteral("ReadAloud"));
            message.setArguments({text(request)});
            calls << QDBusConnection::sessionBus().asyncCall(message);
        }
        QStringList refusals;
        for (QDBusPendingCall &call : calls) {
            call.waitForFinished();
            if (call.isError())
                refusals << call.error().message();
        }
        // The requests of the test before count too when they were within the same ten seconds.
        const int taken = 20 - static_cast<int>(refusals.size());
        QVERIFY2(taken >= 3 && taken <= 5, qPrintable(QString::number(taken)));
        QVERIFY2(refusals.first().startsWith(QStringLiteral("Too many requests")), qPrintable(refusals.first()));

        // The last reading taken has its second piece is asked for; no earlier reading's is (the pieces after the
        // first do not start with "Request").
        const auto count = [this](const QString &start) {
            const QStringList inputs = spokenInputs(m_server);
            return std::count_if(inputs.cbegin(), inputs.cend(),
                                 [&](const QString &input) { return input.startsWith(start); });
        };
        const auto laterPieces = [this] {
            const QStringList inputs = spokenInputs(m_server);
            return std::count_if(inputs.cbegin(), inputs.cend(),
                                 [](const QString &input) { return !input.startsWith(QStringLiteral("Request")); });
        };
        QTRY_VERIFY_WITH_TIMEOUT(laterPieces() >= 1, 30000);
        QTest::qWait(1500);
        QCOMPARE(laterPieces(), 1);
        QCOMPARE(count(QStringLiteral("Request %1 begins").arg(taken)), 1);
        for (int request = 1; request < taken; ++request)
            QVERIFY(count(QStringLiteral("Request %1 begins").arg(request)) <= 1);
        QTRY_COMPARE_WITH_TIMEOUT(plays(), playsBefore + 1, 15000);
        QTest::qWait(500);
        QCOMPARE(plays(), playsBefore + 1);
        pressKeys(QStringLiteral("super+shift+s"));
        m_server.setSpeechPace(0);
    }

    void streamedReadingStartsAtOnceAndStopsItsRequests()
    {
        // The same app with its default: speech is played while it arrives, shaped like the real service.
        m_app.reset();
        QFile defaults(m_env.defaultsFile());
        QVERIFY(defaults.open(QIODevice::WriteOnly));
        defaults.write("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n");
        defaults.close();
        m_app = std::make_unique<AppProcess>();
        QVERIFY(m_app->start());
        QVERIFY(m_app->waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
        m_server.setSpeechPace(400);

        // Three chunks of about ten seconds of answering each: sound starts with the first one's bytes.
        QString text;
        for (int i = 1; text.size() < 9000; ++i)
            text += QStringLiteral("Streamed sentence number %1 goes on for a while. ").arg(i);
        SelectionApp selection(QStringLiteral("primary"), text);
        QVERIFY(selection.waitUntilReady());
        pressKeys(QStringLiteral("super+shift+r"));
        QVERIFY(m_app->waitForLine(QStringLiteral("🎵 AudioPlayerManager.playStream() called")));
        QVERIFY(m_app->waitForLine(QStringLiteral("✅ AVPlayerItem ready to play!")));
        QTRY_VERIFY_WITH_TIMEOUT(floatingPlayerVisible(), 5000);
        QCOMPARE(spokenInputs(m_server).size(), 1);

        // Stop: the chunk being answered still arrives, and nothing after it is asked for.
        pressKeys(QStringLiteral("super+shift+s"));
        QVERIFY(m_app->waitForLine(QStringLiteral("⏹️ Reading stopped - chunk 2/3 and later not requested")));
        QTest::qWait(500);
        QCOMPARE(spokenInputs(m_server).size(), 1);
        m_server.setSpeechPace(0);
    }

    void retiredSpeechModelKeepsReadingThroughTheRealtimeApi()
    {
        // OpenAI has shut tts-1 down: the first read is refused, the app switches, tells the user once,
        // and the reading is heard all the same.
        m_server.setRetiredModels({QStringLiteral("tts-1")});
        const int notificationsBefore = notificationCount();
        const QString first = QStringLiteral("The speech model behind this sentence was retired yesterday.");
        const auto streamed = [this] { return m_app->lines().count(QStringLiteral("✅ Successfully streamed audio")); };
        {
            const qsizetype before = streamed();
            SelectionApp selection(QStringLiteral("primary"), first);
            QVERIFY(selection.waitUntilReady());
            pressKeys(QStringLiteral("super+shift+r"));
            QTRY_COMPARE_WITH_TIMEOUT(streamed(), before + 1, 15000);
        }
        QCOMPARE(spokenInputs(m_server), QStringList{first});
        QCOMPARE(m_realtime.receivedEvents(QStringLiteral("response.create")).size(), 1);

        // The usage account names what really read, with the reading's real figures.
        const QJsonObject usage = lastUsageLog();
        QCOMPARE(usage.value(u"provider").toString(), QStringLiteral("openai-realtime"));
        QCOMPARE(usage.value(u"modelName").toString(), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(usage.value(u"characterCount").toInt(), first.size());
        QCOMPARE(usage.value(u"platform").toString(), QStringLiteral("linux"));
        QVERIFY(usage.value(u"timeToFirstByteMs").toInt() > 0);
        QVERIFY(usage.value(u"audioDurationMs").toInt() > 1000);
        QVERIFY(m_app->waitForLine(QStringLiteral("✅ AVPlayerItem ready to play!")));
        QTRY_COMPARE_WITH_TIMEOUT(notificationCount(), notificationsBefore + 1, 5000);

        // The switch is kept: after a restart the next reading goes to the Realtime API directly.
        m_app.reset();
        m_server.clearRequests();
        m_app = std::make_unique<AppProcess>();
        QVERIFY(m_app->start());
        QVERIFY(m_app->waitForLine(QStringLiteral("ℹ️ Keyboard shortcuts already active")));
        {
            SelectionApp selection(QStringLiteral("primary"), QStringLiteral("And this one goes straight there."));
            QVERIFY(selection.waitUntilReady());
            pressKeys(QStringLiteral("super+shift+r"));
            QVERIFY(m_app->waitForLine(QStringLiteral("✅ Successfully streamed audio")));
        }
        QVERIFY(spokenInputs(m_server).isEmpty());
        QCOMPARE(m_realtime.receivedEvents(QStringLiteral("response.create")).size(), 2);
        QTest::qWait(300);
        QCOMPARE(notificationCount(), notificationsBefore + 1);
        m_server.setRetiredModels({});
    }

    void failureMidStreamPlaysWhatArrivedThenTells()
    {
        // The answer breaks off halfway, whichever provider reads (the Realtime API after the test
        // above): the first half is heard, then the user is told.
        m_server.setSpeechPace(90);
        m_server.setSpeechFailure(OpenAITestServer::Failure::bodyCutShort());
        m_realtime.setPace(90);
        m_realtime.setFailure(RealtimeTestServer::Failure::dropAfterDeltas(14));
        const int notificationsBefore = notificationCount();
        SelectionApp selection(QStringLiteral("primary"),
                               QStringLiteral("Only the first half of this sentence reaches the listener."));
        QVERIFY(selection.waitUntilReady());
        const qsizetype linesBefore = m_app->lines().size();
        pressKeys(QStringLiteral("super+shift+r"));
        const auto laterLine = [&](const QString &prefix) {
            const QStringList lines = m_app->lines().mid(linesBefore);
            return std::find_if(lines.cbegin(), lines.cend(),
                                [&](const QString &line) { return line.startsWith(prefix); })
                   != lines.cend();
        };
        QTRY_VERIFY_WITH_TIMEOUT(laterLine(QStringLiteral("❌ Read aloud failed: ")), 15000);
        QVERIFY(laterLine(QStringLiteral("✅ AVPlayerItem ready to play!")));
        QCOMPARE(notificationCount(), notificationsBefore);
        QTRY_VERIFY_WITH_TIMEOUT(laterLine(QStringLiteral("🏁 Playback finished")), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(laterLine(QStringLiteral("❌ Failed to generate audio: ")), 5000);
        QTRY_COMPARE_WITH_TIMEOUT(notificationCount(), notificationsBefore + 1, 5000);
        m_server.clearFailures();
        m_server.setSpeechPace(0);
        m_realtime.clearFailure();
        m_realtime.setPace(0);
    }

private:
    // The newest speech request in the app's usage account, as its settings file holds it.
    QJsonObject lastUsageLog() const
    {
        QSettings settings(m_env.defaultsFile(), QSettings::IniFormat);
        const QJsonArray logs =
            QJsonDocument::fromJson(settings.value(QStringLiteral("ttsUsageLogs")).toByteArray()).array();
        return logs.isEmpty() ? QJsonObject() : logs.last().toObject();
    }

    int plays() { return static_cast<int>(m_app->lines().count(QStringLiteral("🎵 AudioPlayerManager.play() called"))); }

    TestEnvironment m_env;
    OpenAITestServer m_server;
    RealtimeTestServer m_realtime;
    std::unique_ptr<AppProcess> m_app;
};

QTEST_MAIN(TestReadAloud)
#include "tst_ReadAloud.moc"
