#include "backend/WebBackend.h"

#include "backend/CertificatePinningDelegate.h"
#include "backend/NetworkError.h"
#include "backend/RequestPolicy.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace parlino::WebBackend {

QString origin()
{
    const QString fromEnvironment = qEnvironmentVariable("PARLINO_BACKEND_URL");
    if (!fromEnvironment.isEmpty())
        return fromEnvironment.endsWith(u'/') ? fromEnvironment.chopped(1) : fromEnvironment;
    return QStringLiteral("https://api.parlino.app");
}

std::optional<QUrl> endpoint(const QString &origin, const QString &path)
{
    const QUrl url(origin + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"https" && url.scheme() != u"http"))
        return std::nullopt;
    return url;
}

QCoro::Task<Answer> postJSON(QNetworkAccessManager &network, QUrl url, QJsonObject body,
                             QList<QPair<QByteArray, QByteArray>> headers, std::chrono::milliseconds timeout)
{
    RequestPolicy::checkURL(url);
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    request.setTransferTimeout(static_cast<int>(timeout.count()));
    RequestPolicy::prepare(request);

    // The coroutine resumes inside the reply's finished signal, so the reply must outlive this frame.
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        network.post(request, QJsonDocument(body).toJson(QJsonDocument::Compact)),
        [](QNetworkReply *finished) { finished->deleteLater(); });
    QNetworkReply *pending = reply.get();
    RequestPolicy::guard(*pending, RequestPolicy::smallJSON);
    co_await pending;

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // Errors below 100 are the connection's (refused, lost, timed out, aborted), not the backend's answer.
    const bool broken = reply->error() > QNetworkReply::NoError && reply->error() < 100;
    if (reply->property(CertificatePinningDelegate::refusedProperty).toBool())
        throw NetworkError(QNetworkReply::OperationCanceledError,
                           QStringLiteral("The server's certificate does not match the pinned certificates."));
    if (!status.isValid() || broken)
        throw NetworkError::fromReply(*reply);
    co_return Answer{status.toInt(), reply->readAll()};
}

} // namespace parlino::WebBackend
