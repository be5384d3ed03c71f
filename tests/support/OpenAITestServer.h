#pragma once

#include <QAbstractHttpServer>
#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <optional>

class QTcpSocket;

namespace parlino::test {

// A stand-in for the OpenAI API on 127.0.0.1 (random port), for tests and for end-to-end runs of the
// app (point OPENAI_BASE_URL at baseUrl()).
//
//   POST /v1/audio/speech      real MP3 speech of the request's "input" (espeak-ng + lame; long inputs
//                              are read only up to their first dozen words, to keep tests quick)
//   POST /v1/chat/completions  a chat-completions answer whose content is chatContent()
//   POST /v1/audio/transcriptions  {"text": the registered transcript} for a multipart upload whose
//                              "file" is a 16-bit PCM WAV with speech energy and of the registered
//                              length; a 400 error naming what is wrong otherwise
//   GET  /v1/models            the model list: the catalogue's models with their shutdown dates, or
//                              the list a test set
//   GET  /_test/requests       the recorded requests as JSON (for tests in another process)
//   POST /_test/config         {"chatContent": "...", "delayMs": n, "speechCharactersPerSecond": n,
//                               "speechFailure"/"chatFailure"/"modelsFailure": {"status": n,
//                               "body": "...", "drop": bool, "afterSuccesses": n} or null,
//                               "transcription": {"text": "...", "minSeconds": n, "maxSeconds": n},
//                               "transcriptionFailure": as the failures above,
//                               "retiredModels": ["tts-1", ...], "models": [{"id": ...}, ...] or null,
//                               "fault": {"path": "/v1/audio/speech", "kind": "htmlPage", "count": n,
//                                         "redirectTo": "...", "dripMs": n}}
//
// Every request to /v1 is recorded. Failures, delays and dropped connections can be switched on, and
// models can be retired: a speech or chat request naming one is refused as the service refuses them.
// A fault (setFault) bends the answer of one path the way broken servers and proxies do.
class OpenAITestServer final : public QAbstractHttpServer {
    Q_OBJECT
public:
    struct Request {
        QByteArray method;
        QString path;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
        QJsonObject json;                      // the body parsed as a JSON object, empty when it is not one
        QHash<QString, QByteArray> formFields; // the parts of a multipart/form-data body, by name

        [[nodiscard]] QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };

    // What a failing endpoint answers: a status with a body, a connection closed without an answer,
    // or (speech) a success whose body stops halfway.
    struct Failure {
        int status = 500;
        QByteArray body;
        bool dropConnection = false;
        bool cutShort = false;

        [[nodiscard]] static Failure error(int status, QByteArray body = {})
        {
            return {status, std::move(body), false, false};
        }
        [[nodiscard]] static Failure dropped() { return {0, {}, true, false}; }
        [[nodiscard]] static Failure bodyCutShort() { return {200, {}, false, true}; }
    };

    // How the answer of a path goes wrong.
    enum class Fault {
        none,
        cutShort,  // the whole length announced, half the body sent, the connection closed
        stall,     // the headers, then nothing
        drip,      // the headers, then one byte every dripInterval()
        redirect,  // 307 to redirectTarget()
        htmlPage,  // 200 with a proxy's HTML page
        emptyBody, // 200 with the usual content type and no body
        oversized, // 200 without a length, then data until the client hangs up (up to 64 MB)
    };

    // What the transcription endpoint answers, and the length an upload must have to get it.
    struct Transcription {
        QString text;
        double minSeconds = 0;
        double maxSeconds = 600;
    };

    // What the server found in an uploaded WAV file.
    struct WavInfo {
        bool valid = false;
        QString problem; // why it is not valid
        int sampleRate = 0;
        int channels = 0;
        double seconds = 0;
        double rootMeanSquare = 0; // of all samples, 0…1
    };
    // Reads a 16-bit PCM WAV file as the transcription endpoint does.
    [[nodiscard]] static WavInfo inspectWav(const QByteArray &wav);
    // The loudness below which an upload counts as silence.
    static constexpr double kSpeechEnergy = 0.01;

    explicit OpenAITestServer(QObject *parent = nullptr);
    ~OpenAITestServer() override;

    // http://127.0.0.1:PORT/v1
    [[nodiscard]] QUrl baseUrl() const;
    [[nodiscard]] QString baseUrlString() const { return baseUrl().toString(); }

    [[nodiscard]] QList<Request> requests() const;
    // Recorded requests whose path ends with pathSuffix, e.g. "/audio/speech".
    [[nodiscard]] QList<Request> requests(const QString &pathSuffix) const;
    void clearRequests();

    void setChatContent(const QString &content);
    [[nodiscard]] QString chatContent() const;
    // The next afterSuccesses requests to the endpoint succeed, every later one fails.
    void setSpeechFailure(const Failure &failure, int afterSuccesses = 0);
    void setChatFailure(const Failure &failure, int afterSuccesses = 0);
    void setModelsFailure(const Failure &failure, int afterSuccesses = 0);
    void setTranscriptionFailure(const Failure &failure, int afterSuccesses = 0);
    void setTranscription(const Transcription &transcription);
    void clearFailures();
    // Speech and chat requests naming one of these models get OpenAI's 404 "model_not_found" answer.
    void setRetiredModels(const QStringList &models);
    [[nodiscard]] QStringList retiredModels() const;
    // The "data" array that GET /v1/models answers; resetModelList() goes back to defaultModelList().
    void setModelList(const QJsonArray &models);
    void resetModelList();
    // Every model of the app's catalogue, with "shutdown_date" where the catalogue knows one (else null).
    [[nodiscard]] static QJsonArray defaultModelList();
    // The body the service answers for a request naming a retired model.
    [[nodiscard]] static QByteArray retiredModelBody(const QString &model);
    // The next `count` requests to path (e.g. "/v1/audio/speech"; -1: every one) get `fault`.
    void setFault(const QString &path, Fault fault, int count = -1);
    void setDripInterval(std::chrono::milliseconds interval);
    // Where Fault::redirect sends the client.
    void setRedirectTarget(const QUrl &target);
    // Waits this long before answering each request (the connection stays open meanwhile).
    void setDelay(std::chrono::milliseconds delay);
    // Only this bearer key is accepted; any other gets the service's 401 "Incorrect API key provided"
    // answer. Empty (the default) accepts every key.
    void setAcceptedKey(const QString &key);
    // Shapes speech answers like the real service making charactersPerSecond of input a second: after
    // the delay the headers and the first bytes, the spoken words' audio at that pace, and the end of
    // the answer after input length / charactersPerSecond. 0 sends it at once.
    void setSpeechPace(double charactersPerSecond);

    // The MP3 the server answers for input (cached per input text).
    [[nodiscard]] QByteArray speechFor(const QString &input);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    struct Answer {
        int status = 200;
        QByteArray contentType;
        QByteArray body;
        bool drop = false;
        bool cutShort = false;
        // Paced: seconds over which the audio of the spoken words is sent, in small pieces, and the
        // seconds after which the answer ends (its last byte), as for the whole input.
        double audioSeconds = 0;
        double spreadSeconds = 0;
        Fault fault = Fault::none;
        QByteArray location = {};
        int dripMs = 0;
    };
    struct FaultPlan {
        Fault fault = Fault::none;
        int remaining = -1;
    };
    struct FailurePlan {
        std::optional<Failure> failure;
        int successesLeft = 0;
    };

    Answer answerSpeech(const Request &request);
    Answer answerChat(const Request &request);
    Answer answerModels();
    Answer answerTranscription(const Request &request);
    // The refusal of a request that names a retired model, if it does. Called with m_mutex held.
    std::optional<Answer> retiredAnswer(const Request &request) const;
    Answer answerConfig(const Request &request);
    Answer answerRequestLog() const;
    // The answer bent by the fault switched on for path, if any.
    Answer withFault(const QString &path, Answer answer);
    static std::optional<Answer> failureAnswer(FailurePlan &plan);
    static void send(QTcpSocket *socket, const Answer &answer);
    // The answers of Fault::cutShort, stall, drip and oversized; head: the status and header lines so far.
    static void sendFaulty(QTcpSocket *socket, const Answer &answer, QByteArray head);

    mutable QMutex m_mutex;
    QList<Request> m_requests;
    QString m_chatContent = QStringLiteral("This is a test answer.");
    FailurePlan m_speechFailure;
    FailurePlan m_chatFailure;
    FailurePlan m_modelsFailure;
    FailurePlan m_transcriptionFailure;
    Transcription m_transcription{QStringLiteral("What is this about?")};
    QStringList m_retiredModels;
    QJsonArray m_modelList = defaultModelList();
    std::chrono::milliseconds m_delay{0};
    QString m_acceptedKey;
    double m_speechPace = 0;
    QHash<QString, FaultPlan> m_faults;
    std::chrono::milliseconds m_dripInterval{200};
    QUrl m_redirectTarget;
    QHash<QString, QByteArray> m_speechCache;
    quint16 m_port = 0;
};

} // namespace parlino::test
