#include "OpenAITestServer.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "cli/OpenAICommands.h"
#include "core/Defaults.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QTcpServer>
#include <QTest>

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

using namespace parlino;
using namespace parlino::test;

namespace {

struct CommandRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs a command in-process with standard input, output and error redirected to files.
CommandRun runCommand(const std::function<int()> &command, const QByteArray &input = {})
{
    const QString base = QDir::tempPath() + QStringLiteral("/parlino-command-") + QString::number(::getpid());
    QFile inputFile(base + QStringLiteral(".in"));
    if (inputFile.open(QIODevice::WriteOnly))
        inputFile.write(input);
    inputFile.close();

    std::fflush(stdout);
    std::fflush(stderr);
    const int savedIn = ::dup(STDIN_FILENO);
    const int savedOut = ::dup(STDOUT_FILENO);
    const int savedErr = ::dup(STDERR_FILENO);
    const auto redirect = [](const QString &path, int fd, int flags) {
        const int file = ::open(QFile::encodeName(path).constData(), flags, 0600);
        ::dup2(file, fd);
        ::close(file);
    };
    redirect(base + QStringLiteral(".in"), STDIN_FILENO, O_RDONLY);
    redirect(base + QStringLiteral(".out"), STDOUT_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
    redirect(base + QStringLiteral(".err"), STDERR_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
    std::clearerr(stdin);

    // QtTest prints log lines on standard output; the app's own handler uses standard error. Keep
    // them out of what the command prints.
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    CommandRun run;
    run.exitCode = command();
    qInstallMessageHandler(previous);

    std::fflush(stdout);
    std::fflush(stderr);
    ::dup2(savedIn, STDIN_FILENO);
    ::dup2(savedOut, STDOUT_FILENO);
    ::dup2(savedErr, STDERR_FILENO);
    for (int fd : {savedIn, savedOut, savedErr})
        ::close(fd);
    std::clearerr(stdin);

    const auto contents = [](const QString &path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    run.out = contents(base + QStringLiteral(".out"));
    run.err = contents(base + QStringLiteral(".err"));
    return run;
}

} // namespace

class TestOpenAICommands final : public QObject {
    Q_OBJECT

public:
    TestOpenAICommands()
    {
        // The commands get the client the app builds: key and server from the environment, the
        // cache in the data folder.
        qputenv("OPENAI_BASE_URL", m_server.baseUrlString().toUtf8());
        qputenv("OPENAI_API_KEY", "command-key");
        QDir().mkpath(workFolder());
        QDir::setCurrent(workFolder());
        m_connection = std::make_unique<OpenAIConnection>(qEnvironmentVariable("OPENAI_API_KEY"),
                                                          OpenAIConnection::defaultBaseURL());
        m_cache = std::make_unique<TTSCacheService>();
        m_models = std::make_unique<ModelSettings>(m_defaults);
        m_speech = std::make_unique<SpeechSynthesizer>(*m_cache, *m_models);
        m_speech->addProvider(std::make_unique<SpeechEndpointProvider>(*m_connection, *m_models));
        m_offline = &static_cast<OfflineSpeechProvider &>(
            m_speech->addProvider(std::make_unique<OfflineSpeechProvider>(m_defaults)));
        m_client = std::make_unique<OpenAIClient>(*m_connection, *m_speech, *m_models);
    }

private:
    TestEnvironment m_env;
    OpenAITestServer m_server;
    std::unique_ptr<OpenAIConnection> m_connection;
    std::unique_ptr<TTSCacheService> m_cache;
    Defaults m_defaults{m_env.defaultsFile()};
    std::unique_ptr<ModelSettings> m_models;
    std::unique_ptr<SpeechSynthesizer> m_speech;
    OfflineSpeechProvider *m_offline = nullptr;
    std::unique_ptr<OpenAIClient> m_client;

    QString workFolder() const { return m_env.root() + QStringLiteral("/work"); }

private Q_SLOTS:
    void init()
    {
        m_server.clearRequests();
        m_server.clearFailures();
    }

    void synthesizeWritesARealMp3()
    {
        const QString output = workFolder() + QStringLiteral("/hello.mp3");
        const auto run = runCommand([&] {
            return runSynthesizeCommand(*m_speech, *m_offline,
                                        {QStringLiteral("--voice"), QStringLiteral("echo"), QStringLiteral("--speed"),
                                         QStringLiteral("1.5"), QStringLiteral("--output"), output,
                                         QStringLiteral("Hello from the command line.")});
        });
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, output + u'\n');
        QVERIFY(decodedSeconds(output) > 0.5);
        const auto requests = m_server.requests(QStringLiteral("/audio/speech"));
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].header("Authorization"), QByteArray("Bearer command-key"));
        QCOMPARE(requests[0].json.value(u"voice").toString(), QStringLiteral("echo"));
        QCOMPARE(requests[0].json.value(u"speed").toDouble(), 1.5);

        // Again: answered from the shared cache, copied out, the cache's file left in place.
        const auto again = runCommand([&] {
            return runSynthesizeCommand(*m_speech, *m_offline,
                                        {QStringLiteral("--voice"), QStringLiteral("echo"), QStringLiteral("--speed"),
                                         QStringLiteral("1.5"), QStringLiteral("--output"), output,
                                         QStringLiteral("Hello from the command line.")});
        });
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(m_server.requests().size(), 1);
        QVERIFY(decodedSeconds(output) > 0.5);
        QCOMPARE(QDir(TTSCacheService::defaultDirectory()).entryList({QStringLiteral("*.m4a")}).size(), 1);
    }

    void synthesizeReadsStandardInputIntoANewFile()
    {
        const auto run =
            runCommand([this] { return runSynthesizeCommand(*m_speech, *m_offline, {QStringLiteral("-")}); },
                       "Text from standard input.\n");
        QCOMPARE(run.exitCode, 0);
        const QString written = run.out.trimmed();
        QCOMPARE(QFileInfo(written).absolutePath(), workFolder());
        QVERIFY(QFileInfo(written).fileName().endsWith(QStringLiteral(".mp3")));
        QVERIFY(decodedSeconds(written) > 0.5);
        QCOMPARE(m_server.requests().at(0).json.value(u"input").toString(),
                 QStringLiteral("Text from standard input.\n"));
    }

    void synthesizeSpeaksOfflineWithNoKeyAndNoNetwork()
    {
        // As the app builds it with no key, its OpenAI address refusing every connection.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        OpenAIConnection unreachable(std::nullopt, QStringLiteral("http://127.0.0.1:%1/v1").arg(closed.serverPort()));
        closed.close();
        SpeechSynthesizer speech(*m_cache, *m_models, [] { return false; });
        speech.addProvider(std::make_unique<SpeechEndpointProvider>(unreachable, *m_models));
        auto &offline = static_cast<OfflineSpeechProvider &>(
            speech.addProvider(std::make_unique<OfflineSpeechProvider>(m_defaults)));

        const QString german = workFolder() + QStringLiteral("/hallo.mp3");
        const auto run = runCommand([&] {
            return runSynthesizeCommand(speech, offline,
                                        {QStringLiteral("--provider"), QStringLiteral("offline"),
                                         QStringLiteral("--voice"), QStringLiteral("de"), QStringLiteral("--output"),
                                         german, QStringLiteral("Hallo, hier spricht die Stimme ohne Netz.")});
        });
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, german + u'\n');
        QVERIFY(decodedSeconds(german) > 1.5);
        QCOMPARE(offline.voiceName(), QStringLiteral("de"));

        const auto unknown = runCommand([&] {
            return runSynthesizeCommand(
                speech, offline, {QStringLiteral("--voice"), QStringLiteral("klingon"), QStringLiteral("Hello")});
        });
        QCOMPARE(unknown.exitCode, 2);
        QVERIFY2(
            unknown.err.startsWith(QStringLiteral("parlino synthesize: the offline voice has no voice \"klingon\"")),
            qPrintable(unknown.err));
    }

    void serviceErrorsPrintTheDescriptionAndExitOne()
    {
        m_server.setSpeechFailure(OpenAITestServer::Failure::error(401, "{\"error\":\"Incorrect API key\"}"));
        const QString output = workFolder() + QStringLiteral("/never.mp3");
        const auto run = runCommand([&] {
            return runSynthesizeCommand(*m_speech, *m_offline,
                                        {QStringLiteral("--output"), output, QStringLiteral("Refused text.")});
        });
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.err, QStringLiteral("API Error (401): {\"error\":\"Incorrect API key\"}\n"));
        QVERIFY(run.out.isEmpty());
        QVERIFY(!QFile::exists(output));

        m_server.setChatFailure(OpenAITestServer::Failure::error(503, "busy"));
        const auto summary =
            runCommand([this] { return runSummarizeCommand(*m_client, {QStringLiteral("Some text.")}); });
        QCOMPARE(summary.exitCode, 1);
        QCOMPARE(summary.err, QStringLiteral("API Error (503): busy\n"));
    }

    // A text over the limit is refused before anything is asked of OpenAI, and the limit is the caller's.
    void tooLongTextsAreRefusedWithoutARequest()
    {
        m_server.clearRequests();
        const QString text(60, u'a');
        const auto refused = runCommand([&] { return runSynthesizeCommand(*m_speech, *m_offline, {text}, 50); });
        QCOMPARE(refused.exitCode, 2);
        QVERIFY2(
            refused.err.contains(QStringLiteral("This text is too long to read: 60 characters, and the limit is 50.")),
            qPrintable(refused.err));
        const auto summary = runCommand([&] { return runSummarizeCommand(*m_client, {text}, 50); });
        QCOMPARE(summary.exitCode, 2);
        QVERIFY(m_server.requests().isEmpty());

        const auto allowed = runCommand([&] { return runSummarizeCommand(*m_client, {text}, 60); });
        QCOMPARE(allowed.exitCode, 0);
    }

    void summarizePrintsTheSummary()
    {
        m_server.setChatContent(QStringLiteral("In short: it works."));
        const auto run = runCommand([this] {
            return runSummarizeCommand(*m_client,
                                       {QStringLiteral("--length"), QStringLiteral("long"), QStringLiteral("A"),
                                        QStringLiteral("long"), QStringLiteral("text.")});
        });
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QStringLiteral("In short: it works.\n"));
        const auto requests = m_server.requests(QStringLiteral("/chat/completions"));
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].json.value(u"max_tokens").toInt(), 600);
        QVERIFY(requests[0]
                    .json.value(u"messages")
                    .toArray()
                    .at(1)
                    .toObject()
                    .value(u"content")
                    .toString()
                    .endsWith(QStringLiteral("\n\nA long text.")));
    }

    void badUsageExitsTwo_data()
    {
        QTest::addColumn<bool>("synthesize");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("problem");
        QTest::newRow("unknown voice") << true
                                       << QStringList{QStringLiteral("--voice"), QStringLiteral("bob"),
                                                      QStringLiteral("Hi")}
                                       << QStringLiteral("unknown voice \"bob\"");
        QTest::newRow("OpenAI reads, offline voice")
            << true << QStringList{QStringLiteral("--voice"), QStringLiteral("de"), QStringLiteral("Hi")}
            << QStringLiteral("unknown voice \"de\"");
        QTest::newRow("unknown provider")
            << true << QStringList{QStringLiteral("--provider"), QStringLiteral("espeak"), QStringLiteral("Hi")}
            << QStringLiteral("unknown provider \"espeak\"");
        QTest::newRow("speed text") << true
                                    << QStringList{QStringLiteral("--speed"), QStringLiteral("fast"),
                                                   QStringLiteral("Hi")}
                                    << QStringLiteral("the speed must be a number from 0.25 to 4.0");
        QTest::newRow("speed range") << true
                                     << QStringList{QStringLiteral("--speed"), QStringLiteral("9"),
                                                    QStringLiteral("Hi")}
                                     << QStringLiteral("the speed must be a number from 0.25 to 4.0");
        QTest::newRow("unknown option") << true << QStringList{QStringLiteral("--loud"), QStringLiteral("Hi")}
                                        << QStringLiteral("Unknown option 'loud'.");
        QTest::newRow("no text") << true << QStringList{QStringLiteral("-")} << QStringLiteral("no text to read");
        QTest::newRow("unknown length") << false
                                        << QStringList{QStringLiteral("--length"), QStringLiteral("tiny"),
                                                       QStringLiteral("Hi")}
                                        << QStringLiteral("unknown length \"tiny\"");
        QTest::newRow("blank text") << false << QStringList{QStringLiteral("  ")}
                                    << QStringLiteral("no text to summarize");
    }

    void badUsageExitsTwo()
    {
        QFETCH(bool, synthesize);
        QFETCH(QStringList, arguments);
        QFETCH(QString, problem);
        const auto run = runCommand([&] {
            return synthesize ? runSynthesizeCommand(*m_speech, *m_offline, arguments)
                              : runSummarizeCommand(*m_client, arguments);
        });
        QCOMPARE(run.exitCode, 2);
        QString expected = synthesize ? QStringLiteral("parlino synthesize: ") : QStringLiteral("parlino summarize: ");
        expected.append(problem).append(u'\n');
        QVERIFY2(run.err.startsWith(expected), qPrintable(run.err));
        QVERIFY(run.err.contains(QStringLiteral("Usage: parlino ")));
        QVERIFY(m_server.requests().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestOpenAICommands)
#include "tst_OpenAICommands.moc"
