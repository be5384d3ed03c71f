#include "AwaitTask.h"
#include "LogCapture.h"
#include "WebBackendTestServer.h"
#include "backend/AccountSyncService.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

#include <optional>

using namespace parlino;
using namespace parlino::test;

Q_DECLARE_METATYPE(parlino::AccountSyncStatus)

namespace {

const QString kKnown = QStringLiteral("reader@example.com");
const QString kNew = QStringLiteral("newcomer@example.org");

AccountSyncStatus statusAt(const QSignalSpy &spy, int index)
{
    return spy.at(index).at(0).value<AccountSyncStatus>();
}

} // namespace

// Linking against the local web backend: address validation, the answers the backend gives for a
// known customer, a new user and a refused key, and the failures the user is told about.
class TestAccountSyncService final : public QObject {
    Q_OBJECT

private:
    WebBackendTestServer m_backend;
    std::optional<QuietLog> m_quiet;

    AccountSyncService::LinkResult link(AccountSyncService &service, const QString &email)
    {
        const TaskOutcome<AccountSyncService::LinkResult> outcome = awaitTask(service.link(email));
        if (!outcome.finished || !outcome.value)
            return {false, QStringLiteral("(did not finish)")};
        return *outcome.value;
    }

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<AccountSyncStatus>();
        m_backend.addCustomer(kKnown, 1234);
    }
    void init()
    {
        m_quiet.emplace();
        qputenv("API_KEY", WebBackendTestServer::apiKey());
        m_backend.clearRequests();
        m_backend.setAccountFetchAnswer(std::nullopt);
    }
    void cleanup() { m_quiet.reset(); }

    void emailValidation_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<bool>("valid");
        QTest::newRow("plain") << QStringLiteral("reader@example.com") << true;
        QTest::newRow("plus and subdomain") << QStringLiteral("first.last+tag@mail.example.co.uk") << true;
        QTest::newRow("64-letter top level") << QStringLiteral("a@b.") + QString(64, u'x') << true;
        QTest::newRow("65-letter top level") << QStringLiteral("a@b.") + QString(65, u'x') << false;
        QTest::newRow("no dot after the at sign") << QStringLiteral("reader@localhost") << false;
        QTest::newRow("one-letter top level") << QStringLiteral("reader@example.c") << false;
        QTest::newRow("digits in the top level") << QStringLiteral("reader@example.c0m") << false;
        QTest::newRow("no at sign") << QStringLiteral("reader.example.com") << false;
        QTest::newRow("text around it") << QStringLiteral("Reader <reader@example.com>") << false;
        QTest::newRow("trailing space") << QStringLiteral("reader@example.com ") << false;
        QTest::newRow("empty") << QString() << false;
    }

    // The whole address must match; a mismatch fails at once and sends nothing.
    void emailValidation()
    {
        QFETCH(QString, email);
        QFETCH(bool, valid);
        QCOMPARE(AccountSyncService::isValidEmail(email), valid);
        if (valid)
            return;
        AccountSyncService service(m_backend.origin());
        QSignalSpy statuses(&service, &AccountSyncService::syncStatusChanged);
        const AccountSyncService::LinkResult result = link(service, email);
        QVERIFY(!result);
        QCOMPARE(result.message, QStringLiteral("Invalid email format"));
        QVERIFY(m_backend.requests(QStringLiteral("/api/account/fetch")).isEmpty());
        QCOMPARE(statuses.count(), 0);
    }

    // A known customer: the key and the address reach the backend, the month's characters come back,
    // and the voice-preference sync is asked for. An address the backend does not know (404) links
    // all the same, as a new user.
    void linksKnownAndNewUsers()
    {
        LogCapture log;
        AccountSyncService service(m_backend.origin());
        QSignalSpy statuses(&service, &AccountSyncService::syncStatusChanged);
        QSignalSpy voiceSync(&service, &AccountSyncService::voicePreferenceSyncRequested);
        QSignalSpy characters(&service, &AccountSyncService::currentMonthCharactersReceived);

        const AccountSyncService::LinkResult known = link(service, kKnown);
        QVERIFY2(known, qPrintable(known.message));
        QCOMPARE(known.message, QStringLiteral("Account linked successfully"));
        const QList<WebBackendTestServer::Request> sent = m_backend.requests(QStringLiteral("/api/account/fetch"));
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().json, (QJsonObject{{QStringLiteral("email"), kKnown}}));
        QCOMPARE(sent.first().header("X-API-Key"), WebBackendTestServer::apiKey());
        QCOMPARE(sent.first().header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(statuses.count(), 2);
        QCOMPARE(statusAt(statuses, 0), AccountSyncStatus::syncing());
        QCOMPARE(statusAt(statuses, 1), AccountSyncStatus::synced());
        QCOMPARE(voiceSync.count(), 1);
        QCOMPARE(voiceSync.first().first().toString(), kKnown);
        QCOMPARE(characters.count(), 1);
        QCOMPARE(characters.first().at(1).toLongLong(), 1234);
        QVERIFY(log.containsInOrder({QStringLiteral("🔗 Linking account for ") + kKnown,
                                     QStringLiteral("✅ Account data synced successfully for ") + kKnown,
                                     QStringLiteral("📊 Usage synced: 1234"),
                                     QStringLiteral("🔄 Triggering voice preference sync...")}));

        log.clear();
        const AccountSyncService::LinkResult fresh = link(service, kNew);
        QVERIFY2(fresh, qPrintable(fresh.message));
        QCOMPARE(voiceSync.count(), 2);
        QCOMPARE(voiceSync.last().first().toString(), kNew);
        QCOMPARE(characters.count(), 1);
        QCOMPARE(statusAt(statuses, statuses.count() - 1), AccountSyncStatus::synced());
        QVERIFY(
            log.containsInOrder({QStringLiteral("ℹ️ Customer not found in backend - this is normal for new users"),
                                 QStringLiteral("🔄 Triggering voice preference sync for new user...")}));
    }

    // Every refusal carries the text the user is shown, sets the error status and asks for no
    // voice-preference sync.
    void failures()
    {
        LogCapture log;
        AccountSyncService service(m_backend.origin());
        QSignalSpy statuses(&service, &AccountSyncService::syncStatusChanged);
        QSignalSpy voiceSync(&service, &AccountSyncService::voicePreferenceSyncRequested);

        // No key configured: the request still goes, without the header, and the backend refuses it.
        qunsetenv("API_KEY");
        AccountSyncService::LinkResult result = link(service, kKnown);
        QCOMPARE(result.message, QStringLiteral("Authentication failed. Please contact support."));
        QVERIFY(!result);
        QCOMPARE(m_backend.requests(QStringLiteral("/api/account/fetch")).size(), 1);
        QVERIFY(!m_backend.requests(QStringLiteral("/api/account/fetch")).first().hasHeader("X-API-Key"));
        QVERIFY(
            log.containsInOrder({QStringLiteral("⚠️ No API key configured - account sync may fail with 401 error"),
                                 QStringLiteral("❌ Sync failed: Unauthorized (401)"),
                                 QStringLiteral("   API key missing or not provided in request")}));
        QCOMPARE(statusAt(statuses, statuses.count() - 1),
                 AccountSyncStatus::error(QStringLiteral("Authentication failed. Please contact support.")));

        qputenv("API_KEY", "another-key");
        QCOMPARE(link(service, kKnown).message, QStringLiteral("API key invalid. Please contact support."));
        QVERIFY(log.contains(QStringLiteral("   Invalid API key provided")));

        qputenv("API_KEY", WebBackendTestServer::apiKey());
        m_backend.setAccountFetchAnswer(WebBackendTestServer::FixedAnswer{500, "upstream down"});
        QCOMPARE(link(service, kKnown).message, QStringLiteral("Sync failed with status 500"));
        QVERIFY(log.containsInOrder(
            {QStringLiteral("⚠️ Account sync returned status 500"), QStringLiteral("upstream down")}));

        m_backend.setAccountFetchAnswer(WebBackendTestServer::FixedAnswer{200, "[1, 2]"});
        QCOMPARE(link(service, kKnown).message, QStringLiteral("Invalid response format"));
        QVERIFY(log.contains(QStringLiteral("⚠️ Failed to parse account data")));
        QCOMPARE(voiceSync.count(), 0);

        const TaskOutcome<AccountSyncService::AccountData> empty = awaitTask(service.syncAccountData(QString()));
        QCOMPARE(empty.error, QStringLiteral("Email is required"));

        AccountSyncService nowhere(QStringLiteral("not a url"));
        QCOMPARE(link(nowhere, kKnown).message, QStringLiteral("Invalid endpoint"));
        QVERIFY(log.contains(QStringLiteral("❌ Invalid URL for account sync endpoint: not a url/api/account/fetch")));

        // A port nobody listens on: no answer at all.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close();
        AccountSyncService unreachable(QStringLiteral("http://127.0.0.1:%1").arg(port));
        const AccountSyncService::LinkResult refused = link(unreachable, kKnown);
        QVERIFY(!refused);
        QVERIFY2(refused.message.startsWith(QStringLiteral("Account sync failed: ")), qPrintable(refused.message));
        QVERIFY(refused.message.size() > QStringLiteral("Account sync failed: ").size());
        QCOMPARE(voiceSync.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestAccountSyncService)
#include "tst_AccountSyncService.moc"
