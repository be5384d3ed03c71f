#include "LogCapture.h"
#include "TestEnvironment.h"
#include "backend/APIKeyFile.h"
#include "backend/KeychainService.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"

#include <QFileInfo>
#include <QProcess>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

// The key comes from the environment, else the keyring, else the defaults; runs in the desktop rig,
// whose keyring is real and private to the run.
class TestOpenAIConnection final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    Defaults m_defaults{m_env.defaultsFile()};
    // A service name of this test's own, so the rig's other tests never see these items.
    KeychainService m_keychain{QStringLiteral("com.parlino.app.keylookup-test")};

    bool storeInKeyring(const QString &secret)
    {
        QProcess tool;
        tool.start(QStringLiteral("secret-tool"),
                   {QStringLiteral("store"), QStringLiteral("--label=Parlino test key"), QStringLiteral("user"),
                    QStringLiteral("openai_api_key"), QStringLiteral("server"), m_keychain.service(),
                    QStringLiteral("type"), QStringLiteral("plaintext")});
        tool.write(secret.toUtf8());
        tool.closeWriteChannel();
        return tool.waitForFinished(30000) && tool.exitCode() == 0;
    }

    void clearKeyring()
    {
        QProcess::execute(QStringLiteral("secret-tool"),
                          {QStringLiteral("clear"), QStringLiteral("user"), QStringLiteral("openai_api_key"),
                           QStringLiteral("server"), m_keychain.service()});
    }

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("OPENAI_API_KEY");
        clearKeyring();
        m_defaults.remove(QStringLiteral("openai_api_key"));
    }

    void sourcesAreTriedInOrder()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs the desktop rig's session bus and keyring");
        const APIKeyFile keyFile(m_env.configHome() + QStringLiteral("/Parlino/openai-api-key"));
        LogCapture log;
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), std::nullopt);
        QVERIFY(log.contains(QStringLiteral("⚠️ No OpenAI API key found - please configure in settings")));

        m_defaults.set(QStringLiteral("openai_api_key"), QString());
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), std::nullopt); // empty counts as none
        m_defaults.set(QStringLiteral("openai_api_key"), QStringLiteral("from-defaults"));
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), QStringLiteral("from-defaults"));
        QVERIFY(log.contains(QStringLiteral("✅ Loaded OpenAI API key from UserDefaults")));

        // The key entered in the app: kept for this user alone, found before the defaults.
        keyFile.write(QStringLiteral("  from-file\n"));
        constexpr int groupAndOthers = 0x0077;
        QCOMPARE(QFile::permissions(keyFile.path()).toInt() & groupAndOthers, 0);
        QCOMPARE(QFile::permissions(QFileInfo(keyFile.path()).absolutePath()).toInt() & groupAndOthers, 0);
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), QStringLiteral("from-file"));

        QVERIFY(storeInKeyring(QStringLiteral("from-keyring")));
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), QStringLiteral("from-keyring"));
        QVERIFY(log.contains(QStringLiteral("✅ Loaded OpenAI API key from Keychain")));

        qputenv("OPENAI_API_KEY", "");
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), QStringLiteral("from-keyring"));
        qputenv("OPENAI_API_KEY", "from-environment\n"); // as pasted, with its line break
        QCOMPARE(OpenAIConnection::lookUpAPIKey(m_keychain, keyFile, m_defaults), QStringLiteral("from-environment"));
        QVERIFY(log.contains(QStringLiteral("✅ Loaded OpenAI API key from environment variable")));
    }

    void baseUrlFollowsTheEnvironment()
    {
        qunsetenv("OPENAI_BASE_URL");
        QCOMPARE(OpenAIConnection::defaultBaseURL(), QStringLiteral("https://api.openai.com/v1"));
        qputenv("OPENAI_BASE_URL", "http://127.0.0.1:9/v1/");
        QCOMPARE(OpenAIConnection::defaultBaseURL(), QStringLiteral("http://127.0.0.1:9/v1"));
        qunsetenv("OPENAI_BASE_URL");

        // The Realtime API lives at the same address over WebSockets, unless told otherwise.
        const OpenAIConnection official(QStringLiteral("k"), QStringLiteral("https://api.openai.com/v1"));
        QCOMPARE(official.webSocketEndpoint(QStringLiteral("/realtime")),
                 QUrl(QStringLiteral("wss://api.openai.com/v1/realtime")));
        const OpenAIConnection local(QStringLiteral("k"), QStringLiteral("http://127.0.0.1:9/v1"));
        QCOMPARE(local.webSocketEndpoint(QStringLiteral("/realtime")),
                 QUrl(QStringLiteral("ws://127.0.0.1:9/v1/realtime")));
        qputenv("OPENAI_WEBSOCKET_BASE_URL", "ws://127.0.0.1:10/v1/");
        const OpenAIConnection overridden(QStringLiteral("k"), QStringLiteral("http://127.0.0.1:9/v1"));
        QCOMPARE(overridden.webSocketEndpoint(QStringLiteral("/realtime")),
                 QUrl(QStringLiteral("ws://127.0.0.1:10/v1/realtime")));
        qunsetenv("OPENAI_WEBSOCKET_BASE_URL");
        QCOMPARE(
            OpenAIConnection(QStringLiteral("k"), QStringLiteral("ftp://x/v1")).webSocketEndpoint(QStringLiteral("/r")),
            std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TestOpenAIConnection)
#include "tst_OpenAIConnection.moc"
