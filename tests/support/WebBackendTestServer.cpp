#include "WebBackendTestServer.h"

#include <QHttpServerRequest>
#include <QJsonDocument>
#include <QTcpSocket>

namespace parlino::test {

namespace {

QByteArray jsonBody(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray errorBody(const QString &message)
{
    return jsonBody(QJsonObject{{QStringLiteral("error"), message}});
}

} // namespace

WebBackendTestServer::WebBackendTestServer(QObject *parent)
    : QAbstractHttpServer(parent)
{
    m_port = listen(QHostAddress::LocalHost, 0);
    if (m_port == 0)
        qWarning("WebBackendTestServer: could not listen on 127.0.0.1");
}

QString WebBackendTestServer::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

void WebBackendTestServer::addCustomer(const QString &email, qint64 currentMonthCharacters)
{
    m_customers.insert(email, currentMonthCharacters);
}

QList<WebBackendTestServer::Request> WebBackendTestServer::requests(const QString &path) const
{
    QList<Request> matching;
    for (const Request &request : m_requests) {
        if (request.path == path)
            matching.append(request);
    }
    return matching;
}

bool WebBackendTestServer::handleRequest(const QHttpServerRequest &httpRequest, QTcpSocket *socket)
{
    Request request;
    request.path = httpRequest.url().path();
    for (const auto &[name, value] : httpRequest.headers())
        request.headers.insert(name.toLower(), value);
    request.json = QJsonDocument::fromJson(httpRequest.body()).object();
    m_requests.append(request);

    const bool post = httpRequest.method() == QHttpServerRequest::Method::Post;
    if (post && request.path == u"/api/account/fetch")
        send(socket, m_fetchAnswer.value_or(answerAccountFetch(request)));
    else if (post && request.path == u"/api/email/usage-tracked")
        send(socket, m_usageAnswer.value_or(answerUsageTracked(request)));
    else
        send(socket, {404, errorBody(QStringLiteral("Not found"))});
    return true;
}

void WebBackendTestServer::missingHandler(const QHttpServerRequest &, QTcpSocket *socket)
{
    send(socket, {404, errorBody(QStringLiteral("Not found"))});
}

WebBackendTestServer::FixedAnswer WebBackendTestServer::answerAccountFetch(const Request &request) const
{
    if (!request.hasHeader("X-API-Key"))
        return {401, errorBody(QStringLiteral("Missing API key"))};
    if (request.header("X-API-Key") != apiKey())
        return {403, errorBody(QStringLiteral("Invalid API key"))};
    const QString email = request.json.value(QStringLiteral("email")).toString();
    const auto customer = m_customers.constFind(email);
    if (customer == m_customers.cend())
        return {404, errorBody(QStringLiteral("Customer not found"))};
    return {200, jsonBody({{QStringLiteral("email"), email},
                           {QStringLiteral("current_month_characters"), *customer},
                           {QStringLiteral("plan"), QStringLiteral("free")}})};
}

WebBackendTestServer::FixedAnswer WebBackendTestServer::answerUsageTracked(const Request &request) const
{
    if (!m_customers.contains(request.json.value(QStringLiteral("email")).toString()))
        return {404, errorBody(QStringLiteral("Customer not found"))};
    return {200, jsonBody({{QStringLiteral("sent"), true}})};
}

void WebBackendTestServer::send(QTcpSocket *socket, const FixedAnswer &answer)
{
    const auto &[status, body] = answer;
    socket->write("HTTP/1.1 " + QByteArray::number(status) + " Status\r\nContent-Type: application/json\r\n"
                  + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
}

} // namespace parlino::test
