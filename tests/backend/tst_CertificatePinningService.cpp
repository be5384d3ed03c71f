#include "LogCapture.h"
#include "backend/AccountSyncService.h"
#include "backend/CertificatePinningDelegate.h"
#include "backend/CertificatePinningError.h"
#include "backend/CertificatePinningService.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

using namespace parlino;
using namespace parlino::test;
using Mode = CertificatePinningService::Mode;
using Kind = CertificatePinningError::Kind;

namespace {

bool openssl(const QString &folder, const QStringList &arguments)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
        qWarning("openssl %s: %s", qPrintable(arguments.join(u' ')), process.readAll().constData());
        return false;
    }
    return true;
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray flipLastByte(QByteArray bytes)
{
    bytes[bytes.size() - 1] = static_cast<char>(bytes.at(bytes.size() - 1) ^ 0x01);
    return bytes;
}

} // namespace

// The pins against a real TLS server on loopback whose chain (an RSA intermediate authority under a
// test root, an elliptic-curve server certificate for 127.0.0.1) is made with openssl at test time.
class TestCertificatePinningService final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QSslCertificate m_root;
    QSslCertificate m_intermediate;
    QSslCertificate m_leaf;
    std::unique_ptr<QSslServer> m_server;

    struct Outcome {
        QNetworkReply::NetworkError error = QNetworkReply::NoError;
        QByteArray body;
    };

    // One request through a fresh manager (no connection is reused) that the delegate checks.
    Outcome fetch(const CertificatePinningService &service, bool trustRoot = true)
    {
        QNetworkAccessManager network;
        CertificatePinningDelegate delegate(service);
        delegate.install(network);
        QNetworkRequest request(QUrl(QStringLiteral("https://127.0.0.1:%1/").arg(m_server->serverPort())));
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        if (trustRoot)
            tls.addCaCertificate(m_root);
        request.setSslConfiguration(tls);
        std::unique_ptr<QNetworkReply> reply(network.get(request));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!finished.wait(20000))
            return {QNetworkReply::UnknownNetworkError, {}};
        return {reply->error(), reply->error() == QNetworkReply::NoError ? reply->readAll() : QByteArray()};
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        const QString dir = m_dir.path();
        writeFile(dir + QStringLiteral("/ca.ext"),
                  "basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign,cRLSign\n");
        writeFile(
            dir + QStringLiteral("/leaf.ext"),
            "basicConstraints=CA:FALSE\nsubjectAltName=IP:127.0.0.1,DNS:localhost\nextendedKeyUsage=serverAuth\n");
        // A root, an RSA intermediate under it and an elliptic-curve server certificate under that.
        const QStringList commands{
            QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out "
                           "ca.pem -days 2 -subj /CN=ParlinoTestRoot -addext basicConstraints=critical,CA:TRUE "
                           "-addext keyUsage=critical,keyCertSign,cRLSign"),
            QStringLiteral(
                "req -newkey rsa:2048 -nodes -keyout int.key -out int.csr -subj /CN=ParlinoTestIntermediate"),
            QStringLiteral("x509 -req -in int.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out int.pem -days 2 "
                           "-extfile ca.ext"),
            QStringLiteral("req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout leaf.key -out "
                           "leaf.csr -subj /CN=127.0.0.1"),
            QStringLiteral("x509 -req -in leaf.csr -CA int.pem -CAkey int.key -CAcreateserial -out leaf.pem -days 2 "
                           "-extfile leaf.ext"),
            QStringLiteral("x509 -in int.pem -pubkey -noout -out int.pub")};
        for (const QString &command : commands)
            QVERIFY(openssl(dir, command.split(u' ')));
        m_root = QSslCertificate(fileBytes(dir + QStringLiteral("/ca.pem")));
        m_intermediate = QSslCertificate(fileBytes(dir + QStringLiteral("/int.pem")));
        m_leaf = QSslCertificate(fileBytes(dir + QStringLiteral("/leaf.pem")));
        const QSslKey leafKey(fileBytes(dir + QStringLiteral("/leaf.key")), QSsl::Ec);
        QVERIFY(!m_root.isNull() && !m_intermediate.isNull() && !m_leaf.isNull() && !leafKey.isNull());

        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setLocalCertificateChain({m_leaf, m_intermediate});
        tls.setPrivateKey(leafKey);
        tls.setPeerVerifyMode(QSslSocket::VerifyNone);
        m_server = std::make_unique<QSslServer>();
        m_server->setSslConfiguration(tls);
        // A minimal HTTP server: every request gets "ok".
        connect(m_server.get(), &QSslServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection()) {
                auto request = std::make_shared<QByteArray>();
                connect(socket, &QTcpSocket::readyRead, socket, [socket, request] {
                    request->append(socket->readAll());
                    if (!request->contains("\r\n\r\n"))
                        return;
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n"
                                  "Connection: close\r\n\r\nok");
                    socket->disconnectFromHost();
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        QVERIFY(m_server->listen(QHostAddress::LocalHost));
    }

    // Certificate mode: the server's own certificate or its authority's is accepted; a pin that differs
    // in one byte refuses the connection before any request is answered.
    void certificatePins()
    {
        LogCapture log;
        Outcome leaf = fetch(CertificatePinningService({m_leaf.toDer()}, {}, Mode::certificate));
        QCOMPARE(leaf.error, QNetworkReply::NoError);
        QCOMPARE(leaf.body, QByteArray("ok"));
        QVERIFY(log.contains(QStringLiteral("✅ Certificate pinning validated for 127.0.0.1")));

        QCOMPARE(fetch(CertificatePinningService({m_intermediate.toDer()}, {}, Mode::certificate)).error,
                 QNetworkReply::NoError);

        log.clear();
        const Outcome altered = fetch(CertificatePinningService(
            {flipLastByte(m_leaf.toDer()), flipLastByte(m_intermediate.toDer())}, {}, Mode::certificate));
        QCOMPARE(altered.error, QNetworkReply::OperationCanceledError);
        QVERIFY(altered.body.isEmpty());
        QVERIFY(log.containsInOrder({QStringLiteral("❌ Certificate mismatch for 127.0.0.1"),
                                     QStringLiteral("❌ Certificate pinning failed for 127.0.0.1: Server certificate "
                                                    "does not match pinned certificate")}));

        // The pins never replace the ordinary verification: a pinned server that the system does
        // not trust is refused.
        QVERIFY(fetch(CertificatePinningService({m_leaf.toDer()}, {}, Mode::certificate), false).error
                != QNetworkReply::NoError);
    }

    // Public-key mode: the intermediate authority's key (RSA) and the server's own key (elliptic
    // curve) are accepted; the root's key is not in the chain the server presents, and a key that
    // differs in one byte matches nothing.
    void publicKeyPins()
    {
        LogCapture log;
        QCOMPARE(fetch(CertificatePinningService({}, {m_intermediate.publicKey().toDer()}, Mode::publicKey)).body,
                 QByteArray("ok"));
        QCOMPARE(fetch(CertificatePinningService({}, {m_leaf.publicKey().toDer()}, Mode::publicKey)).error,
                 QNetworkReply::NoError);
        QVERIFY(!log.contains(QStringLiteral("❌ Public key mismatch for 127.0.0.1")));

        QCOMPARE(fetch(CertificatePinningService({}, {m_root.publicKey().toDer()}, Mode::publicKey)).error,
                 QNetworkReply::OperationCanceledError);
        QCOMPARE(
            fetch(CertificatePinningService({}, {flipLastByte(m_intermediate.publicKey().toDer())}, Mode::publicKey))
                .error,
            QNetworkReply::OperationCanceledError);
        QCOMPARE(log.count(QStringLiteral("❌ Public key mismatch for 127.0.0.1")), 2);
    }

    // Without pins every verified connection is allowed with a warning, once per connection; an empty
    // chain and a failed verification are refused by a pinned service.
    void disabledAndBrokenTrust()
    {
        LogCapture log;
        const CertificatePinningService disabled;
        QVERIFY(disabled.isDisabled());
        QCOMPARE(fetch(disabled).body, QByteArray("ok"));
        QCOMPARE(log.count(QStringLiteral("⚠️ Certificate pinning disabled - allowing connection to 127.0.0.1")),
                 1);

        const CertificatePinningService pinned({m_leaf.toDer()}, {}, Mode::certificate);
        try {
            pinned.validate({}, QStringLiteral("example.org"));
            QFAIL("an empty chain was accepted");
        } catch (const CertificatePinningError &error) {
            QCOMPARE(error.kind(), Kind::noCertificatesProvided);
            QCOMPARE(error.description(), QStringLiteral("No pinned certificates configured"));
        }
        try {
            pinned.validate({{m_leaf}, {QSslError(QSslError::CertificateExpired, m_leaf)}},
                            QStringLiteral("example.org"));
            QFAIL("a failed verification was accepted");
        } catch (const CertificatePinningError &error) {
            QCOMPARE(error.kind(), Kind::invalidServerTrust);
        }
        QVERIFY(log.contains(QStringLiteral("❌ Server trust evaluation failed for example.org")));
    }

    // A refused connection reaches a caller of the web backend as a failure that says why, and no
    // request is answered.
    void refusalReachesTheCaller()
    {
        QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
        const QSslConfiguration original = trusting;
        trusting.addCaCertificate(m_root);
        QSslConfiguration::setDefaultConfiguration(trusting);
        QNetworkAccessManager network;
        CertificatePinningDelegate delegate(
            CertificatePinningService({}, {flipLastByte(m_leaf.publicKey().toDer())}, Mode::publicKey));
        delegate.install(network);
        AccountSyncService accounts(QStringLiteral("https://127.0.0.1:%1").arg(m_server->serverPort()), &network);
        std::optional<AccountSyncService::LinkResult> result;
        auto linking = [&]() -> QCoro::Task<> {
            QCoro::Task<AccountSyncService::LinkResult> task = accounts.link(QStringLiteral("reader@example.com"));
            result = co_await task;
        };
        auto running = linking();
        QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 20000);
        QSslConfiguration::setDefaultConfiguration(original);
        QCOMPARE(result->message, QStringLiteral("Account sync failed: The server's certificate does not match the "
                                                 "pinned certificates."));
    }

    // The pins file: certificates and keys named relative to it, each as PEM or DER; a missing file
    // and unreadable data are told apart.
    void pinsFile()
    {
        const QString dir = m_dir.path();
        writeFile(dir + QStringLiteral("/leaf.der"), m_leaf.toDer());
        writeFile(dir + QStringLiteral("/pins.json"),
                  R"({"mode": "certificate", "certificates": ["leaf.der"], "publicKeys": ["int.pub", "leaf.pem"]})");
        const CertificatePinningService loaded =
            CertificatePinningService::fromFile(dir + QStringLiteral("/pins.json"));
        QCOMPARE(loaded.pinningMode(), Mode::certificate);
        QCOMPARE(loaded.pinnedCertificates(), QList<QByteArray>{m_leaf.toDer()});
        QCOMPARE(loaded.pinnedPublicKeys(),
                 (QList<QByteArray>{m_intermediate.publicKey().toDer(), m_leaf.publicKey().toDer()}));
        QCOMPARE(fetch(loaded).body, QByteArray("ok"));

        const auto failure = [&](const QByteArray &pins) -> std::optional<Kind> {
            writeFile(dir + QStringLiteral("/bad.json"), pins);
            try {
                (void)CertificatePinningService::fromFile(dir + QStringLiteral("/bad.json"));
            } catch (const CertificatePinningError &error) {
                return error.kind();
            }
            return std::nullopt;
        };
        QCOMPARE(failure(R"({"publicKeys": ["missing.pem"]})"), Kind::pinnedCertificateNotFound);
        QCOMPARE(failure(R"({"certificates": ["int.pub"]})"), Kind::invalidCertificateData);
        QCOMPARE(failure(R"({"mode": "hash", "certificates": ["leaf.der"]})"), Kind::invalidCertificateData);
        QCOMPARE(failure("not json"), Kind::invalidCertificateData);
        QCOMPARE(failure(R"({"publicKeys": ["ca.ext"]})"), Kind::invalidCertificateData);
    }
};

QTEST_GUILESS_MAIN(TestCertificatePinningService)
#include "tst_CertificatePinningService.moc"
