#include "backend/ModelCatalogue.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace parlino;

namespace {

const QJsonValue null(QJsonValue::Null);

// The error object as OpenAI writes it: {"message", "type", "param", "code"}.
QJsonObject errorObject(const char *message, const QJsonValue &code, const QJsonValue &param = null)
{
    return QJsonObject{{QStringLiteral("message"), QString::fromUtf8(message)},
                       {QStringLiteral("type"), QStringLiteral("invalid_request_error")},
                       {QStringLiteral("param"), param},
                       {QStringLiteral("code"), code}};
}

// An answer body: {"error": {...}}.
QByteArray errorBody(const char *message, const QJsonValue &code, const QJsonValue &param = null)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("error"), errorObject(message, code, param)}}).toJson();
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
        const QString notFound = QStringLiteral("model_not_found");

        QTest::newRow("404 deprecated, as the service answers")
            << 404
            << errorBody("The model `tts-1` has been deprecated, learn more here: "
                         "https://platform.openai.com/docs/deprecations",
                         notFound)
            << true;
        QTest::newRow("404 model_not_found")
            << 404 << errorBody("The model `gpt-4o-mini` does not exist or you do not have access to it.", notFound)
            << true;
        QTest::newRow("400 shut down") << 400
                                       << errorBody("The model whisper-1 was SHUT DOWN on 2027-02-26.", null,
                                                    QStringLiteral("model"))
                                       << true;
        QTest::newRow("410 no longer available")
            << 410 << errorBody("This model is no longer available.", null) << true;
        QTest::newRow("plain text") << 404 << QByteArray("The model tts-1-hd has been retired.") << true;

        QTest::newRow("401 invalid key") << 401
                                         << errorBody(
                                                "Incorrect API key provided: sk-abc. You can find your API key at "
                                                "https://platform.openai.com/account/api-keys.",
                                                QStringLiteral("invalid_api_key"))
                                         << false;
        QTest::newRow("404 unknown route") << 404 << errorBody("Invalid URL (POST /v1/audio/speak)", null) << false;
        QTest::newRow("429 rate limit") << 429
                                        << errorBody("Rate limit reached for gpt-4o-mini in organization org-1 on "
                                                     "requests per min (RPM): Limit 3, Used 3, Requested 1.",
                                                     QStringLiteral("rate_limit_exceeded"))
                                        << false;
        QTest::newRow("500") << 500 << errorBody("The model is retired", null) << false;
        QTest::newRow("400 deprecated parameter")
            << 400
            << errorBody("The parameter 'max_tokens' is deprecated for this model.",
                         QStringLiteral("unsupported_parameter"), QStringLiteral("max_tokens"))
            << false;
        QTest::newRow("400 deprecated endpoint")
            << 400 << errorBody("This endpoint has been deprecated.", null) << false;
        QTest::newRow("400 model_not_found") << 400 << errorBody("Invalid model name.", notFound) << false;
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
        // The Realtime API's "error" server event, or its inner error object.
        const QJsonObject notFound =
            errorObject("The model `gpt-realtime` does not exist.", QStringLiteral("model_not_found"));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(notFound));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(
            QJsonObject{{QStringLiteral("type"), QStringLiteral("error")}, {QStringLiteral("error"), notFound}}));
        QVERIFY(ModelCatalogue::isRealtimeRetirementError(
            errorObject("The model gpt-realtime-2.1-mini has been deprecated.", null)));
        QVERIFY(!ModelCatalogue::isRealtimeRetirementError(
            errorObject("Invalid value: 'loud'. Supported values are: 'alloy', 'ash'.", QStringLiteral("invalid_value"),
                        QStringLiteral("session.voice"))));
        QVERIFY(!ModelCatalogue::isRealtimeRetirementError(QJsonObject()));
    }

    void successors()
    {
        // Speech moves to the Realtime API; the others stay with their use.
        const auto tts = ModelCatalogue::successorOf(QStringLiteral("tts-1-hd"));
        QVERIFY(tts && tts->name == u"gpt-realtime-2.1-mini" && tts->role == ModelRole::realtimeSpeech);
        QCOMPARE(ModelCatalogue::successorOf(QStringLiteral("gpt-4o-mini"))->name, QStringLiteral("gpt-6-luna"));
        QCOMPARE(ModelCatalogue::successorOf(QStringLiteral("gpt-4o-transcribe"))->name,
                 QStringLiteral("gpt-transcribe"));
        QVERIFY(!ModelCatalogue::successorOf(QStringLiteral("gpt-5")));

        // Each retiring model leads to a known model of a related use that is not retiring itself.
        for (const KnownModel &model : ModelCatalogue::models()) {
            if (model.shutdownDate.isValid())
                QVERIFY2(ModelCatalogue::successorOf(model.name), qPrintable(model.name));
            if (const auto next = ModelCatalogue::successorOf(model.name)) {
                QVERIFY2(next->shutdownDate.isNull() && next->successor.isEmpty(), qPrintable(next->name));
                QVERIFY(next->role == model.role
                        || (model.role == ModelRole::speech && next->role == ModelRole::realtimeSpeech));
            }
        }
    }

    void chatRequestShapes()
    {
        // gpt-4o-mini is asked exactly as before; newer and unknown models get the current member.
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("gpt-4o-mini")),
                 (ChatRequestShape{QStringLiteral("max_tokens"), true, {}}));
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("gpt-6-luna")),
                 (ChatRequestShape{QStringLiteral("max_completion_tokens"), false, QStringLiteral("none")}));
        QCOMPARE(ModelCatalogue::chatRequestShape(QStringLiteral("some-local-model")),
                 (ChatRequestShape{QStringLiteral("max_completion_tokens"), true, {}}));
    }
};

QTEST_GUILESS_MAIN(TestModelCatalogue)
#include "tst_ModelCatalogue.moc"
