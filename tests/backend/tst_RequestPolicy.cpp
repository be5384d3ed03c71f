#include "AwaitTask.h"
#include "OpenAITestServer.h"
#include "backend/NetworkError.h"
#include "backend/OpenAIConnection.h"
#include "backend/RequestPolicy.h"
#include "backend/WebBackend.h"

#include <QNetworkAccessManager>
#include <QTest>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

// A real network manager that counts the requests it was asked to start.
class CountingNetwork final : public QNetworkAccessManager {
public:
    int started = 0;

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request, QIODevice *outgoingData) override
    {
        ++started;
        return QNetworkAccessManager::createRequest(operation, request, outgoingData);
    }
};

} // namespace

// The rules every HTTP client follows, against the local OpenAI server and its faults.
class TestRequestPolicy final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void requestsKeepToThePolicy()
    {
        OpenAITestServer server;
        OpenAITestServer elsewhere;
        CountingNetwork network;
        OpenAIConnection connection(QStringLiteral("secret-key"), server.baseUrlString(), &network);
        const QUrl models = *connection.endpoint(QStringLiteral("/models"));

        // Plain http reaches only this computer; anything else is refused before a request starts.
        for (const char *url :
             {"http://127.0.0.1:9/v1", "http://127.8.9.10/v1", "http://[::1]:9/v1", "http://LocalHost:9/v1",
              "https://api.openai.com/v1", "ws://127.0.0.1:9/v1", "wss://api.openai.com/v1"})
            QVERIFY2(!RequestPolicy::refusalOf(QUrl(QString::fromLatin1(url))), url);
        for (const char *url : {"ws://api.openai.com/v1", "http://127.evil.example/v1", "ftp://127.0.0.1/v1"})
            QVERIFY2(RequestPolicy::refusalOf(QUrl(QString::fromLatin1(url))), url);
        OpenAIConnection plain(QStringLiteral("secret-key"), QStringLiteral("http://api.openai.com/v1"), &network);
        const auto refused = awaitTask(plain.getJSON(*plain.endpoint(QStringLiteral("/models"))));
        QCOMPARE(refused.error, QStringLiteral("Refused to send a request to api.openai.com over plain http: only "
                                               "this computer is asked without https."));
        const auto backend = awaitTask(WebBackend::postJSON(network, QUrl(QStringLiteral("http://10.0.0.1/api/x")), {},
                                                            {}, WebBackend::requestTimeout));
        QVERIFY(backend.error && backend.error->startsWith(QStringLiteral("Refused to send a request to 10.0.0.1")));
        QCOMPARE(network.started, 0);

        // A redirect within the origin is followed with the key; one to another server is not followed.
        server.setRedirectTarget(models);
        server.setFault(QStringLiteral("/v1/models"), OpenAITestServer::Fault::redirect, 1);
        const auto followed = awaitTask(connection.getJSON(models));
        QVERIFY(followed.value && followed.value->statusCode == 200);
        QCOMPARE(server.requests(QStringLiteral("/models")).size(), 2);
        QCOMPARE(server.requests().last().header("Authorization"), QByteArray("Bearer secret-key"));
        server.setRedirectTarget(QUrl(elsewhere.baseUrl().toString() + QStringLiteral("/models")));
        server.setFault(QStringLiteral("/v1/models"), OpenAITestServer::Fault::redirect, 1);
        const auto away = awaitTask(connection.getJSON(models));
        QVERIFY(away.error && away.error->contains(QStringLiteral("the redirect was not followed")));
        QVERIFY(elsewhere.requests().isEmpty());

        // A server that drips a byte now and then never lets the idle time-out end the request; the
        // deadline does.
        server.setDripInterval(100ms);
        server.setFault(QStringLiteral("/v1/models"), OpenAITestServer::Fault::drip, 1);
        connection.setRequestDeadline(1s);
        const auto dripped = awaitTask(connection.getJSON(models));
        QCOMPARE(dripped.error, QStringLiteral("The request timed out: no complete answer within 1 s."));
        connection.setRequestDeadline(std::nullopt);

        // A body over the cap is ended while it arrives, whether or not a length was announced.
        server.setFault(QStringLiteral("/v1/chat/completions"), OpenAITestServer::Fault::oversized, 1);
        const RequestPolicy::Limits small{30s, 1024 * 1024};
        const auto oversized =
            awaitTask(connection.postJSON(*connection.endpoint(QStringLiteral("/chat/completions")), {}, {}, small));
        QCOMPARE(oversized.error,
                 QStringLiteral("The answer was larger than 1 048 576 bytes and was not read further."));
        // The speech endpoint's own cap is far above a real answer: a good one still arrives.
        QVERIFY(awaitTask(connection.getJSON(models)).value);
    }
};

QTEST_GUILESS_MAIN(TestRequestPolicy)
#include "tst_RequestPolicy.moc"
