#include "backend/ModelCatalogue.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace parlino;

namespace {

// An answer body as OpenAI writes it: {"error": {"message", "type", "param", "code"}}.
QByteArray openAIError(const char *message, const char *type, const QJsonValue &param, const QJsonValue &code)
{
    const QJsonObject error{{QStringLiteral("message"), QString::fromUtf8(message)},
                            {QStringLiteral("type"), QString::fromUtf8(type)},
                            {QStringLiteral("param"), param},
                            {QStringLiteral("code"), code}};
    return QJsonDocument(QJsonObject{{QStringLiteral("error"), error}}).toJson();
}

} // namespace

// Which refusals mean "this model is retired", what follows each model, and how chat requests are shaped.
class TestModelCatalogue final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void retirementErrors_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("retired");
        const QJsonValue null(QJsonValue::Null);

        // What the service answers for a model past its shutdown.
        QTest::newRow("404 deprecated model")
            << 404
            << openAIError("The model `tts-1` has been deprecated, learn more here: "
                           "https://platform.openai.com/docs/deprecations",
                           "invalid_request_error", null, QStringLiteral("model_not_found"))
            << true;
        QTest::newRow("404 model_not_found alone")
            << 404
            << openAIError("The model `gpt-4o-mini` does not exist or you do not have access to it.",
                           "invalid_request_error", null, QStringLiteral("model_not_found"))
            << true;
        QTest::newRow("400 shut down, no code") << 400
                                                << openAIError("The model whisper-1 was SHUT DOWN on 2027-02-26.",
                                                               "invalid_request_error", QStringLiteral("model"), null)
                                                << true;
        QTest::newRow("410 no longer available")
            << 410
            << openAIError("This model is no longer available.", "invalid_request_error", null,
                           QStringLiteral("model_unavailable"))
            << true;
        QTest::newRow("403 message only")
            << 403 << QByteArray("{\"error\": {\"message\": \"Model gpt-4o-mini-tts is retired\"}}") << true;
        QTest::newRow("compatible server, string error")
            << 400 << QByteArray("{\"error\": \"model tts-1 is deprecated\"}") << true;
        QTest::newRow("plain text body") << 404 << QByteArray("The model tts-1-hd has been shut down.") << true;

        // Refusals for other reasons.
        QTest::newRow("401 invalid key") << 401
                                         << openAIError(
                                                "Incorrect API key provided: sk-abc. You can find your API key at "
                                                "https://platform.openai.com/account/api-keys.",
                                                "invalid_request_error", null, QStringLiteral("invalid_api_key"))
                                         << false;
        QTest::newRow("404 unknown route")
            << 404 << openAIError("Invalid URL (POST /v1/audio/speak)", "invalid_request_error", null, null) << false;
        QTest::newRow("429 rate limit")
            << 429
            << openAIError("Rate limit reached for gpt-4o-mini in organization org-1 on requests per min (RPM): "
                           "Limit 3, Used 3, Requested 1.",
                           "requests", null, QStringLiteral("rate_limit_exceeded"))
            << false;
        QTest::newRow("500 mentioning retirement")
            << 500 << openAIError("The model is retired", "server_error", null, null) << false;
        QTest::newRow("503 plain text") << 503 << QByteArray("upstream connect error") << false;
        QTest::newRow("400 deprecated parameter")
            << 400
            << openAIError("The parameter 'max_tokens' is deprecated for this model. Use 'max_completion_tokens' "
                           "instead.",
                           "invalid_request_error", QStringLiteral("max_tokens"),
                           QStringLiteral("unsupported_parameter"))
            << false;
        QTest::newRow("400 deprecated endpoint")
            << 400 << openAIError("This endpoint has been deprecated.", "invalid_request_error", null, null) << false;
        QTest::newRow("400 model_not_found is 404 only")
            << 400
            << openAIError("Invalid model name.", "invalid_request_error", null, QStringLiteral("model_not_found"))
            << false;
        QTest::newRow("200 with the words") << 200 << QByteArray("The model tts-1 is deprecated") << false;
        QTest::newRow("404 empty body") << 404 << QByteArray() << false;
    }

    void retirementErrors()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, retired);
        QCOMPARE(ModelCatalogue::isRetirementError(status, body), retired);
    }

    void realtimeRetirementEvents()
    {
        const auto event = [](const QByteArray &errorBody) {
            QJsonObject error = QJsonDocument::fromJson(errorBody).object().value(u"error").toObject();
            return QJsonObject{{QStringLiteral("type"), QStringLiteral("error")},
                               {QStringLiteral("event_id"), QStringLiteral("event_1")},
                               {QStringLiteral("error"), error}};
        };
        const QJsonValue null(QJsonValue::Null);
        // The whole server event and its inner error object both count.
        const QJsonObject notFound =
            event(openAIError("The model `gpt-realtime` does not exist.", "invalid_request_error", null,
                              QStringLiteral("model_not_found")));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(notFound));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(notFound.value(u"error").toObject()));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(event(
            openAIError("The model gpt-realtime-2.1-mini has been deprecated.", "invalid_request_error", null, null))));
        QVERIFY(!ModelCatalogue::isRealtimeRetirementError(
            event(openAIError("Invalid value: 'loud'. Supported values are: 'alloy', 'ash'.", "invalid_request_error",
                              QStringLiteral("session.voice"), QStringLiteral("invalid_value")))));
        QVERIFY(!ModelCatalogue::isRealtimeRetirementError(
            event(openAIError("The server had an error while processing your request.", "server_error", null, null))));
        QVERIFY(!ModelCatalogue::isRealtimeRetirementError(QJsonObject()));
    }

    void successorsAndRoles()
    {
        const auto successor = [](const QString &model) {
            const auto next = ModelCatalogue::successorOf(model);
            return next ? std::pair(next->name, next->role) : std::pair(QString(), ModelRole::chat);
        };
        for (const char *speech : {"tts-1", "tts-1-hd", "gpt-4o-mini-tts"}) {
            QCOMPARE(successor(QLatin1String(speech)),
                     std::pair(QStringLiteral("gpt-realtime-2.1-mini"), ModelRole::realtimeSpeech));
            QCOMPARE(ModelCatalogue::find(QLatin1String(speech))->shutdownDate, QDate(2027, 1, 6));
        }
        QCOMPARE(successor(QStringLiteral("gpt-4o-mini")), std::pair(QStringLiteral("gpt-6-luna"), ModelRole::chat));
        QCOMPARE(ModelCatalogue::find(QStringLiteral("gpt-4o-mini"))->shutdownDate, QDate(2027, 1, 14));
        for (const char *transcription : {"whisper-1", "gpt-4o-transcribe", "gpt-4o-mini-transcribe"}) {
            QCOMPARE(successor(QLatin1String(transcription)),
                     std::pair(QStringLiteral("gpt-transcribe"), ModelRole::transcription));
            QCOMPARE(ModelCatalogue::find(QLatin1String(transcription))->shutdownDate, QDate(2027, 2, 26));
        }
        // The successors themselves have no date and nothing after them; unknown names have nothing.
        for (const char *current : {"gpt-realtime-2.1-mini", "gpt-realtime-2.1", "gpt-realtime", "gpt-6-luna",
                                    "gpt-transcribe", "gpt-5", ""}) {
            QVERIFY2(!ModelCatalogue::successorOf(QLatin1String(current)), current);
            const auto known = ModelCatalogue::find(QLatin1String(current));
            QVERIFY2(!known || known->shutdownDate.isNull(), current);
        }

        // Every successor is itself in the catalogue, and each use's list starts with its default.
        for (const KnownModel &model : ModelCatalogue::models()) {
            if (!model.successor.isEmpty())
                QVERIFY2(ModelCatalogue::find(model.successor), qPrintable(model.successor));
        }
        QCOMPARE(ModelCatalogue::names(ModelRole::speech).value(0), QStringLiteral("tts-1"));
        QCOMPARE(ModelCatalogue::names(ModelRole::realtimeSpeech).value(0), QStringLiteral("gpt-realtime-2.1-mini"));
        QCOMPARE(ModelCatalogue::names(ModelRole::chat).value(0), QStringLiteral("gpt-4o-mini"));
        QCOMPARE(ModelCatalogue::names(ModelRole::transcription).value(0), QStringLiteral("whisper-1"));
        QVERIFY(ModelCatalogue::isKnown(QStringLiteral("gpt-realtime"), ModelRole::realtimeSpeech));
        QVERIFY(!ModelCatalogue::isKnown(QStringLiteral("gpt-realtime"), ModelRole::speech));
    }

    void chatRequestShapes()
    {
        // gpt-4o-mini is asked exactly as before; newer and unknown models get the current member.
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("gpt-4o-mini")),
                 (ChatRequestShape{QStringLiteral("max_tokens"), true, {}}));
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("gpt-4o")),
                 (ChatRequestShape{QStringLiteral("max_completion_tokens"), true, {}}));
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("gpt-6-luna")),
                 (ChatRequestShape{QStringLiteral("max_completion_tokens"), false, QStringLiteral("none")}));
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("some-local-model")),
                 (ChatRequestShape{QStringLiteral("max_completion_tokens"), true, {}}));
    }
};

QTEST_GUILESS_MAIN(TestModelCatalogue)
#include "tst_ModelCatalogue.moc"
