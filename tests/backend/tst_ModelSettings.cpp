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

#include <optional>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

// An entry of the model list; only what the app reads.
QJsonObject listedModel(const QString &id, const QJsonValue &shutdownDate)
{
    QJsonObject model{{QStringLiteral("id"), id}};
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
    OpenAIConnection m_connection{QStringLiteral("test-key"), m_server.baseUrlString()};
    ManualClock m_clock;

    QString availabilityFile() const { return m_env.dataHome() + QStringLiteral("/Parlino/model_availability.json"); }
    int modelListRequests() const { return static_cast<int>(m_server.requests(QStringLiteral("/models")).size()); }

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
        m_server.clearRequests();
        m_server.clearFailures();
        m_server.resetModelList();
        m_server.setRetiredModels({});
    }

    void cleanup()
    {
        m_defaults.reset();
        m_quiet.reset();
    }

    void defaultsAndFallbackWithOneWarning()
    {
        LogCapture log;
        ModelSettings settings(*m_defaults);
        QCOMPARE(QStringList({settings.speechProvider(), settings.speechModel(), settings.realtimeSpeechModel(),
                              settings.chatModel(), settings.transcriptionModel()}),
                 QStringLiteral("openai-speech tts-1 gpt-realtime-2.1-mini gpt-4o-mini gpt-transcribe").split(u' '));

        // Unknown values, and a known model under the wrong use, read as the default, and stay stored.
        m_defaults->set(QStringLiteral("speechProvider"), QStringLiteral("foo"));
        m_defaults->set(QStringLiteral("speechModel"), QStringLiteral("gpt-realtime"));
        m_defaults->set(QStringLiteral("chatModel"), QString());
        for (int read = 0; read < 3; ++read) {
            QCOMPARE(settings.activeSpeechModel(), QStringLiteral("tts-1"));
            QCOMPARE(settings.chatModel(), QStringLiteral("gpt-4o-mini"));
        }
        QCOMPARE(log.lines(), QStringLiteral("⚠️ Unknown speechProvider 'foo' in settings - using openai-speech\n"
                                             "⚠️ Unknown speechModel 'gpt-realtime' in settings - using tts-1\n"
                                             "⚠️ Unknown chatModel '' in settings - using gpt-4o-mini")
                                  .split(u'\n'));
        QCOMPARE(m_defaults->stringForKey(QStringLiteral("speechModel")), QStringLiteral("gpt-realtime"));

        // The setters refuse what they do not know; a known model is kept, retired or not.
        QSignalSpy changed(&settings, &ModelSettings::changed);
        QVERIFY(!settings.setModel(ModelRole::chat, QStringLiteral("tts-1")));
        QVERIFY(!settings.setSpeechProvider(QStringLiteral("elevenlabs")));
        QVERIFY(settings.setSpeechProvider(QStringLiteral("openai-realtime")));
        QVERIFY(settings.setModel(ModelRole::realtimeSpeech, QStringLiteral("gpt-realtime")));
        m_defaults->set(QStringLiteral("defaultVoice"), QStringLiteral("nova")); // not one of its keys
        QCOMPARE(changed.count(), 2);
        QCOMPARE(settings.activeSpeechModel(), QStringLiteral("gpt-realtime"));
    }

    void switchingToSuccessorIsPersistedAndReportedOnce()
    {
        LogCapture log;
        ModelSettings settings(*m_defaults);
        QSignalSpy switched(&settings, &ModelSettings::switchedToSuccessor);

        // The refusal as the server words it.
        m_server.setRetiredModels({QStringLiteral("tts-1")});
        const QJsonObject speech{{QStringLiteral("model"), settings.activeSpeechModel()},
                                 {QStringLiteral("input"), QStringLiteral("Hello")},
                                 {QStringLiteral("voice"), QStringLiteral("alloy")}};
        const auto refused =
            awaitTask(m_connection.postJSON(*m_connection.endpoint(QStringLiteral("/audio/speech")), speech));
        QVERIFY(ModelCatalogue::isRetirementError(refused.value->statusCode, refused.value->body));

        // Two refusals of requests that were under way together: one switch, one notice.
        QVERIFY(settings.switchToSuccessor(ModelRole::speech, QStringLiteral("tts-1")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::speech, QStringLiteral("tts-1")));
        QCOMPARE(switched.count(), 1);
        QCOMPARE(switched.at(0).at(0).value<ModelRole>(), ModelRole::speech);
        QCOMPARE(switched.at(0).at(1).toString() + u' ' + switched.at(0).at(2).toString(),
                 QStringLiteral("tts-1 gpt-realtime-2.1-mini"));
        QCOMPARE(settings.activeSpeechModel(), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(log.count(QStringLiteral(
                     "ℹ️ Model tts-1 is retired - speech now uses gpt-realtime-2.1-mini through the Realtime API")),
                 1);

        // A refusal of a model no longer in use changes nothing; nothing follows the newest models, and a
        // model is only replaced for its own use.
        QVERIFY(settings.setModel(ModelRole::chat, QStringLiteral("gpt-4o")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o-mini")));
        QVERIFY(settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-4o")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::chat, QStringLiteral("gpt-6-luna")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::realtimeSpeech, QStringLiteral("gpt-realtime-2.1-mini")));
        QVERIFY(!settings.switchToSuccessor(ModelRole::transcription, QStringLiteral("tts-1")));
        QCOMPARE(switched.count(), 2);

        // The switches are in the settings file, for the next launch and other processes.
        Defaults reread(m_env.defaultsFile());
        QCOMPARE(reread.stringForKey(QStringLiteral("speechProvider")), QStringLiteral("openai-realtime"));
        QCOMPARE(reread.stringForKey(QStringLiteral("realtimeSpeechModel")), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(reread.stringForKey(QStringLiteral("chatModel")), QStringLiteral("gpt-6-luna"));
    }

    void shutdownDatesFetchedOnceADay()
    {
        LogCapture log;
        // The service's own dates: an ISO date, a unix timestamp, none.
        m_server.setModelList({listedModel(QStringLiteral("gpt-4o"), QStringLiteral("2027-01-14")),
                               listedModel(QStringLiteral("tts-1"), 1799280000), // 2027-01-07
                               listedModel(QStringLiteral("whisper-1"), QJsonValue::Undefined)});
        ModelAvailability availability(m_connection, m_clock, availabilityFile());
        QSignalSpy changed(&availability, &ModelAvailability::changed);
        QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 6)); // the catalogue's
        QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-4o")), std::nullopt);

        availability.start();
        QCOMPARE(modelListRequests(), 0); // never during start-up itself
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(modelListRequests(), 1);
        QCOMPARE(m_server.requests(QStringLiteral("/models")).first().header("Authorization"),
                 QByteArray("Bearer test-key"));
        QCOMPARE(availability.shutdownDate(QStringLiteral("gpt-4o")), QDate(2027, 1, 14));
        QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 7));
        QCOMPARE(availability.shutdownDate(QStringLiteral("whisper-1")), QDate(2027, 2, 26));

        // Not again within the day; once the day is over, once more (the same dates: no signal).
        passTime(23h, availability);
        QCOMPARE(modelListRequests(), 1);
        passTime(1h, availability);
        QCOMPARE(modelListRequests(), 2);
        QCOMPARE(changed.count(), 1);
        QVERIFY(log.lines().filter(QStringLiteral("⚠️")).isEmpty());
    }

    void failuresChangeNothing()
    {
        LogCapture log;
        m_server.setModelList({listedModel(QStringLiteral("tts-1"), QStringLiteral("2027-01-07"))});
        {
            ModelAvailability first(m_connection, m_clock, availabilityFile());
            first.start();
            QTRY_VERIFY(first.lastFetched().isValid());
        }
        const QByteArray stored = readFile(availabilityFile());

        // A restart the same day takes the dates from the file and does not ask (see the count below).
        ModelAvailability availability(m_connection, m_clock, availabilityFile());
        QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 7));
        QSignalSpy changed(&availability, &ModelAvailability::changed);
        availability.start();
        m_server.setModelList({listedModel(QStringLiteral("tts-1"), QStringLiteral("2030-01-01"))});
        // A server error and an answer that is no model list: one line each, the next attempt a day later.
        m_server.setModelsFailure(OpenAITestServer::Failure::error(500, "{\"error\": {\"message\": \"boom\"}}"));
        passTime(24h, availability);
        passTime(23h, availability);
        m_server.setModelsFailure(OpenAITestServer::Failure::error(200, "{\"object\": \"list\"}"));
        passTime(1h, availability);
        QCOMPARE(modelListRequests(), 3);
        QCOMPARE(log.lines().filter(QStringLiteral("⚠️")),
                 QStringLiteral("⚠️ Could not fetch model shutdown dates: HTTP 500\n"
                                "⚠️ Could not fetch model shutdown dates: the answer is no model list")
                     .split(u'\n'));
        QCOMPARE(changed.count(), 0);
        QCOMPARE(availability.shutdownDate(QStringLiteral("tts-1")), QDate(2027, 1, 7));
        QCOMPARE(readFile(availabilityFile()), stored);

        // A damaged file is reported once and read as no file: the catalogue's dates, and a fresh fetch.
        QFile damaged(availabilityFile());
        QVERIFY(damaged.open(QIODevice::WriteOnly | QIODevice::Truncate));
        damaged.write("{\"fetchedAt\": \"yesterday\", \"shutdownDates\": ");
        damaged.close();
        m_server.clearFailures();
        ModelAvailability reading(m_connection, m_clock, availabilityFile());
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
