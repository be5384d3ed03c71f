#pragma once

#include "backend/RequestPolicy.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <functional>
#include <optional>

class QHttpMultiPart;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

namespace parlino {

class APIKeyFile;
class Defaults;
class KeychainService;

// What every OpenAI request shares: the key, the API root, the HTTP client and the time-out. The
// speech and chat sides build their requests on it.
//
// Failures reach the caller as OpenAIError (an unusable answer) or NetworkError (no answer at all).
class OpenAIConnection final : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds defaultRequestTimeout{60000};

    struct HttpAnswer {
        int statusCode = 0;
        QByteArray body;
        // The Content-Type without its parameters ("audio/mpeg"), empty when none was given.
        QByteArray contentType;
        // The Content-Length the server announced, when it did.
        std::optional<qint64> announcedLength;
    };

    // apiKey: the key sent as bearer token (an absent key is sent empty and the service refuses it).
    // baseURL: the API root including "/v1". network: nullptr gives the connection its own manager.
    OpenAIConnection(std::optional<QString> apiKey, QString baseURL, QNetworkAccessManager *network = nullptr,
                     QObject *parent = nullptr);
    ~OpenAIConnection() override;

    // OPENAI_API_KEY from the environment, else the keyring item "openai_api_key", else the key entered
    // in Parlino (keyFile), else the defaults string "openai_api_key"; logs where it came from.
    [[nodiscard]] static std::optional<QString> lookUpAPIKey(KeychainService &keychain, const APIKeyFile &keyFile,
                                                             Defaults &defaults);
    // OPENAI_BASE_URL when set (OpenAI-compatible servers, the test server), else OpenAI's own.
    [[nodiscard]] static QString defaultBaseURL();

    [[nodiscard]] const std::optional<QString> &apiKey() const { return m_apiKey; }
    [[nodiscard]] bool hasAPIKey() const { return !m_apiKey.value_or(QString()).trimmed().isEmpty(); }
    // A key entered while the app runs: every later request uses it.
    void setAPIKey(std::optional<QString> key);
    [[nodiscard]] const QString &baseURL() const { return m_baseURL; }
    // The Realtime API's root: OPENAI_WEBSOCKET_BASE_URL when set, else baseURL with ws/wss.
    [[nodiscard]] const QString &webSocketBaseURL() const { return m_webSocketBaseURL; }
    void setWebSocketBaseURL(QString url);
    // Idle time after which a request gives up; 60 s unless a test shortens it.
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_requestTimeout = timeout; }
    // A deadline for every request in place of each request's own (RequestPolicy's limits); for tests.
    void setRequestDeadline(std::optional<std::chrono::milliseconds> deadline) { m_requestDeadline = deadline; }

    // baseURL + path, or nothing when that is no usable URL.
    [[nodiscard]] std::optional<QUrl> endpoint(const QString &path) const;
    // webSocketBaseURL + path, or nothing when that is no usable ws/wss URL.
    [[nodiscard]] std::optional<QUrl> webSocketEndpoint(const QString &path) const;
    [[nodiscard]] std::chrono::milliseconds requestTimeout() const { return m_requestTimeout; }
    // Each piece of a successful answer's body, as it arrives.
    using BodyReceiver = std::function<void(const QByteArray &piece)>;

    // POSTs body as JSON with the key; any HTTP answer comes back, whatever its status. An answer
    // that breaks off (the connection lost, a time-out) is a NetworkError, never a short body; so is
    // a URL that RequestPolicy refuses, before anything is sent. onBody, when given, sees a 200
    // answer's body as it streams in. limits: the deadline and the largest body (speech passes audio).
    QCoro::Task<HttpAnswer> postJSON(QUrl url, QJsonObject body, BodyReceiver onBody = {},
                                     RequestPolicy::Limits limits = RequestPolicy::longJSON);
    // GETs url with the key, asking for JSON; any HTTP answer comes back as for postJSON.
    QCoro::Task<HttpAnswer> getJSON(QUrl url);
    // POSTs a multipart/form-data body (file uploads) with the key; takes ownership of parts. Any HTTP
    // answer comes back as for postJSON.
    QCoro::Task<HttpAnswer> postMultipart(QUrl url, QHttpMultiPart *parts);
    // Asks the service whether `key` is accepted (GET /models with it). Nothing on success; otherwise
    // the text to show: the service's own message for a refused key, the reason when it was not reached.
    QCoro::Task<std::optional<QString>> checkAPIKey(QString key);

Q_SIGNALS:
    void apiKeyChanged();

private:
    [[nodiscard]] QNetworkRequest authorizedRequest(const QUrl &url, const std::optional<QString> &key) const;
    // Puts reply under the request policy with limits, or the test's deadline.
    void guard(QNetworkReply &reply, RequestPolicy::Limits limits) const;
    // The finished reply as an answer; alreadyRead: the body bytes taken from it while it arrived.
    [[nodiscard]] static HttpAnswer answerOf(QNetworkReply &reply, QByteArray alreadyRead);
    QCoro::Task<HttpAnswer> get(QUrl url, std::optional<QString> key);
    // The answer's status; throws NetworkError or OpenAIError when there was no HTTP answer.
    [[nodiscard]] static int answeredStatus(const QNetworkReply &reply);

    std::optional<QString> m_apiKey;
    QString m_baseURL;
    QString m_webSocketBaseURL;
    QNetworkAccessManager *m_network;
    std::chrono::milliseconds m_requestTimeout = defaultRequestTimeout;
    std::optional<std::chrono::milliseconds> m_requestDeadline;
};

// The body of a failed answer as the error's message: its UTF-8 text, "Unknown error" when it is not UTF-8.
[[nodiscard]] QString errorMessageFromBody(const QByteArray &body);

} // namespace parlino
