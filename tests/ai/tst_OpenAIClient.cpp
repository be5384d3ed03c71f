#include "AwaitTask.h"
#include "LocalOpenAI.h"
#include "LogCapture.h"
#include "OpenAITestServer.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace parlino;
using namespace parlino::test;

namespace {

// The prompts as the product defines them, written out here independently of the client's copy.
const QString summaryPrompt = QStringLiteral(
    "You are creating an AUDIO SUMMARY that will be narrated to a listener. Write in a natural, conversational "
    "speaking voice as if you're explaining the key points to someone.\n\nGuidelines:\n- Use a friendly, engaging "
    "tone suitable for listening\n- Structure the summary as spoken narration, not written text\n- Include natural "
    "transitions between points (\"First...\", \"Additionally...\", \"Most importantly...\")\n- Avoid bullet points, "
    "lists, or written formatting - speak in complete sentences\n- Make it flow naturally when read aloud\n- Focus on "
    "the most important insights and takeaways\n\nTarget length: ");

const QString educationalInstructions = QStringLiteral(
    "You are an expert educational podcast creator. Convert the provided content into an engaging educational "
    "podcast script.\n\nStructure:\n1. Introduction - Hook the listener and preview key topics\n2. Key Concepts - "
    "Explain main ideas clearly with examples\n3. Practical Applications - How to use this information\n4. Summary - "
    "Recap main points and takeaways\n\nStyle: Clear, friendly, informative. Use analogies and examples. Break down "
    "complex ideas.\nTone: Enthusiastic teacher helping someone learn");

QJsonObject message(const QString &role, const QString &content)
{
    return {{QStringLiteral("role"), role}, {QStringLiteral("content"), content}};
}

} // namespace

class TestOpenAIClient final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    LocalOpenAI m_openAI{m_env};
    Defaults &m_defaults = m_openAI.defaults;
    OpenAITestServer &m_server = m_openAI.server;
    ModelSettings &m_models = m_openAI.models;
    OpenAIClient &m_client = m_openAI.client;

    // The one chat request made since init(), after checking what every chat request carries.
    QJsonObject onlyChatRequest(double temperature, int maxTokens)
    {
        const auto requests = m_server.requests();
        if (requests.size() != 1 || requests[0].path != u"/v1/chat/completions") {
            qWarning() << "expected one chat request, got" << requests.size();
            return {};
        }
        const QJsonObject body = requests[0].json;
        const bool common =
            requests[0].header("Authorization") == "Bearer chat-key"
            && requests[0].header("Content-Type") == "application/json"
            && body.value(u"model").toString() == u"gpt-4o-mini" && body.value(u"temperature").toDouble() == temperature
            && body.value(u"max_tokens").toInt() == maxTokens && body.value(u"max_tokens").toDouble() == maxTokens;
        if (!common) {
            qWarning() << "unexpected request" << body;
            return {};
        }
        return body;
    }

private Q_SLOTS:
    void init()
    {
        m_server.clearRequests();
        m_server.clearFailures();
        m_server.setChatContent(QStringLiteral("A fine answer."));
    }

    void summarySendsPromptAndLevel_data()
    {
        QTest::addColumn<SummaryLength>("length");
        QTest::addColumn<QString>("instruction");
        QTest::addColumn<int>("maxTokens");
        QTest::newRow("short") << SummaryLength::short_ << QStringLiteral("20-25% of original length, 3 key points")
                               << 200;
        QTest::newRow("medium") << SummaryLength::medium << QStringLiteral("25-30% of original length, 5 key points")
                                << 400;
        QTest::newRow("long") << SummaryLength::long_ << QStringLiteral("30-40% of original length, 7-10 key points")
                              << 600;
    }

    void summarySendsPromptAndLevel()
    {
        QFETCH(SummaryLength, length);
        QFETCH(QString, instruction);
        QFETCH(int, maxTokens);
        const auto outcome = awaitTask(m_client.summarize(QStringLiteral("The text."), length));
        QCOMPARE(outcome.value, QStringLiteral("A fine answer."));
        const QJsonObject body = onlyChatRequest(0.3, maxTokens);
        QCOMPARE(
            body.value(u"messages").toArray(),
            (QJsonArray{message(QStringLiteral("system"), summaryPrompt + instruction),
                        message(QStringLiteral("user"),
                                QStringLiteral(
                                    "Create an audio summary of this content that I can listen to:\n\nThe text."))}));
        QVERIFY(!body.contains(u"response_format"));
    }

    void questionSendsContextAndTheLastSixTurns()
    {
        QList<AIMessage> history;
        for (int i = 0; i < 10; ++i)
            history.append(AIMessage{QUuid::createUuid(), i % 2 ? MessageRole::assistant : MessageRole::user,
                                     QStringLiteral("turn %1").arg(i), QDateTime::currentDateTimeUtc()});
        const QString context = QString(3000, u'a') + QString(2000, u'b');
        const auto outcome = awaitTask(m_client.answerQuestion(QStringLiteral("Why?"), context, history));
        QCOMPARE(outcome.value, QStringLiteral("A fine answer."));

        const QJsonArray messages = onlyChatRequest(0.7, 200).value(u"messages").toArray();
        QJsonArray expected{message(
            QStringLiteral("system"),
            QStringLiteral("You are a helpful learning assistant. The user is listening to audio narration of the "
                           "following content:\n\n---\n")
                + QString(3000, u'a')
                + QStringLiteral("\n---\n\nAnswer their question clearly and concisely, referencing the content "
                                 "they're listening to. Keep your answer under 60 seconds when spoken (about 150 "
                                 "words). Focus on helping them understand the material."))};
        for (int i = 4; i < 10; ++i)
            expected.append(message(i % 2 ? QStringLiteral("assistant") : QStringLiteral("user"),
                                    QStringLiteral("turn %1").arg(i)));
        expected.append(message(QStringLiteral("user"), QStringLiteral("Why?")));
        QCOMPARE(messages, expected);

        // A short history is sent whole.
        m_server.clearRequests();
        QVERIFY(
            awaitTask(m_client.answerQuestion(QStringLiteral("And?"), QStringLiteral("ctx"), history.mid(0, 2))).value);
        QCOMPARE(onlyChatRequest(0.7, 200).value(u"messages").toArray().size(), 4);
    }

    void podcastScriptCarriesStyleDurationAndText()
    {
        QStringList words;
        for (int i = 0; i < 450; ++i)
            words << QStringLiteral("w%1").arg(i);
        const QString text = words.join(QStringLiteral(" \n "));
        m_server.setChatContent(QStringLiteral("Welcome to the show."));

        LogCapture log;
        const auto outcome = awaitTask(m_client.generatePodcastScript(text, PodcastType::educational));
        QCOMPARE(outcome.value, QStringLiteral("Welcome to the show."));
        const QJsonArray messages = onlyChatRequest(0.8, 4000).value(u"messages").toArray();
        QCOMPARE(messages,
                 (QJsonArray{message(
                     QStringLiteral("user"),
                     educationalInstructions
                         + QStringLiteral("\n\nTarget Duration: 3\u20134 minutes\nSource Word Count: 450 words\n\n"
                                          "Please create an engaging podcast script based on this content:\n\n---\n")
                         + text
                         + QStringLiteral("\n---\n\nRemember:\n- Make it conversational and engaging for audio\n- "
                                          "Maintain the key information and insights\n- Length should match the target "
                                          "duration\n- Write ONLY the script content (no stage directions or "
                                          "meta-commentary)"))}));
        QVERIFY(log.containsInOrder({QStringLiteral("📝 Generating podcast script for type: Educational"),
                                     QStringLiteral("✅ Podcast script generated (20 characters)")}));
    }

    void podcastDurationEstimates()
    {
        QCOMPARE(estimateDuration(PodcastType::educational, 450), QStringLiteral("3\u20134 minutes"));
        QCOMPARE(estimateDuration(PodcastType::quickSummary, 1500), QStringLiteral("3\u20135 minutes"));
        QCOMPARE(estimateDuration(PodcastType::deepDive, 300), QStringLiteral("3\u20134 minutes"));
        for (PodcastType type : allPodcastTypes)
            QCOMPARE(estimateDuration(type, 149), QStringLiteral("0\u20130 minutes"));
    }

    void podcastMetadataIsAJsonObjectWithTitleAndSummary()
    {
        m_server.setChatContent(
            QStringLiteral("{\"title\": \"Cells at Work\", \"summary\": \"Two sentences. Here.\"}"));
        const QString script = QString(1000, u's') + QStringLiteral("TAIL");
        const auto outcome = awaitTask(m_client.generatePodcastMetadata(script, QStringLiteral("SOURCE TEXT")));
        QCOMPARE(outcome.value,
                 (PodcastMetadata{QStringLiteral("Cells at Work"), QStringLiteral("Two sentences. Here.")}));

        const QJsonObject body = onlyChatRequest(0.7, 200);
        QCOMPARE(body.value(u"response_format").toObject(),
                 (QJsonObject{{QStringLiteral("type"), QStringLiteral("json_object")}}));
        const QString content = body.value(u"messages").toArray().at(0).toObject().value(u"content").toString();
        QCOMPARE(
            content,
            QStringLiteral("Based on this podcast script and source material, generate a compelling title and "
                           "summary.\n\nPodcast Script Preview:\n")
                + QString(1000, u's')
                + QStringLiteral("...\n\nGenerate:\n1. A compelling, descriptive title (max 60 characters)\n2. A "
                                 "concise 2-sentence summary of what this podcast covers\n\nReturn ONLY valid JSON "
                                 "in this exact format:\n{\"title\": \"Your Title Here\", \"summary\": \"Your "
                                 "summary here.\"}"));
    }

    void podcastMetadataRejectsOtherAnswers_data()
    {
        QTest::addColumn<QString>("content");
        QTest::newRow("prose") << QStringLiteral("Title: Cells");
        QTest::newRow("no summary") << QStringLiteral("{\"title\": \"Cells\"}");
        QTest::newRow("number title") << QStringLiteral("{\"title\": 7, \"summary\": \"S\"}");
        QTest::newRow("array") << QStringLiteral("[{\"title\": \"T\", \"summary\": \"S\"}]");
    }

    void podcastMetadataRejectsOtherAnswers()
    {
        QFETCH(QString, content);
        m_server.setChatContent(content);
        const auto outcome = awaitTask(m_client.generatePodcastMetadata(QStringLiteral("script"), QString()));
        QCOMPARE(outcome.error, QStringLiteral("Invalid response from server"));
    }

    void audioTitleIsTrimmedOnly()
    {
        m_server.setChatContent(QStringLiteral("  \nMarket-Analysis-Report!\n "));
        const QString context = QString(500, u'c') + QStringLiteral("DROPPED");
        const auto outcome = awaitTask(m_client.generateAudioTitle(context));
        QCOMPARE(outcome.value, QStringLiteral("Market-Analysis-Report!"));
        const QString content =
            onlyChatRequest(0.5, 20).value(u"messages").toArray().at(0).toObject().value(u"content").toString();
        QCOMPARE(content,
                 QStringLiteral("Based on this text content, generate a concise, descriptive filename (3-5 words max, "
                                "no special characters).\nMake it clear what the audio is about.\n\nContent:\n")
                     + QString(500, u'c')
                     + QStringLiteral("...\n\nReturn ONLY the title text, nothing else. Use hyphens instead of "
                                      "spaces.\nExample: Market-Analysis-Report or Product-Launch-Summary"));
    }

    void failedAnswersFailTheCall_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("description");
        QTest::newRow("401") << 401 << QByteArray("{\"error\":\"bad key\"}")
                             << QStringLiteral("API Error (401): {\"error\":\"bad key\"}");
        QTest::newRow("not UTF-8") << 500 << QByteArray("\xc3\x28") << QStringLiteral("API Error (500): Unknown error");
        QTest::newRow("200 not JSON") << 200 << QByteArray("<html>") << QStringLiteral("Invalid response from server");
        QTest::newRow("200 no content") << 200 << QByteArray("{\"choices\":[{\"message\":{}}]}")
                                        << QStringLiteral("Invalid response from server");
        QTest::newRow("200 no choices") << 200 << QByteArray("{\"choices\":[]}")
                                        << QStringLiteral("No response from API");
    }

    void failedAnswersFailTheCall()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, description);
        m_server.setChatFailure(OpenAITestServer::Failure::error(status, body));
        QCOMPARE(awaitTask(m_client.summarize(QStringLiteral("x"), SummaryLength::short_)).error, description);
        QCOMPARE(awaitTask(m_client.generateAudioTitle(QStringLiteral("x"))).error, description);
    }

    void retiredChatModelIsFollowedByItsSuccessorOnce()
    {
        // The service refuses gpt-4o-mini: the same request goes once more to gpt-6-luna, shaped as it
        // takes it (a reasoning model: max_completion_tokens, its own temperature, no reasoning spent).
        m_server.setRetiredModels({QStringLiteral("gpt-4o-mini")});
        QSignalSpy switched(&m_models, &ModelSettings::switchedToSuccessor);
        const auto outcome = awaitTask(m_client.generateAudioTitle(QStringLiteral("Rivers and towns.")));
        QCOMPARE(outcome.value, QStringLiteral("A fine answer."));
        const auto requests = m_server.requests(QStringLiteral("/chat/completions"));
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[0].json.value(u"model").toString(), QStringLiteral("gpt-4o-mini"));
        const QJsonObject repeated = requests[1].json;
        QCOMPARE(repeated.value(u"model").toString(), QStringLiteral("gpt-6-luna"));
        QCOMPARE(repeated.value(u"max_completion_tokens").toInt(), 20);
        QVERIFY(!repeated.contains(u"max_tokens") && !repeated.contains(u"temperature"));
        QCOMPARE(repeated.value(u"reasoning_effort").toString(), QStringLiteral("none"));
        QCOMPARE(repeated.value(u"messages"), requests[0].json.value(u"messages"));
        QCOMPARE(switched.size(), 1);

        // Kept: the next request asks the successor directly. A refusal of the successor is the user's.
        m_server.clearRequests();
        QVERIFY(awaitTask(m_client.summarize(QStringLiteral("Text."), SummaryLength::short_)).value);
        QCOMPARE(m_server.requests().size(), 1);
        m_server.setRetiredModels({QStringLiteral("gpt-6-luna")});
        const auto refused = awaitTask(m_client.summarize(QStringLiteral("Text."), SummaryLength::short_));
        QVERIFY(refused.error && refused.error->startsWith(QStringLiteral("API Error (404): ")));
        QCOMPARE(switched.size(), 1);
        m_server.setRetiredModels({});
        m_defaults.remove(SettingsKeys::chatModel);
    }
};

QTEST_GUILESS_MAIN(TestOpenAIClient)
#include "tst_OpenAIClient.moc"
