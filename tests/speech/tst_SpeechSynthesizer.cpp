#include "AwaitTask.h"
#include "LogCapture.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "backend/RequestPolicy.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/RealtimeSpeechProvider.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechStream.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

#include <memory>
#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

// Distinct sentences, so every chunk of a long text is a different request.
QString sentences(int count)
{
    QString text;
    for (int i = 1; i <= count; ++i)
        text += QStringLiteral("Sentence number %1 tells another part of the story! ").arg(i);
    return text;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct Probe {
    double duration = 0;
    int packets = 0;
    QByteArray errors;
};

// What ffprobe makes of an MP3 when it reads every packet of it.
Probe probe(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-count_packets"),
                   QStringLiteral("-show_entries"), QStringLiteral("format=duration:stream=nb_read_packets"),
                   QStringLiteral("-of"), QStringLiteral("default=noprint_wrappers=1:nokey=0"), path});
    ffprobe.waitForFinished(60000);
    Probe result;
    result.errors = ffprobe.readAllStandardError();
    for (const QByteArray &line : ffprobe.readAllStandardOutput().split('\n')) {
        if (line.startsWith("duration="))
            result.duration = line.mid(9).toDouble();
        else if (line.startsWith("nb_read_packets="))
            result.packets = line.mid(16).toInt();
    }
    return result;
}

} // namespace

class TestSpeechSynthesizer final : public QObject {
    Q_OBJECT

public:
    TestSpeechSynthesizer()
    {
        // Generated files go to the private temporary folder below the runtime folder, so the test can
        // see what is left behind.
        qputenv("XDG_RUNTIME_DIR", (m_env.root() + QStringLiteral("/runtime")).toUtf8());
        QDir().mkpath(tempFolder());
    }

private:
    TestEnvironment m_env;
    std::optional<parlino::test::QuietLog> m_quiet;
    Defaults m_defaults{m_env.defaultsFile()};
    OpenAITestServer m_server;
    std::unique_ptr<TTSCacheService> m_cache;
    std::unique_ptr<OpenAIConnection> m_connection;
    ModelSettings m_models{m_defaults};
    std::unique_ptr<SpeechSynthesizer> m_client;

    QString tempFolder() const { return m_env.root() + QStringLiteral("/runtime/parlino"); }
    QString cacheFolder() const { return m_env.dataHome() + QStringLiteral("/TTSCache"); }
    QStringList temporaryMp3s() const { return QDir(tempFolder()).entryList({QStringLiteral("*.mp3")}, QDir::Files); }

    TaskOutcome<QString> speak(const QString &text, TTSVoice voice = TTSVoice::alloy, double speed = 1.0)
    {
        return awaitTask(m_client->generateSpeech(text, voice, speed));
    }

    QStringList speechInputs() const
    {
        QStringList inputs;
        for (const auto &request : m_server.requests(QStringLiteral("/audio/speech")))
            inputs << request.json.value(u"input").toString();
        return inputs;
    }

    // The speech side as the app builds it: the speech endpoint first, then the Realtime API.
    std::unique_ptr<SpeechSynthesizer> makeSynthesizer(OpenAIConnection &connection)
    {
        auto synthesizer = std::make_unique<SpeechSynthesizer>(*m_cache, m_models);
        synthesizer->addProvider(std::make_unique<SpeechEndpointProvider>(connection, m_models));
        synthesizer->addProvider(std::make_unique<RealtimeSpeechProvider>(connection, m_models));
        return synthesizer;
    }

    int cachedEntries() { return static_cast<int>(awaitTask(m_cache->entries()).value->size()); }

private Q_SLOTS:
    void cleanup() { m_quiet.reset(); }

    void init()
    {
        m_quiet.emplace();
        m_client.reset();
        m_cache.reset();
        QDir(cacheFolder()).removeRecursively();
        QDir(tempFolder()).removeRecursively();
        QDir().mkpath(tempFolder());
        m_server.clearRequests();
        m_server.clearFailures();
        m_server.setDelay(0ms);
        m_server.setSpeechPace(0);
        m_cache = std::make_unique<TTSCacheService>(cacheFolder());
        m_connection = std::make_unique<OpenAIConnection>(QStringLiteral("test-key"), m_server.baseUrlString());
        m_client = makeSynthesizer(*m_connection);
    }

    void textAtTheLimitIsOneUntrimmedRequest()
    {
        QString text = QStringLiteral("  Hello there, this is the start. ") + sentences(100);
        text = text.left(maxChunkSize - 2) + QStringLiteral("\n ");
        QCOMPARE(characterCount(text), maxChunkSize);

        const auto outcome = speak(text, TTSVoice::nova, 1.25);
        QVERIFY2(outcome.value, qPrintable(outcome.error.value_or(QString())));

        const auto requests = m_server.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("POST"));
        QCOMPARE(requests[0].path, QStringLiteral("/v1/audio/speech"));
        QCOMPARE(requests[0].header("Authorization"), QByteArray("Bearer test-key"));
        QCOMPARE(requests[0].header("Content-Type"), QByteArray("application/json"));
        const QJsonObject expectedBody{{QStringLiteral("model"), QStringLiteral("tts-1")},
                                       {QStringLiteral("input"), text},
                                       {QStringLiteral("voice"), QStringLiteral("nova")},
                                       {QStringLiteral("speed"), 1.25}};
        QCOMPARE(requests[0].json, expectedBody);

        // A fresh file for the caller, holding the service's bytes; a copy went into the cache.
        const QString file = *outcome.value;
        QVERIFY(file.startsWith(tempFolder()));
        QVERIFY(file.endsWith(QStringLiteral(".mp3")));
        QCOMPARE(readAll(file), m_server.speechFor(text));
        QCOMPARE(cachedEntries(), 1);
    }

    void longerTextIsSplitAndRequestedInOrder()
    {
        QString text = sentences(100);
        text = text.left(maxChunkSize + 1);
        QCOMPARE(characterCount(text), maxChunkSize + 1);
        const QStringList chunks = splitTextIntoChunks(text);
        QCOMPARE(chunks.size(), 2);

        LogCapture log;
        QSignalSpy progress(m_client.get(), &SpeechSynthesizer::progressChanged);
        const auto outcome = speak(text);
        QVERIFY2(outcome.value, qPrintable(outcome.error.value_or(QString())));

        QCOMPARE(speechInputs(), chunks);
        QCOMPARE(progress.last().at(1).toString(), QStringLiteral("Generating audio (2/2 chunks)..."));
        QCOMPARE(progress.last().at(0).toDouble(), 0.7);
        QCOMPARE(progress.size(), 2);
        QVERIFY(log.containsInOrder({QStringLiteral("⚠️ Text exceeds 4000 characters, splitting into chunks..."),
                                     QStringLiteral("📝 Splitting text into 2"),
                                     QStringLiteral("🎙️ Generating audio for chunk 1/2"),
                                     QStringLiteral("💾 Cache MISS for chunk 1"), QStringLiteral("💾 Cached chunk 1"),
                                     QStringLiteral("🎙️ Generating audio for chunk 2/2"),
                                     QStringLiteral("✅ Combined 2 audio chunks into single file")}));
        // The chunk files were merged and removed; only the caller's file is left.
        QCOMPARE(temporaryMp3s(), QStringList{QFileInfo(*outcome.value).fileName()});
        QCOMPARE(readAll(*outcome.value), m_server.speechFor(chunks[0]) + m_server.speechFor(chunks[1]));
    }

    void repeatedTextIsAnsweredFromTheCache()
    {
        const QString text = QStringLiteral("Read me twice.");
        QVERIFY(speak(text).value);
        m_server.clearRequests();

        LogCapture log;
        const auto again = speak(text);
        QVERIFY(again.value);
        QVERIFY(m_server.requests().isEmpty());
        QVERIFY(log.contains(QStringLiteral("💾 Cache HIT for single chunk - returning cached audio")));
        // The cache's own file: the caller plays it and must not delete it.
        QVERIFY(again.value->startsWith(cacheFolder()));
        QCOMPARE(readAll(*again.value), m_server.speechFor(text));

        // Another voice or speed is another text for the cache.
        QVERIFY(speak(text, TTSVoice::echo).value);
        QVERIFY(speak(text, TTSVoice::alloy, 1.5).value);
        QCOMPARE(m_server.requests().size(), 2);
    }

    void failedMiddleChunkKeepsEarlierChunksForTheRetry()
    {
        const QString text = sentences(200);
        const QStringList chunks = splitTextIntoChunks(text);
        QCOMPARE(chunks.size(), 3);

        m_server.setSpeechFailure(OpenAITestServer::Failure::error(500, "{\"error\":\"boom\"}"), 1);
        LogCapture log;
        const auto failed = speak(text);
        QCOMPARE(failed.error, QStringLiteral("API Error (500): {\"error\":\"boom\"}"));
        QVERIFY(log.contains(QStringLiteral("❌ TTS generation failed: API Error (500): {\"error\":\"boom\"}")));
        QCOMPARE(speechInputs(), chunks.mid(0, 2)); // nothing after the failure was asked for
        QCOMPARE(cachedEntries(), 1);

        m_server.clearFailures();
        m_server.clearRequests();
        const auto retried = speak(text);
        QVERIFY(retried.value);
        QCOMPARE(speechInputs(), chunks.mid(1));
        QVERIFY(log.contains(QStringLiteral("💾 Cache HIT for chunk 1")));
        QCOMPARE(cachedEntries(), 3);
        // Cached chunk files survive the merge.
        const QList<TTSCacheEntry> entries = *awaitTask(m_cache->entries()).value;
        for (const auto &entry : entries)
            QVERIFY(QFile::exists(entry.audioFilePath));
    }

    void unsuccessfulAnswersCarryTheServiceMessage_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("description");
        const QByteArray unauthorized = "{\"error\":{\"message\":\"Incorrect API key provided\"}}";
        QTest::newRow("401 JSON") << 401 << unauthorized
                                  << QStringLiteral("API Error (401): ") + QString::fromUtf8(unauthorized);
        QTest::newRow("429") << 429 << QByteArray("Rate limit reached")
                             << QStringLiteral("API Error (429): Rate limit reached");
        QTest::newRow("empty body") << 500 << QByteArray() << QStringLiteral("API Error (500): ");
        QTest::newRow("not UTF-8") << 502 << QByteArray("\xff\xfe\xfa oops")
                                   << QStringLiteral("API Error (502): Unknown error");
        QTest::newRow("UTF-8 text") << 400 << QByteArray("Zu lang – bitte kürzen")
                                    << QStringLiteral("API Error (400): Zu lang – bitte kürzen");
    }

    void unsuccessfulAnswersCarryTheServiceMessage()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, description);
        m_server.setSpeechFailure(OpenAITestServer::Failure::error(status, body));
        const auto outcome = speak(QStringLiteral("Anything."));
        QCOMPARE(outcome.error, description);
        QCOMPARE(cachedEntries(), 0);
        QVERIFY(temporaryMp3s().isEmpty());
    }

    void unreachableOrSlowServiceFails()
    {
        m_server.setSpeechFailure(OpenAITestServer::Failure::dropped());
        const auto dropped = speak(QStringLiteral("Dropped."));
        QVERIFY(dropped.error && !dropped.error->isEmpty());
        QVERIFY(!dropped.error->startsWith(QStringLiteral("API Error")));

        m_server.clearFailures();
        m_server.setDelay(5s);
        m_connection->setRequestTimeout(300ms);
        const auto slow = speak(QStringLiteral("Slow."));
        QCOMPARE(slow.error, QStringLiteral("The request timed out."));
        QCOMPARE(cachedEntries(), 0);
    }

    void offlineVoiceReadsWithoutKeyOrWithoutServer()
    {
        m_defaults.set(SettingsKeys::offlineVoice, QStringLiteral("en-us"));
        m_models.setSpeechProvider(ModelSettings::openAIRealtimeProvider);
        bool hasKey = false;
        const auto build = [&](OpenAIConnection &connection) {
            auto synthesizer = std::make_unique<SpeechSynthesizer>(*m_cache, m_models, [&hasKey] { return hasKey; });
            synthesizer->addProvider(std::make_unique<SpeechEndpointProvider>(connection, m_models));
            synthesizer->addProvider(std::make_unique<RealtimeSpeechProvider>(connection, m_models));
            synthesizer->addProvider(std::make_unique<OfflineSpeechProvider>(m_defaults));
            return synthesizer;
        };
        using Reason = SpeechSynthesizer::OfflineReason;

        // No key: the offline voice reads, whatever provider the settings name, and says why.
        auto keyless = build(*m_connection);
        QSignalSpy keylessOffline(keyless.get(), &SpeechSynthesizer::readingOffline);
        QVERIFY(awaitTask(keyless->generateSpeech(QStringLiteral("Read without a key."), TTSVoice::alloy, 1.0)).value);
        QVERIFY(m_server.requests().isEmpty());
        QCOMPARE(keylessOffline.size(), 1);
        QCOMPARE(keylessOffline.at(0).at(0).value<Reason>(), Reason::noAPIKey);
        // With a key the chosen provider reads again; choosing the offline voice is no news to tell.
        hasKey = true;
        m_models.setSpeechProvider(ModelSettings::openAISpeechProvider);
        QVERIFY(awaitTask(keyless->generateSpeech(QStringLiteral("Read with a key."), TTSVoice::alloy, 1.0)).value);
        QCOMPARE(speechInputs(), QStringList{QStringLiteral("Read with a key.")});
        m_models.setSpeechProvider(ModelSettings::offlineProvider);
        QCOMPARE(keyless->cacheVoice(TTSVoice::alloy), QStringLiteral("espeak:en-us"));
        QVERIFY(awaitTask(keyless->generateSpeech(QStringLiteral("Chosen."), TTSVoice::alloy, 1.0)).value);
        QCOMPARE(keylessOffline.size(), 1);
        m_models.setSpeechProvider(ModelSettings::openAISpeechProvider);

        // A key but nothing listening at the address: the reading goes on offline from the first chunk,
        // the later chunk asks no server, and both are cached under the offline voice.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const QString refusing = QStringLiteral("http://127.0.0.1:%1/v1").arg(closed.serverPort());
        closed.close();
        OpenAIConnection unreachable(QStringLiteral("test-key"), refusing);
        auto cut = build(unreachable);
        QSignalSpy cutOffline(cut.get(), &SpeechSynthesizer::readingOffline);
        const QString text = sentences(100).left(maxChunkSize + 40);
        LogCapture log;
        auto stream = std::make_shared<SpeechStream>();
        QVERIFY(awaitTask(cut->streamSpeech(text, TTSVoice::nova, 1.0, stream)).error == std::nullopt);
        QVERIFY(stream->arrivedSeconds() > 60);
        QCOMPARE(cutOffline.size(), 1);
        QCOMPARE(cutOffline.at(0).at(0).value<Reason>(), Reason::noConnection);
        QCOMPARE(log.lines().filter(QStringLiteral("📡 No connection to OpenAI")).size(), 1);
        for (const QString &chunk : splitTextIntoChunks(text)) {
            QVERIFY(awaitTask(m_cache->getCachedAudio(chunk, QStringLiteral("espeak:en-us"), 1.0)).value->has_value());
            QVERIFY(!awaitTask(m_cache->getCachedAudio(chunk, QStringLiteral("nova"), 1.0)).value->has_value());
        }

        // A server that was reached and failed, or was too slow, is no missing connection.
        auto reached = build(*m_connection);
        QSignalSpy reachedOffline(reached.get(), &SpeechSynthesizer::readingOffline);
        m_server.setSpeechFailure(OpenAITestServer::Failure::error(500, "{\"error\":\"boom\"}"));
        QVERIFY(awaitTask(reached->generateSpeech(QStringLiteral("Server error."), TTSVoice::alloy, 1.0)).error);
        m_server.setSpeechFailure(OpenAITestServer::Failure::dropped());
        QVERIFY(awaitTask(reached->generateSpeech(QStringLiteral("Dropped."), TTSVoice::alloy, 1.0)).error);
        m_server.clearFailures();
        m_server.setDelay(5s);
        m_connection->setRequestTimeout(300ms);
        QCOMPARE(awaitTask(reached->generateSpeech(QStringLiteral("Slow."), TTSVoice::alloy, 1.0)).error,
                 QStringLiteral("The request timed out."));
        QCOMPARE(reachedOffline.size(), 0);
        m_defaults.remove(SettingsKeys::offlineVoice);
        m_defaults.remove(SettingsKeys::speechProvider);
    }

    void unusableBaseUrlFailsBeforeAnyRequest()
    {
        OpenAIConnection connection(QStringLiteral("k"), QStringLiteral("not a url"));
        const auto client = makeSynthesizer(connection);
        const auto outcome = awaitTask(client->generateSpeech(QStringLiteral("Hi."), TTSVoice::alloy, 1.0));
        QCOMPARE(outcome.error, QStringLiteral("Invalid API URL"));
    }

    void threeChunkAudioPlaysEndToEnd()
    {
        const QString text = sentences(200);
        const QStringList chunks = splitTextIntoChunks(text);
        QCOMPARE(chunks.size(), 3);
        const auto outcome = speak(text);
        QVERIFY(outcome.value);

        const Probe whole = probe(*outcome.value);
        QVERIFY2(whole.errors.isEmpty(), whole.errors.constData());
        double partsDuration = 0;
        int partsPackets = 0;
        for (const QString &chunk : chunks) {
            const auto cached = *awaitTask(m_cache->getCachedAudio(chunk, QStringLiteral("alloy"), 1.0)).value;
            QVERIFY(cached);
            const Probe part = probe(*cached);
            QVERIFY(part.duration > 0.5);
            partsDuration += part.duration;
            partsPackets += part.packets;
        }
        // Every frame of every part is decoded. The header frame that opens the second and third part
        // plays as one silent frame (26 ms at 44.1 kHz) where the parts meet.
        QCOMPARE(whole.packets, partsPackets + 2);
        QVERIFY2(whole.duration >= partsDuration && whole.duration <= partsDuration + 2 * 0.03,
                 qPrintable(QStringLiteral("%1 vs %2").arg(whole.duration).arg(partsDuration)));
    }

    void streamedSpeechStartsWithTheFirstBytesAndFillsTheCache()
    {
        // Shaped like the real service: each chunk's body trickles in over a second or more.
        const QString text = sentences(200);
        const QStringList chunks = splitTextIntoChunks(text);
        QCOMPARE(chunks.size(), 3);
        m_server.setSpeechPace(4000);
        auto stream = std::make_shared<SpeechStream>();
        QSignalSpy grown(stream.get(), &SpeechStream::grown);
        QSignalSpy finished(stream.get(), &SpeechStream::finished);
        QCoro::Task<> streaming = m_client->streamSpeech(text, TTSVoice::nova, 1.0, stream);

        // Audio is there while the first request is still answering.
        QTRY_VERIFY_WITH_TIMEOUT(!grown.isEmpty(), 5000);
        QCOMPARE(m_server.requests(QStringLiteral("/audio/speech")).size(), 1);
        QVERIFY(!stream->isClosed());

        QVERIFY(awaitTask(std::move(streaming)).error == std::nullopt);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(speechInputs(), chunks);
        QCOMPARE(stream->bytes(),
                 m_server.speechFor(chunks[0]) + m_server.speechFor(chunks[1]) + m_server.speechFor(chunks[2]));
        // Every chunk was cached and no temporary file is left: the whole-file path now asks nothing.
        QCOMPARE(cachedEntries(), 3);
        QVERIFY(temporaryMp3s().isEmpty());
        m_server.clearRequests();
        QVERIFY(speak(text, TTSVoice::nova).value);
        QVERIFY(m_server.requests().isEmpty());
    }

    void stoppedStreamRequestsNoFurtherChunk()
    {
        const QString text = sentences(200);
        m_server.setSpeechPace(4000);
        auto stream = std::make_shared<SpeechStream>();
        QCoro::Task<> streaming = m_client->streamSpeech(text, TTSVoice::alloy, 1.0, stream);
        QSignalSpy grown(stream.get(), &SpeechStream::grown);
        QTRY_VERIFY_WITH_TIMEOUT(!grown.isEmpty(), 5000);
        LogCapture log;
        stream->cancel();
        QVERIFY(awaitTask(std::move(streaming)).error == std::nullopt);

        // The chunk in flight finished and was cached (it is paid for); nothing after it was asked for.
        QCOMPARE(m_server.requests(QStringLiteral("/audio/speech")).size(), 1);
        QCOMPARE(cachedEntries(), 1);
        QVERIFY(log.contains(QStringLiteral("⏹️ Reading stopped - chunk 2/3 and later not requested")));
        QVERIFY(stream->isCancelled());
    }

    void badAnswersAreRefusedAndNeverCached_data()
    {
        QTest::addColumn<int>("fault");
        QTest::addColumn<bool>("streamed");
        QTest::addColumn<QString>("error"); // %1, %2: half and all of the MP3's length
        using Fault = OpenAITestServer::Fault;
        for (const bool streamed : {false, true}) {
            const char *path = streamed ? "streamed" : "whole file";
            QTest::addRow("cut short, %s", path)
                << int(Fault::cutShort) << streamed << QStringLiteral("OpenAI's answer was cut short (%1 of %2 bytes)");
            QTest::addRow("connection reset, %s", path)
                << -1 << streamed << QStringLiteral("OpenAI's answer was cut short (%1 of %2 bytes)");
            QTest::addRow("html page, %s", path) << int(Fault::htmlPage) << streamed
                                                 << QStringLiteral("OpenAI answered with text/html instead of audio");
            QTest::addRow("empty body, %s", path)
                << int(Fault::emptyBody) << streamed << QStringLiteral("OpenAI's answer held no audio");
        }
    }

    void badAnswersAreRefusedAndNeverCached()
    {
        QFETCH(int, fault);
        QFETCH(bool, streamed);
        QFETCH(QString, error);
        const QString text = QStringLiteral("Only a whole answer is worth keeping.");
        const QByteArray mp3 = m_server.speechFor(text);
        const auto grouped = [](qsizetype n) { return RequestPolicy::groupedNumber(n); };
        if (error.contains(u'%'))
            error = error.arg(grouped(mp3.size() / 2), grouped(mp3.size()));
        if (fault < 0)
            m_server.setSpeechFailure(OpenAITestServer::Failure::bodyCutShort()); // the connection is reset
        else
            m_server.setFault(QStringLiteral("/v1/audio/speech"), OpenAITestServer::Fault(fault), 1);

        auto stream = std::make_shared<SpeechStream>();
        const std::optional<QString> failure =
            streamed ? awaitTask(m_client->streamSpeech(text, TTSVoice::alloy, 1.0, stream)).error : speak(text).error;
        QCOMPARE(failure, error);
        if (streamed) {
            // The player stops with the reason; an answer that is no audio never reached it.
            QVERIFY(stream->hasFailed());
            QCOMPARE(stream->error(), error);
            if (fault == int(OpenAITestServer::Fault::htmlPage) || fault == int(OpenAITestServer::Fault::emptyBody))
                QCOMPARE(stream->size(), 0);
        }
        QCOMPARE(cachedEntries(), 0);
        QVERIFY(temporaryMp3s().isEmpty());

        // The next good answer is asked for anew and plays.
        m_server.clearFailures();
        const auto again = speak(text);
        QVERIFY2(again.value, qPrintable(again.error.value_or(QString())));
        QCOMPARE(m_server.requests(QStringLiteral("/audio/speech")).size(), 2);
        QCOMPARE(readAll(*again.value), mp3);
        const Probe played = probe(*again.value);
        QVERIFY2(played.errors.isEmpty() && played.packets > 0, played.errors.constData());
        QCOMPARE(cachedEntries(), 1);
    }
};

QTEST_GUILESS_MAIN(TestSpeechSynthesizer)
#include "tst_SpeechSynthesizer.moc"
