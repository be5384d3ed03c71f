#include "LogCapture.h"
#include "ManualClock.h"
#include "WebBackendTestServer.h"
#include "backend/EmailNotificationService.h"

#include <QSignalSpy>
#include <QTest>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

const QString kUsagePath = QStringLiteral("/api/email/usage-tracked");

} // namespace

// Activity notices against the local web backend: a burst of activity gives one notice 60 seconds after
// its last event (on a manual clock), and the backend's answers are taken as they are meant.
class TestEmailNotificationService final : public QObject {
    Q_OBJECT

private:
    WebBackendTestServer m_backend;
    QuietLog m_quiet;

private Q_SLOTS:
    void initTestCase() { m_backend.addCustomer(QStringLiteral("reader@example.com"), 10); }
    void init()
    {
        m_backend.clearRequests();
        m_backend.setUsageTrackedAnswer(std::nullopt);
    }

    // Five events 10 s apart: nothing is sent while they come, nor until 60 s after the fifth; then
    // one notice, for the address of the last call, without the API key.
    void aBurstGivesOneTrailingNotice()
    {
        ManualClock clock;
        EmailNotificationService service(clock, m_backend.origin());
        QSignalSpy notified(&service, &EmailNotificationService::usageActivityNotified);

        for (int event = 0; event < 5; ++event) {
            if (event > 0)
                clock.advance(10s);
            service.notifyUsageActivityThrottled(event < 4 ? QStringLiteral("earlier@example.com")
                                                           : QStringLiteral("reader@example.com"));
        }
        QCOMPARE(service.pendingActivityEmail(), QStringLiteral("reader@example.com"));
        clock.advance(60s - 1ms);
        QTest::qWait(50); // a request, had one been started, would reach the local server meanwhile
        QVERIFY(m_backend.requests(kUsagePath).isEmpty());
        QCOMPARE(notified.count(), 0);

        clock.advance(1ms);
        QVERIFY(notified.wait(10000));
        QCOMPARE(notified.first().at(0).toString(), QStringLiteral("reader@example.com"));
        QCOMPARE(notified.first().at(1).toInt(), 200);
        const QList<WebBackendTestServer::Request> sent = m_backend.requests(kUsagePath);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().json, (QJsonObject{{QStringLiteral("email"), QStringLiteral("reader@example.com")}}));
        QVERIFY(!sent.first().hasHeader("X-API-Key"));
        QVERIFY(!service.pendingActivityEmail());

        // Nothing is left waiting: a later event starts a new wait of its own.
        clock.advance(10min);
        QTest::qWait(50);
        QCOMPARE(m_backend.requests(kUsagePath).size(), 1);
        service.notifyUsageActivityThrottled(QStringLiteral("reader@example.com"));
        clock.advance(60s);
        QVERIFY(notified.wait(10000));
        QCOMPARE(m_backend.requests(kUsagePath).size(), 2);
    }

    // 200 and 404 (an address the backend does not know yet) pass silently; any other status is
    // logged; an unusable origin sends nothing.
    void backendAnswers()
    {
        LogCapture log;
        ManualClock clock;
        EmailNotificationService service(clock, m_backend.origin());
        QSignalSpy notified(&service, &EmailNotificationService::usageActivityNotified);

        service.notifyUsageActivity(QStringLiteral("stranger@example.com"));
        QVERIFY(notified.wait(10000));
        QCOMPARE(notified.last().at(1).toInt(), 404);
        m_backend.setUsageTrackedAnswer(WebBackendTestServer::FixedAnswer{503, "{}"});
        service.notifyUsageActivity(QStringLiteral("reader@example.com"));
        QVERIFY(notified.wait(10000));
        QCOMPARE(log.count(QStringLiteral("⚠️ Usage tracking returned status 404")), 0);
        QCOMPARE(log.count(QStringLiteral("⚠️ Usage tracking returned status 503")), 1);

        EmailNotificationService nowhere(clock, QStringLiteral("::nowhere"));
        nowhere.notifyUsageActivity(QStringLiteral("reader@example.com"));
        QVERIFY(log.contains(
            QStringLiteral("❌ Invalid URL for usage tracking endpoint: ::nowhere/api/email/usage-tracked")));
        QCOMPARE(m_backend.requests(kUsagePath).size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestEmailNotificationService)
#include "tst_EmailNotificationService.moc"
