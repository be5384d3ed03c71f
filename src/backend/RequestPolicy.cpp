#include "backend/RequestPolicy.h"

#include "backend/NetworkError.h"
#include "core/Logging.h"

#include <QHostAddress>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace parlino {

namespace {

constexpr const char *kFailureProperty = "parlinoRequestPolicyFailure";
constexpr const char *kCodeProperty = "parlinoRequestPolicyCode";

int defaultPort(const QUrl &url)
{
    return url.scheme() == u"https" ? 443 : url.scheme() == u"http" ? 80 : -1;
}

// Ends reply and notes why, so the caller's error names the rule rather than "Operation canceled".
void refuse(QNetworkReply &reply, QNetworkReply::NetworkError code, const QString &reason)
{
    if (reply.isFinished() || reply.property(kFailureProperty).isValid())
        return;
    PWARN(lcBackend) << "❌ " << reason;
    reply.setProperty(kFailureProperty, reason);
    reply.setProperty(kCodeProperty, static_cast<int>(code));
    reply.abort();
}

} // namespace

bool RequestPolicy::isLoopback(const QUrl &url)
{
    const QString host = url.host();
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

bool RequestPolicy::isSameOrigin(const QUrl &a, const QUrl &b)
{
    return a.scheme() == b.scheme() && a.host().compare(b.host(), Qt::CaseInsensitive) == 0
           && a.port(defaultPort(a)) == b.port(defaultPort(b));
}

std::optional<QString> RequestPolicy::refusalOf(const QUrl &url)
{
    // WebSockets (the Realtime API) follow the same rule: wss anywhere, ws only to this computer.
    const bool secure = url.scheme() == u"https" || url.scheme() == u"wss";
    const bool plain = url.scheme() == u"http" || url.scheme() == u"ws";
    if (secure && !url.host().isEmpty())
        return std::nullopt;
    if (plain && isLoopback(url))
        return std::nullopt;
    if (plain)
        return QStringLiteral("Refused to send a request to %1 over plain %2: only this computer is asked "
                              "without https.")
            .arg(url.host(), url.scheme());
    return QStringLiteral("Refused to send a request to %1: only https addresses are used.")
        .arg(url.toDisplayString(QUrl::RemoveUserInfo | QUrl::RemoveQuery));
}

void RequestPolicy::checkURL(const QUrl &url)
{
    if (const std::optional<QString> refusal = refusalOf(url)) {
        PWARN(lcBackend) << "❌ " << *refusal;
        throw NetworkError(QNetworkReply::ProtocolUnknownError, *refusal);
    }
}

void RequestPolicy::prepare(QNetworkRequest &request)
{
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::UserVerifiedRedirectPolicy);
}

void RequestPolicy::guard(QNetworkReply &reply, Limits limits)
{
    QNetworkReply *watched = &reply;
    const QUrl origin = reply.url();
    QObject::connect(watched, &QNetworkReply::redirected, watched, [watched, origin](const QUrl &target) {
        const QUrl resolved = origin.resolved(target);
        // The request's headers (the key among them) go along with a redirect, so only the origin
        // that was asked may receive it.
        if (isSameOrigin(origin, resolved)) {
            Q_EMIT watched->redirectAllowed();
            return;
        }
        refuse(*watched, QNetworkReply::InsecureRedirectError,
               QStringLiteral("The server at %1 redirected the request to %2; the redirect was not followed.")
                   .arg(origin.host(), resolved.toDisplayString(QUrl::RemoveUserInfo | QUrl::RemoveQuery)));
    });

    const qint64 cap = limits.maxBodyBytes;
    const auto checkSize = [watched, cap](qint64 size) {
        if (size > cap)
            refuse(*watched, QNetworkReply::UnknownContentError,
                   QStringLiteral("The answer was larger than %1 bytes and was not read further.")
                       .arg(groupedNumber(cap)));
    };
    // An announced length over the cap ends the request before its body arrives.
    QObject::connect(watched, &QNetworkReply::metaDataChanged, watched, [watched, checkSize] {
        const QVariant announced = watched->header(QNetworkRequest::ContentLengthHeader);
        if (announced.isValid())
            checkSize(announced.toLongLong());
    });
    QObject::connect(watched, &QNetworkReply::downloadProgress, watched,
                     [checkSize](qint64 received, qint64) { checkSize(received); });

    const qint64 seconds = std::chrono::duration_cast<std::chrono::seconds>(limits.deadline).count();
    auto *deadline = new QTimer(watched);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, watched, [watched, seconds, limits] {
        refuse(*watched, QNetworkReply::OperationCanceledError,
               seconds > 0 ? QStringLiteral("The request timed out: no complete answer within %1 s.").arg(seconds)
                           : QStringLiteral("The request timed out: no complete answer within %1 ms.")
                                 .arg(limits.deadline.count()));
    });
    QObject::connect(watched, &QNetworkReply::finished, deadline, &QTimer::stop);
    deadline->start(limits.deadline);
}

std::optional<NetworkError> RequestPolicy::failureOf(const QNetworkReply &reply)
{
    const QVariant reason = reply.property(kFailureProperty);
    if (!reason.isValid())
        return std::nullopt;
    return NetworkError(static_cast<QNetworkReply::NetworkError>(reply.property(kCodeProperty).toInt()),
                        reason.toString());
}

QString RequestPolicy::groupedNumber(qint64 number)
{
    QString digits = QString::number(number < 0 ? -number : number);
    for (qsizetype at = digits.size() - 3; at > 0; at -= 3)
        digits.insert(at, u' ');
    return number < 0 ? u'-' + digits : digits;
}

} // namespace parlino
