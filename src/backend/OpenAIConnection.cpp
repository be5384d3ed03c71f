#include "backend/OpenAIConnection.h"

#include "backend/APIKeyFile.h"
#include "backend/KeychainService.h"
#include "backend/NetworkError.h"
#include "backend/OpenAIError.h"
#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace parlino {

QString errorMessageFromBody(const QByteArray &body)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(body);
    if (decoder.hasError())
        return QStringLiteral("Unknown error");
    return text;
}

OpenAIConnection::OpenAIConnection(std::optional<QString> apiKey, QString baseURL, QNetworkAccessManager *network,
                                   QObject *parent)
    : QObject(parent)
    , m_apiKey(std::move(apiKey))
    , m_baseURL(std::move(baseURL))
    , m_network(network ? network : new QNetworkAccessManager(this))
{
    const QString fromEnvironment = qEnvironmentVariable("OPENAI_WEBSOCKET_BASE_URL");
    if (!fromEnvironment.isEmpty()) {
        setWebSocketBaseURL(fromEnvironment);
    } else {
        // The same host speaks the Realtime API over WebSockets: http→ws, https→wss.
        QString derived = m_baseURL;
        if (derived.startsWith(QLatin1String("https:")))
            derived.replace(0, 5, QStringLiteral("wss"));
        else if (derived.startsWith(QLatin1String("http:")))
            derived.replace(0, 4, QStringLiteral("ws"));
        setWebSocketBaseURL(derived);
    }
}

void OpenAIConnection::setWebSocketBaseURL(QString url)
{
    m_webSocketBaseURL = url.endsWith(u'/') ? url.chopped(1) : std::move(url);
}

std::optional<QUrl> OpenAIConnection::webSocketEndpoint(const QString &path) const
{
    const QUrl url(m_webSocketBaseURL + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"wss" && url.scheme() != u"ws"))
        return std::nullopt;
    return url;
}

OpenAIConnection::~OpenAIConnection() = default;

std::optional<QString> OpenAIConnection::lookUpAPIKey(KeychainService &keychain, const APIKeyFile &keyFile,
                                                      Defaults &defaults)
{
    // A key pasted with a line break or blanks around it is still the key: the service refuses it otherwise.
    const QString fromEnvironment = qEnvironmentVariable("OPENAI_API_KEY").trimmed();
    if (!fromEnvironment.isEmpty()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from environment variable";
        return fromEnvironment;
    }
    if (auto fromKeychain = keychain.get(SettingsKeys::openAIAPIKey);
        fromKeychain && !fromKeychain->trimmed().isEmpty()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from Keychain";
        return fromKeychain->trimmed();
    }
    if (auto fromFile = keyFile.read()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from " << keyFile.path();
        return fromFile;
    }
    if (auto fromDefaults = defaults.stringForKey(SettingsKeys::openAIAPIKey);
        fromDefaults && !fromDefaults->trimmed().isEmpty()) {
        PLOG(lcSpeech) << "✅ Loaded OpenAI API key from UserDefaults";
        return fromDefaults->trimmed();
    }
    PLOG(lcSpeech) << "⚠️ No OpenAI API key found - please configure in settings";
    return std::nullopt;
}

QString OpenAIConnection::defaultBaseURL()
{
    const QString fromEnvironment = qEnvironmentVariable("OPENAI_BASE_URL");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment.endsWith(u'/') ? fromEnvironment.chopped(1) : fromEnvironment;
    return QStringLiteral("https://api.openai.com/v1");
}

std::optional<QUrl> OpenAIConnection::endpoint(const QString &path) const
{
    const QUrl url(m_baseURL + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"https" && url.scheme() != u"http"))
        return std::nullopt;
    return url;
}

void OpenAIConnection::setAPIKey(std::optional<QString> key)
{
    if (key)
        key = key->trimmed();
    if (key == m_apiKey)
        return;
    m_apiKey = std::move(key);
    PLOG(lcSpeech) << (hasAPIKey() ? "✅ OpenAI API key set" : "ℹ️ OpenAI API key removed");
    Q_EMIT apiKeyChanged();
}

QNetworkRequest OpenAIConnection::authorizedRequest(const QUrl &url, const std::optional<QString> &key) const
{
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + key.value_or(QString()).toUtf8());
    request.setTransferTimeout(static_cast<int>(m_requestTimeout.count()));
    RequestPolicy::prepare(request);
    return request;
}

void OpenAIConnection::guard(QNetworkReply &reply, RequestPolicy::Limits limits) const
{
    if (m_requestDeadline)
        limits.deadline = *m_requestDeadline;
    RequestPolicy::guard(reply, limits);
}

OpenAIConnection::HttpAnswer OpenAIConnection::answerOf(QNetworkReply &reply, QByteArray alreadyRead)
{
    if (std::optional<NetworkError> refused = RequestPolicy::failureOf(reply))
        throw *refused; // the policy ended it: nothing of it is to be read
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    const QByteArray received = alreadyRead + reply.readAll();
    // A success that broke off after announcing its length says how much of it came, which tells a
    // dropped download from a refused connection.
    if (reply.error() == QNetworkReply::RemoteHostClosedError
        && reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200) {
        if (announced.isValid() && received.size() < announced.toLongLong())
            throw NetworkError(reply.error(), QStringLiteral("OpenAI's answer was cut short (%1 of %2 bytes)")
                                                  .arg(RequestPolicy::groupedNumber(received.size()),
                                                       RequestPolicy::groupedNumber(announced.toLongLong())));
        // Sent in chunks, without a length: the last chunk never came.
        if (!announced.isValid())
            throw NetworkError(reply.error(), QStringLiteral("OpenAI's answer was cut short (%1 bytes arrived)")
                                                  .arg(RequestPolicy::groupedNumber(received.size())));
    }
    HttpAnswer answer{answeredStatus(reply), received, {}, std::nullopt};
    answer.contentType = reply.header(QNetworkRequest::ContentTypeHeader).toByteArray();
    if (const qsizetype parameters = answer.contentType.indexOf(';'); parameters >= 0)
        answer.contentType.truncate(parameters);
    answer.contentType = answer.contentType.trimmed().toLower();
    if (announced.isValid())
        answer.announcedLength = announced.toLongLong();
    return answer;
}

int OpenAIConnection::answeredStatus(const QNetworkReply &reply)
{
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // Errors below 100 are the connection's (refused, lost, timed out), not the service's answer.
    const bool broken = reply.error() > QNetworkReply::NoError && reply.error() < 100;
    if (!status.isValid() || broken) {
        if (reply.error() != QNetworkReply::NoError)
            throw NetworkError::fromReply(reply);
        throw OpenAIError::invalidResponse();
    }
    return status.toInt();
}

QCoro::Task<OpenAIConnection::HttpAnswer> OpenAIConnection::postJSON(QUrl url, QJsonObject body, BodyReceiver onBody,
                                                                     RequestPolicy::Limits limits)
{
    RequestPolicy::checkURL(url);
    QNetworkRequest request = authorizedRequest(url, m_apiKey);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));

    const QByteArray payload = QJsonDocument(body).toJson(QJsonDocument::Compact);
    // The coroutine resumes inside the reply's finished signal, so the reply must outlive this frame.
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        m_network->post(request, payload), [](QNetworkReply *finished) { finished->deleteLater(); });
    QNetworkReply *pending = reply.get();
    guard(*pending, limits);
    auto streamed = std::make_shared<QByteArray>();
    if (onBody) {
        QObject::connect(pending, &QNetworkReply::readyRead, pending, [pending, streamed, onBody] {
            if (pending->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200)
                return; // an error body is read whole at the end
            const QByteArray piece = pending->readAll();
            streamed->append(piece);
            onBody(piece);
        });
    }
    co_await pending;

    HttpAnswer answer = answerOf(*reply, *streamed);
    if (onBody && answer.statusCode == 200 && answer.body.size() > streamed->size())
        onBody(answer.body.mid(streamed->size()));
    co_return answer;
}

QCoro::Task<OpenAIConnection::HttpAnswer> OpenAIConnection::getJSON(QUrl url)
{
    QCoro::Task<HttpAnswer> answer = get(std::move(url), m_apiKey);
    co_return co_await answer;
}

QCoro::Task<std::optional<QString>> OpenAIConnection::checkAPIKey(QString key)
{
    key = key.trimmed();
    if (key.isEmpty())
        co_return QStringLiteral("Enter your OpenAI API key.");
    const std::optional<QUrl> url = endpoint(QStringLiteral("/models"));
    if (!url)
        co_return OpenAIError::invalidURL().description();
    try {
        QCoro::Task<HttpAnswer> pending = get(*url, key);
        const HttpAnswer answer = co_await pending;
        if (answer.statusCode == 200)
            co_return std::nullopt;
        // The service explains a refusal in error.message ("Incorrect API key provided: …").
        const QString message =
            QJsonDocument::fromJson(answer.body).object().value(u"error").toObject().value(u"message").toString();
        co_return QStringLiteral("OpenAI refused the key (%1): %2")
            .arg(answer.statusCode)
            .arg(message.isEmpty() ? errorMessageFromBody(answer.body) : message);
    } catch (const Error &error) {
        co_return QStringLiteral("Could not reach OpenAI to check the key: %1").arg(error.description());
    }
}

QCoro::Task<OpenAIConnection::HttpAnswer> OpenAIConnection::get(QUrl url, std::optional<QString> key)
{
    RequestPolicy::checkURL(url);
    QNetworkRequest request = authorizedRequest(url, key);
    request.setRawHeader("Accept", "application/json");
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        m_network->get(request), [](QNetworkReply *finished) { finished->deleteLater(); });
    QNetworkReply *pending = reply.get();
    guard(*pending, RequestPolicy::smallJSON);
    co_await pending;
    co_return answerOf(*reply, {});
}

QCoro::Task<OpenAIConnection::HttpAnswer> OpenAIConnection::postMultipart(QUrl url, QHttpMultiPart *parts)
{
    // The parts are ours from here, whether or not the request goes out.
    std::unique_ptr<QHttpMultiPart> owned(parts);
    RequestPolicy::checkURL(url);
    const QNetworkRequest request = authorizedRequest(url, m_apiKey);
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        m_network->post(request, parts), [](QNetworkReply *finished) { finished->deleteLater(); });
    // The body is read while the request goes out, so it lives as long as the reply.
    owned.release()->setParent(reply.get());
    QNetworkReply *pending = reply.get();
    guard(*pending, RequestPolicy::longJSON);
    co_await pending;
    co_return answerOf(*reply, {});
}

} // namespace parlino
