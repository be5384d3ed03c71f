#include "backend/KeychainService.h"

#include <QProcess>
#include <QTest>
#include <QUuid>

using namespace parlino;

namespace {

// Stores an item the way a user would, with secret-tool, in the session's real keyring.
bool storeSecret(const QString &service, const QString &account, const QByteArray &secret)
{
    QProcess tool;
    tool.start(QStringLiteral("secret-tool"),
               {QStringLiteral("store"), QStringLiteral("--label=Parlino test"), QStringLiteral("user"), account,
                QStringLiteral("server"), service, QStringLiteral("type"), QStringLiteral("plaintext")});
    if (!tool.waitForStarted())
        return false;
    tool.write(secret);
    tool.closeWriteChannel();
    return tool.waitForFinished(10000) && tool.exitCode() == 0;
}

} // namespace

class TestKeychainService final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsTheUsersItem()
    {
        // A service of its own per run, so nothing left in a keyring can answer for this test.
        const QString service = QStringLiteral("com.parlino.test.") + QUuid::createUuid().toString(QUuid::Id128);
        KeychainService keychain(service);
        QCOMPARE(keychain.get(QStringLiteral("openai_api_key")), std::nullopt);

        QVERIFY(storeSecret(service, QStringLiteral("openai_api_key"), "sk-test-ünïcode"));
        QCOMPARE(keychain.get(QStringLiteral("openai_api_key")),
                 std::optional<QString>(QStringLiteral("sk-test-ünïcode")));

        // Another service is asked only when named.
        QCOMPARE(KeychainService(QStringLiteral("com.parlino.elsewhere")).get(QStringLiteral("openai_api_key")),
                 std::nullopt);
        QCOMPARE(
            KeychainService(QStringLiteral("com.parlino.elsewhere")).get(QStringLiteral("openai_api_key"), service),
            std::optional<QString>(QStringLiteral("sk-test-ünïcode")));
    }

    void bytesThatAreNotTextReadAsAbsent()
    {
        const QString service = QStringLiteral("com.parlino.test.") + QUuid::createUuid().toString(QUuid::Id128);
        QVERIFY(storeSecret(service, QStringLiteral("binary"), QByteArray("\xff\xfe\xfd", 3)));
        QCOMPARE(KeychainService(service).get(QStringLiteral("binary")), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TestKeychainService)
#include "tst_KeychainService.moc"
