#include "AwaitTask.h"
#include "LogCapture.h"
#include "OpenAITestServer.h"
#include "PlaybackFixtures.h"
#include "RealtimeTestServer.h"
#include "TestEnvironment.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "speech/RealtimeSpeechProvider.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechStream.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

QString sentences(int count, const QString &topic = QStringLiteral("story"))
{
    QString text;
    for (int i = 1; i <= count; ++i)
        text += QStringLiteral("Sentence number %1 tells another part of the %2! ").arg(i).arg(topic);
    return text;
}

// The text of a response.create event's one input message.
QString inputText(const QJsonObject &event)
{
    return event.value(u"response")
        .toObject()
        .value(u"input")
        .toArray()
        .first()
        .toObject()
        .value(u"content")
        .toArray()
        .first()
        .toObject()
        .value(u"text")
        .toString();
}

} // namespace

class TestRealtimeSpeechProvider final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    std::optional<QuietLog> m_quiet;
    Defaults m_defaults{m_env.defaultsFile()};
    OpenAITestServer m_http;
    RealtimeTestServer m_realtime;
    std::unique_ptr<TTSCacheService> m_cache;
    std::unique_ptr<ModelSettings> m_models;
    std::unique_ptr<OpenAIConnection> m_connection;
    std::unique_ptr<SpeechSynthesizer> m_speech;

    QString cacheFolder() const { return m_env.dataHome() + QStringLiteral("/TTSCache"); }
    int cachedEntries() { return static_cast<int>(awaitTask(m_cache->entries()).value->size()); }

    QStringList spokenPieces() const
    {
        QStringList pieces;
        for (const QJsonObject &event : m_realtime.receivedEvents(QStringLiteral("response.create")))
            pieces << inputText(event);
        return pieces;
    }

    void useRealtime() { m_defaults.set(SettingsKeys::speechProvider, QStringLiteral("openai-realtime")); }

private Q_SLOTS:
    void init()
    {
        m_quiet.emplace();
        m_speech.reset();
        m_cache.reset();
        QDir(cacheFolder()).removeRecursively();
        for (const QString &key : m_defaults.allKeys())
            m_defaults.remove(key);
        m_http.clearRequests();
        m_http.clearFailures();
        m_http.setRetiredModels({});
        m_realtime.clearReceivedEvents();
        m_realtime.clearFailure();
        m_realtime.setRetiredModels({});
        m_realtime.setPace(0);
        m_realtime.setFirstAudioDelay(0ms);
        m_realtime.setTranscriptRewrite({});
        m_cache = std::make_unique<TTSCacheService>(cacheFolder());
        m_models = std::make_unique<ModelSettings>(m_defaults);
        m_connection = std::make_unique<OpenAIConnection>(QStringLiteral("rt-key"), m_http.baseUrlString());
        m_connection->setWebSocketBaseURL(m_realtime.baseUrlString());
        m_speech = std::make_unique<SpeechSynthesizer>(*m_cache, *m_models);
        m_speech->addProvider(std::make_unique<SpeechEndpointProvider>(*m_connection, *m_models));
        m_speech->addProvider(std::make_unique<RealtimeSpeechProvider>(*m_connection, *m_models));
    }

    void cleanup() { m_quiet.reset(); }

    void readsEveryWordOnceInOrderAndReplaysFromTheCache()
    {
        useRealtime();
        const QString text = sentences(12);
        const auto outcome = awaitTask(m_speech->generateSpeech(text, TTSVoice::nova, 1.25));
        QVERIFY2(outcome.value, qPrintable(outcome.error.value_or(QString())));

        // One session, told to read verbatim in the nearest voice, at the asked speed, as 24 kHz PCM.
        const QList<QJsonObject> updates = m_realtime.receivedEvents(QStringLiteral("session.update"));
        QCOMPARE(updates.size(), 1);
        const QJsonObject session = updates[0].value(u"session").toObject();
        const QJsonObject output = session.value(u"audio").toObject().value(u"output").toObject();
        QCOMPARE(output.value(u"voice").toString(), QStringLiteral("coral"));
        QCOMPARE(output.value(u"speed").toDouble(), 1.25);
        QCOMPARE(output.value(u"format").toObject().value(u"rate").toInt(), 24000);
        QCOMPARE(session.value(u"instructions").toString(), RealtimeSpeechProvider::readingInstructions());

        // Sentence-sized pieces, every word exactly once and in order.
        const QStringList pieces = spokenPieces();
        QCOMPARE_GT(pieces.size(), 1);
        QCOMPARE(pieces.join(u' ').simplified(), text.simplified());
        for (const QString &piece : pieces)
            QVERIFY2(characterCount(piece) <= 300, qPrintable(piece));

        // The MP3 holds every piece's audio, end to end.
        double expected = 0;
        for (const QString &piece : pieces)
            expected += static_cast<double>(m_realtime.audioFor(piece, 1.25).size()) / (2.0 * 24000);
        const double decoded = decodedSeconds(*outcome.value);
        QVERIFY2(qAbs(decoded - expected) < 0.3, qPrintable(QStringLiteral("%1 vs %2").arg(decoded).arg(expected)));

        // Kept under the voice that really read; the same request needs no connection the second time.
        QVERIFY(awaitTask(m_cache->getCachedAudio(text, QStringLiteral("coral"), 1.25)).value->has_value());
        const int connections = m_realtime.connectionCount();
        QVERIFY(awaitTask(m_speech->generateSpeech(text, TTSVoice::nova, 1.25)).value);
        QCOMPARE(m_realtime.connectionCount(), connections);
        QVERIFY(m_http.requests().isEmpty());
    }

    void streamedAudioArrivesWhileTheModelSpeaksAndStopsBetweenPieces()
    {
        useRealtime();
        m_realtime.setFirstAudioDelay(200ms);
        m_realtime.setPace(60);
        const QString text = sentences(12);
        auto stream = std::make_shared<SpeechStream>();
        QSignalSpy grown(stream.get(), &SpeechStream::grown);
        QCoro::Task<> streaming = m_speech->streamSpeech(text, TTSVoice::alloy, 1.0, stream);

        // MP3 is in the stream while the first response is still answering.
        QTRY_VERIFY_WITH_TIMEOUT(stream->arrivedSeconds() > 0.2, 10000);
        QCOMPARE(m_realtime.receivedEvents(QStringLiteral("response.create")).size(), 1);

        // Stopped: the piece being read ends, no later piece is asked for, nothing partial is cached.
        stream->cancel();
        QVERIFY(awaitTask(std::move(streaming)).error == std::nullopt);
        QCOMPARE(m_realtime.receivedEvents(QStringLiteral("response.create")).size(), 1);
        QCOMPARE(cachedEntries(), 0);
    }

    void rewordedReadingIsLogged()
    {
        useRealtime();
        m_realtime.setTranscriptRewrite(
            [](QString said) { return said.replace(QStringLiteral("fox"), QStringLiteral("dog")); });
        LogCapture log;
        const auto outcome =
            awaitTask(m_speech->generateSpeech(QStringLiteral("The quick brown fox jumps."), TTSVoice::echo, 1.0));
        QVERIFY(outcome.value);
        QVERIFY(log.contains(QStringLiteral("⚠️ The Realtime voice reworded piece 1/1: \"fox\" → \"dog\"")));

        // Case, punctuation and spacing are no rewording.
        QVERIFY(RealtimeSpeechProvider::transcriptDifferences(QStringLiteral("Hello,  world! It's fine."),
                                                              QStringLiteral("hello world it's fine"))
                    .isEmpty());
        QCOMPARE(RealtimeSpeechProvider::transcriptDifferences(QStringLiteral("one two three four"),
                                                               QStringLiteral("one three four five")),
                 QStringList{QStringLiteral("\"two three four\" → \"three four five\"")});
    }

    void refusedAndBrokenSessionsFail()
    {
        useRealtime();
        // A retired model arrives as the service's own refusal, recognisable as a retirement.
        m_realtime.setRetiredModels({QStringLiteral("gpt-realtime-2.1-mini")});
        auto retired = awaitTask(m_speech->generateSpeech(QStringLiteral("Retired."), TTSVoice::alloy, 1.0));
        QVERIFY(retired.error && retired.error->startsWith(QStringLiteral("API Error (404): ")));
        QVERIFY(ModelCatalogue::isRetirementError(404, retired.error->mid(17).toUtf8()));
        m_realtime.setRetiredModels({});

        // A connection lost halfway through the audio: an error, and nothing kept.
        m_realtime.setFailure(RealtimeTestServer::Failure::dropAfterDeltas(2));
        auto dropped = awaitTask(m_speech->generateSpeech(sentences(3), TTSVoice::alloy, 1.0));
        QVERIFY(dropped.error);
        QVERIFY(!dropped.error->startsWith(QStringLiteral("API Error")));

        // A response the service gives up on.
        m_realtime.setFailure(RealtimeTestServer::Failure::failed());
        auto failed = awaitTask(m_speech->generateSpeech(QStringLiteral("Failing."), TTSVoice::alloy, 1.0));
        QVERIFY(failed.error && failed.error->contains(QStringLiteral("server_error")));
        QCOMPARE(cachedEntries(), 0);

        // A wrong key.
        OpenAIConnection wrongKey(QString(), m_http.baseUrlString());
        wrongKey.setWebSocketBaseURL(m_realtime.baseUrlString());
        RealtimeSpeechProvider provider(wrongKey, *m_models);
        auto refused = awaitTask(provider.synthesize(QStringLiteral("No key."), TTSVoice::alloy, 1.0, {}, {}));
        QVERIFY(refused.error && refused.error->startsWith(QStringLiteral("API Error (401): ")));
    }

    void retiredSpeechModelSwitchesToTheRealtimeApiOnce()
    {
        m_http.setRetiredModels({QStringLiteral("tts-1")});
        QSignalSpy switched(m_models.get(), &ModelSettings::switchedToSuccessor);
        const QString text = sentences(30);
        QCOMPARE(splitTextIntoChunks(text).size(), 1);

        // The refused request is made once more, through the successor; the reading is whole.
        auto stream = std::make_shared<SpeechStream>();
        QVERIFY(awaitTask(m_speech->streamSpeech(text, TTSVoice::shimmer, 1.0, stream)).error == std::nullopt);
        QVERIFY(stream->arrivedSeconds() > 1);
        QCOMPARE(m_http.requests(QStringLiteral("/audio/speech")).size(), 1);
        QCOMPARE(spokenPieces().join(u' ').simplified(), text.simplified());
        QCOMPARE(switched.size(), 1);

        // The switch is kept: the next reading goes to the Realtime API directly.
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::speechProvider), QStringLiteral("openai-realtime"));
        QCOMPARE(m_defaults.stringForKey(SettingsKeys::realtimeSpeechModel), QStringLiteral("gpt-realtime-2.1-mini"));
        QVERIFY(awaitTask(m_speech->generateSpeech(QStringLiteral("Next one."), TTSVoice::shimmer, 1.0)).value);
        QCOMPARE(m_http.requests(QStringLiteral("/audio/speech")).size(), 1);
        QCOMPARE(switched.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeSpeechProvider)
#include "tst_RealtimeSpeechProvider.moc"
