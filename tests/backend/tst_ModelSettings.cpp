#include "AwaitTask.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "backend/ModelAvailability.h"
#include "backend/ModelCatalogue.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>

#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

QJsonObject listedModel(const QString &id, const QJsonValue &shutdownDate)
{
    QJsonObject model{{QStringLiteral("id"), id},
                      {QStringLiteral("object"), QStringLiteral("model")},
                      {QStringLiteral("created"), 1698785189},
                      {QStringLiteral("owned_by"), QStringLiteral("system")}};
    if (!shutdownDate.isUndefined())
        model.insert(QStringLiteral("shutdown_date"), shutdownDate);
    return model;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// The model settings as the settings file holds them, the switch to a successor when the service
// refuses a retired model, and the shutdown dates fetched from the local OpenAI server.
class TestModelSettings final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    std::optional<QuietLog> m_quiet;
    std::optional<Defaults> m_defaults;
    OpenAITestServer m_server;
    std::optional<OpenAIConnection> m_connection;
    ManualClock m_clock;

    QString availabilityFile() const { return m_env.dataHome() + QStringLiteral("/Parlino/model_availability.json"); }
    int modelListRequests() const { return static_cast<int>(m_server.requests(QStringLiteral("/models")).size()); }

    static int fetchFailures(const LogCapture &log)
    {
        return static_cast<int>(log.lines().filter(QStringLiteral("Could not fetch model shutdown dates")).size());
    }

    // Moves the clock on and lets a fetch that this started end (answered or failed).
    void passTime(std::chrono::hours by, const ModelAvailability &availability)
    {
        m_clock.advance(by);
        QTRY_VERIFY(!availability.isFetching());
    }

private Q_SLOTS:
    void init()
    {
        m_quiet.emplace();
        QFile::remove(m_env.defaultsFile());
        QFile::remove(availabilityFile());
        m_defaults.emplace(m_env.defaultsFile());
        m_connection.emplace(QStringLiteral("test-key"), m_server.baseUrlString());
        m_server.clearRequests();
        m_server.clearFailures();
        m_server.resetModelList();
        m_server.setRetiredModels({});
    }

    void cleanup()
    {
        m_connection.reset();
        m_defaults.reset();
        m_quiet.reset();
    }

    void defaultsAndFallbackWithOneWarning()
    {
        LogCapture log;
        ModelSettings settings(*m_defaults);
        QCOMPARE(settings.speechProvider(), QStringLiteral("openai-speech"));
        QCOMPARE(settings.speechModel(), QStringLiteral("tts-1"));
        QCOMPARE(settings.realtimeSpeechModel(), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(settings.chatModel(), QStringLiteral("gpt-4o-mini"));
        QCOMPARE(settings.transcriptionModel(), QStringLiteral("whisper-1"));
        QCOMPARE(settings.activeSpeechModel(), QStringLiteral("tts-1"));
        QVERIFY(log.lines().isEmpty());

        // Unknown values, and a known model under the wrong use, read as the default.
        m_defaults->set(QStringLiteral("speechProvider"), QStringLiteral("foo"));
        m_defaults->set(QStringLiteral("speechModel"), QStringLiteral("gpt-realtime"));
        m_defaults->set(QStringLiteral("chatModel"), QStringLiteral("gpt-9000"));
        m_defaults->set(QStringLiteral("transcriptionModel"), QString());
        for (int read = 0; read < 3; ++read) {
            QCOMPARE(settings.speechProvider(), QStringLiteral("openai-speech"));
            QCOMPARE(settings.activeSpeechModel(), QStringLiteral("tts-1"));
            QCOMPARE(settings.chatModel(), QStringLiteral("gpt-4o-mini"));
            QCOMPARE(settings.transcriptionModel(), QStringLiteral("whisper-1"));
        }
        QCOMPARE(log.count(QStringLiteral("⚠️ Unknown speechProvider 'foo' in settings - using openai-speech")), 1);
        QCOMPARE(log.count(QStringLiteral("⚠️ Unknown speechModel 'gpt-realtime' in settings - using tts-1")), 1);
        QCOMPARE(log.count(QStringLiteral("⚠️ Unknown chatModel 'gpt-9000' in settings - using gpt-4o-mini")), 1);
        QCOMPARE(log.count(QStringLiteral("⚠️ Unknown transcriptionModel '' in settings - using whisper-1")), 1);
        QCOMPARE(log.lines().size(), 4);
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("chatModel")), QStringLiteral("gpt-9000")); // left as it is

        // A known model stays as it is, retired or not; the setters refuse what they do not know.
        QSignalSpy changed(&settings, &ModelSettings::changed);
        QVERIFY(settings.setModel(ModelRole::speech, QStringLiteral("tts-1-hd")));
        QVERIFY(settings.setSpeechProvider(QStringLiteral("openai-realtime")));
        QVERIFY(settings.setModel(ModelRole::realtimeSpeech, QStringLiteral("gpt-realtime")));
        QVERIFY(!settings.setModel(ModelRole::chat, QStringLiteral("tts-1")));
        QVERIFY(!settings.setSpeechProvider(QStringLiteral("elevenlabs")));
        QCOMPARE(changed.count(), 3);
        QCOMPARE(settings.speechModel(), QStringLiteral("tts-1-hd"));
        QCOMPARE(settings.activeSpeechModel(), QStringLiteral("gpt-realtime"));
        m_defaults->set(QStringLiteral("defaultVoice"), QStringLiteral("nova")); // not one of its keys
        QCOMPARE(changed.count(), 3);
        QCOMPARE(log.lines().size(), 4);
    }

    void switchingToSuccessorIsPersistedAndReportedOnce()
    {
        LogCapture log;
        ModelSettings settings(*m_defaults);
        QSignalSpy switched(&settings, &ModelSettings::switchedToSuccessor);

        // The refusal comes from the server as the real service words it.
        m_server.setRetiredModels({QStringLiteral("tts-1"), QStringLiteral("gpt-4o-mini")});
        const QJsonObject speech{{QStringLiteral("model"), settings.activeSpeechModel()},
                                 {QStringLiteral("input"), QStringLiteral("Hello")},
                                 {QStringLiteral("voice"), QStringLiteral("alloy")}};
        const auto refused =
            awaitTask(m_connection->postJSON(*m_connection->endpoint(QStringLiteral("/audio/speech")), speech));
        QVERIFY(refused.value);
        QCOMPARE(refused.value->statusCode, 404);
        QVERIFY(ModelCatalogue::isRetirementError(refused.value->statusCode, refused.value->body));

        // Two refusals of requests that were under way together: one switch, one notice.
        QVERIFY(settings.switchToSuccessor(ModelRole::speech, QStringLiteral("tts-1")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::speech, QStringLiteral("tts-1")));
        QCOMPARE(switched.count(), 1);
        QCOMPARE(switched.at(0).at(0).value<ModelRole>(), ModelRole::speech);
        QCOMPARE(switched.at(0).at(1).toString(), QStringLiteral("tts-1"));
        QCOMPARE(switched.at(0).at(2).toString(), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(settings.activeSpeechModel(), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(log.count(QStringLiteral(
                     "ℹ️ Model tts-1 is retired - speech now uses gpt-realtime-2.1-mini through the Realtime API")),
                 1);

        // Chat: a refusal of a model no longer in use changes nothing; the one in use is replaced.
        const QJsonObject chat{{QStringLiteral("model"), settings.chatModel()},
                               {QStringLiteral("messages"), QJsonArray()}};
        const auto chatRefused =
            awaitTask(m_connection->postJSON(*m_connection->endpoint(QStringLiteral("/chat/completions")), chat));
        QVERIFY(ModelCatalogue::isRetirementError(chatRefused.value->statusCode, chatRefused.value->body));
        QVERIFY(settings.setModel(ModelRole::chat, QStringLiteral("gpt-4o")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o-mini")));
        QCOMPARE(settings.chatModel(), QStringLiteral("gpt-4o"));
        QVERIFY(settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o")));
        QCOMPARE(settings.chatModel(), QStringLiteral("gpt-6-luna"));
        QVERIFY(settings.switchToSuccessor(ModelRole::transcription, QStringLiteral("whisper-1")));

        // Nothing follows these, and a model is only replaced for its own use.
        QVERIFY(!settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-6-luna")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::realtimeSpeech, QStringLiteral("gpt-realtime-2.1-mini")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::chat, QStringLiteral("tts-1")));
        QCOMPARE(switched.count(), 3);

        // The switches are in the settings file, for the next launch and other processes.
        Defaults reread(m_env.defaultsFile());
        QCOMPARE(reread.stringForKey(QStringLiteral("speechProvider")), QStringLiteral("openai-realtime"));
        QCOMPARE(reread.stringForKey(QStringLiteral("realtimeSpeechModel")), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(reread.stringForKey(QStringLiteral("chatModel")), QStringLiteral("gpt-6-luna"));
        QCOMPARE(reread.stringForKey(QStringLiteral("transcriptionModel")), QStringLiteral("gpt-transcribe"));

        // Models the server has not retired are still served.
        m_server.setRetiredModels({QStringLiteral("tts-1")});
        const auto served =
            awaitTask(m_connection->postJSON(*m_connection->endpoint(QStringLiteral("/chat/completions")), chat));
        QCOMPARE(served.value->statusCode, 200);
    }

    void shutdownDatesFetchedOnceADay()
    {
        LogCapture log;
        // The service's own dates: an ISO date, a unix timestamp, none, and a date-time.
        m_server.setModelList({listedModel(QStringLiteral("gpt-4o"), QStringLiteral("2027-01-14")),
                               listedModel(QStringLiteral("tts-1"), 1799280000), // 2027-01-07
                               listedModel(QStringLiteral("whisper-1"), QJsonValue::Undefined),
                               listedModel(QStringLiteral("gpt-4o-mini"), QJsonValue::Null),
                               listedModel(QStringLiteral("gpt-realtime"), QStringLiteral("2027-01-20T00:00:00Z"))});
        {
            ModelAvailability availability(*m_connection, m_clock, availabilityFile());
            QSignalSpy changed(&availability, &ModelAvailability::changed);
            QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 6)); // the catalogue's
            QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-4o")), std::nullopt);

            availability.start();
            QCOMPARE(modelListRequests(), 0); // never during start-up itself
            QTRY_COMPARE(changed.count(), 1);
            QCOMPARE(modelListRequests(), 1);
            const auto request = m_server.requests(QStringLiteral("/models")).first();
            QCOMPARE(request.method, QByteArray("GET"));
            QCOMPARE(request.header("Authorization"), QByteArray("Bearer test-key"));
            QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-4o")), QDate(2027, 1, 14));
            QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 7));
            QCOMPARE(availability.shutdownDate(QStringLiteral("whisper-1")), QDate(2027, 2, 26));
            QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-4o-mini")), QDate(2027, 1, 14));
            QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-realtime")), QDate(2027, 1, 20));
            QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-6-luna")), std::nullopt);

            // Not again within the day; once the day is over, once more (the same dates: no signal).
            passTime(23h, availability);
            QCOMPARE(modelListRequests(), 1);
            passTime(1h, availability);
            QCOMPARE(modelListRequests(), 2);
            QCOMPARE(changed.count(), 1);
        }

        // A restart the same day reads the dates from the file and does not ask.
        m_server.setModelList({listedModel(QStringLiteral("gpt-4o"), QStringLiteral("2027-03-01"))});
        ModelAvailability restarted(*m_connection, m_clock, availabilityFile());
        QSignalSpy changed(&restarted, &ModelAvailability::changed);
        QCOMPARE(restarted.shutdownDate(QStringLiteral("gpt-4o")), QDate(2027, 1, 14));
        restarted.start();
        QCoreApplication::processEvents(); // where a due fetch would start
        QTRY_VERIFY(!restarted.isFetching());
        QCOMPARE(modelListRequests(), 2);
        passTime(23h, restarted);
        QCOMPARE(modelListRequests(), 2);
        passTime(1h, restarted);
        QCOMPARE(modelListRequests(), 3);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(restarted.shutdownDate(QStringLiteral("gpt-4o")), QDate(2027, 3, 1));
        QCOMPARE(restarted.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 6)); // no longer listed
        QVERIFY(log.lines().filter(QStringLiteral("⚠️")).isEmpty());
    }

    void failuresChangeNothing()
    {
        LogCapture log;
        {
            ModelAvailability first(*m_connection, m_clock, availabilityFile());
            first.start();
            QTRY_VERIFY(first.lastFetched().isValid());
        }
        const QByteArray stored = readFile(availabilityFile());
        QVERIFY(stored.contains("2027-01-06"));

        ModelAvailability availability(*m_connection, m_clock, availabilityFile());
        QSignalSpy changed(&availability, &ModelAvailability::changed);
        availability.start();
        m_server.setModelList({listedModel(QStringLiteral("tts-1"), QStringLiteral("2030-01-01"))});
        // A server error, an answer that is no model list, and a dropped connection: one line each, and
        // the next attempt only a day later.
        m_server.setModelsFailure(OpenAITestServer::Failure::error(500, "{\"error\": {\"message\": \"boom\"}}"));
        passTime(24h, availability);
        QCOMPARE(log.count(QStringLiteral("⚠️ Could not fetch model shutdown dates: HTTP 500")), 1);
        passTime(23h, availability);
        QCOMPARE(modelListRequests(), 2);
        m_server.setModelsFailure(OpenAITestServer::Failure::error(200, "{\"object\": \"list\"}"));
        passTime(1h, availability);
        QCOMPARE(modelListRequests(), 3);
        QCOMPARE(log.count(QStringLiteral("⚠️ Could not fetch model shutdown dates: the answer is no model list")),
                 1);
        m_server.setModelsFailure(OpenAITestServer::Failure::dropped());
        passTime(24h, availability);
        QCOMPARE(fetchFailures(log), 3);
        QCOMPARE(changed.count(), 0);
        QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 6));
        QCOMPARE(readFile(availabilityFile()), stored);

        // A damaged file is reported once and read as no file: the catalogue's dates, and a fresh fetch.
        QFile damaged(availabilityFile());
        QVERIFY(damaged.open(QIODevice::WriteOnly | QIODevice::Truncate));
        damaged.write("{\"fetchedAt\": \"yesterday\", \"shutdownDates\": ");
        damaged.close();
        m_server.clearFailures();
        ModelAvailability reading(*m_connection, m_clock, availabilityFile());
        QCOMPARE(log.count(QStringLiteral("⚠️ Model availability file ") + availabilityFile()
                           + QStringLiteral(" could not be read - ignoring it")),
                 1);
        QCOMPARE(reading.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 6));
        QVERIFY(!reading.lastFetched().isValid());
        reading.start();
        QTRY_COMPARE(reading.shutdownDate(QStringLiteral("tts-1")), QDate(2030, 1, 1));
        QVERIFY(QJsonDocument::fromJson(readFile(availabilityFile())).isObject());
    }
};

QTEST_GUILESS_MAIN(TestModelSettings)
#include "tst_ModelSettings.moc"
