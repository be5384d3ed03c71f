// `parlino account` and `parlino usage` through the real executable: linking against the local web
// backend, invalid input and its exit code, the statistics the usage account holds, and a running app
// that follows an account change at once.
#include "AppProcess.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "WebBackendTestServer.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "core/SystemClock.h"
#include "usage/TTSUsageLog.h"
#include "usage/UsageTrackingService.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <memory>

using namespace parlino;
using namespace parlino::test;

namespace {

const QString kFetchPath = QStringLiteral("/api/account/fetch");

struct Run {
    int exitCode = -1;
    QString out;
    QString err;
};

} // namespace

class TestAccountCommands final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    WebBackendTestServer m_backend;

    // Runs parlino to its end while this process's event loop keeps the local backend answering.
    Run parlino(const QStringList &arguments)
    {
        QProcess process;
        process.start(AppProcess::executable(), arguments);
        if (!process.waitForStarted())
            return {};
        QDeadlineTimer deadline(std::chrono::seconds(60));
        while (process.state() != QProcess::NotRunning && !deadline.hasExpired())
            QTest::qWait(20);
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
            return {};
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
    }

    [[nodiscard]] std::optional<QString> linkedEmail() const
    {
        return Defaults(m_env.defaultsFile()).stringForKey(SettingsKeys::userEmail);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QDir().mkpath(QFileInfo(m_env.defaultsFile()).absolutePath());
        QFile defaults(m_env.defaultsFile());
        QVERIFY(defaults.open(QIODevice::WriteOnly));
        defaults.write("[General]\nonboardingCompleted=true\nhasLaunchedBefore=true\n");
        defaults.close();
        qputenv("PARLINO_BACKEND_URL", m_backend.origin().toUtf8());
        qputenv("API_KEY", WebBackendTestServer::apiKey());
        qputenv("OPENAI_API_KEY", "sk-test");
        m_backend.addCustomer(QStringLiteral("reader@example.com"), 1234);
    }

    // Link, status and unlink with no app running: the settings file is the account; invalid input
    // and a refused link leave it as it was, with the message and a non-zero exit.
    void accountWithoutRunningApp()
    {
        Run run = parlino({QStringLiteral("account"), QStringLiteral("status")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QStringLiteral("No account linked\n"));

        run = parlino({QStringLiteral("account"), QStringLiteral("link"), QStringLiteral("reader@localhost")});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.endsWith(QStringLiteral("\nInvalid email format\n")), qPrintable(run.err));
        QVERIFY(m_backend.requests(kFetchPath).isEmpty());
        QCOMPARE(parlino({QStringLiteral("account"), QStringLiteral("link")}).exitCode, 2);
        QCOMPARE(parlino({QStringLiteral("account"), QStringLiteral("relink")}).exitCode, 2);

        run = parlino({QStringLiteral("account"), QStringLiteral("link"), QStringLiteral("reader@example.com")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QStringLiteral("Account linked successfully\n"));
        QCOMPARE(m_backend.requests(kFetchPath).size(), 1);
        QCOMPARE(m_backend.requests(kFetchPath).first().header("X-API-Key"), WebBackendTestServer::apiKey());
        QCOMPARE(linkedEmail(), QStringLiteral("reader@example.com"));
        run = parlino({QStringLiteral("account"), QStringLiteral("status")});
        QCOMPARE(run.out, QStringLiteral("Account: reader@example.com\nCharacters this month (web backend): 1234\n"));

        m_backend.setAccountFetchAnswer(WebBackendTestServer::FixedAnswer{500, "{}"});
        run = parlino({QStringLiteral("account"), QStringLiteral("link"), QStringLiteral("other@example.com")});
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.endsWith(QStringLiteral("\nSync failed with status 500\n")), qPrintable(run.err));
        QCOMPARE(linkedEmail(), QStringLiteral("reader@example.com"));
        m_backend.setAccountFetchAnswer(std::nullopt);

        run = parlino({QStringLiteral("account"), QStringLiteral("unlink")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QStringLiteral("Account unlinked: reader@example.com\n"));
        QVERIFY(!linkedEmail());
        QCOMPARE(parlino({QStringLiteral("account"), QStringLiteral("status")}).out,
                 QStringLiteral("No account linked\n"));
    }

    // The month's statistics as the usage account stored them, as text and as JSON.
    void usageStatistics()
    {
        {
            Defaults defaults(m_env.defaultsFile());
            UsageTrackingService usage(defaults, Clock::system());
            TTSUsageLog log;
            log.timestamp = QDateTime::currentDateTimeUtc();
            log.provider = QStringLiteral("openai-speech");
            log.modelName = QStringLiteral("tts-1-hd");
            log.voiceName = QStringLiteral("nova");
            log.voiceTier = QStringLiteral("standard");
            log.characterCount = 2000;
            log.costPerKChars = 3.0;
            log.feature = QStringLiteral("read_aloud");
            log.requestSource = QStringLiteral("hot_key");
            usage.addUsageLog(log, UsageEventType::tts);
            log.id = QUuid::createUuid();
            log.characterCount = 500;
            log.feature = QStringLiteral("podcast");
            usage.addUsageLog(log, UsageEventType::podcast);
            defaults.synchronize();
        }
        Run run = parlino({QStringLiteral("usage")});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(lines.size() > 4, qPrintable(run.out));
        QCOMPARE(lines.at(0), QStringLiteral("Usage in ") + QDate::currentDate().toString(QStringLiteral("yyyy-MM")));
        QCOMPARE(lines.at(1), QStringLiteral("Characters: 2500"));
        QCOMPARE(lines.at(2), QStringLiteral("Estimated cost: $0.08")); // 7.5 cents, to the cent
        QCOMPARE(lines.at(3), QStringLiteral("Requests: 1 read aloud, 0 summaries, 1 podcasts, 0 questions"));
        QVERIFY(lines.contains(QStringLiteral("  openai-speech: 2500 characters, 2 requests, $0.08")));
        QVERIFY(lines.contains(QStringLiteral("  podcast: 500 characters, 1 request, $0.02")));

        run = parlino({QStringLiteral("usage"), QStringLiteral("--json")});
        QCOMPARE(run.exitCode, 0);
        const QJsonObject root = QJsonDocument::fromJson(run.out.toUtf8()).object();
        QCOMPARE(root.value(QStringLiteral("currentMonthCharacters")).toInteger(), 2500);
        const QJsonObject stats = root.value(QStringLiteral("stats")).toObject();
        QCOMPARE(stats.value(QStringLiteral("podcastCount")).toInteger(), 1);
        QCOMPARE(stats.value(QStringLiteral("byFeature")).toObject().keys(),
                 (QStringList{QStringLiteral("podcast"), QStringLiteral("read_aloud")}));

        run = parlino({QStringLiteral("usage"), QStringLiteral("--xml")});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.endsWith(QStringLiteral("Usage: parlino usage [--json]\n")), qPrintable(run.err));
    }

    // A running app follows the command at once: it loads the linked account and syncs it itself (a
    // new user here, whom the backend does not know), and forgets it on unlink.
    void runningAppFollows()
    {
        AppProcess app;
        QVERIFY(app.start());
        QVERIFY(app.waitForLine(QStringLiteral("ℹ️ No account linked - skipping sync on launch")));
        m_backend.clearRequests();

        Run run = parlino({QStringLiteral("account"), QStringLiteral("link"), QStringLiteral("newcomer@example.org")});
        QCOMPARE(run.exitCode, 0);
        QVERIFY(app.waitForLine(QStringLiteral("✅ Account state loaded: newcomer@example.org")));
        QVERIFY(app.waitForLine(QStringLiteral("🔄 Triggering voice preference sync for new user...")));
        QCOMPARE(m_backend.requests(kFetchPath).size(), 2); // the command's and the app's

        QCOMPARE(parlino({QStringLiteral("account"), QStringLiteral("unlink")}).exitCode, 0);
        QVERIFY(app.waitForLine(QStringLiteral("🔓 Account cleared")));
        app.stop();
    }
};

QTEST_GUILESS_MAIN(TestAccountCommands)
#include "tst_AccountCommands.moc"
