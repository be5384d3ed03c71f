#include "backend/NetworkError.h"

namespace parlino {

NetworkError::NetworkError(QNetworkReply::NetworkError code, const QString &description)
    : Error(description)
    , m_code(code)
{
}

NetworkError NetworkError::fromReply(const QNetworkReply &reply)
{
    // A transfer time-out aborts the reply, which Qt reports as a cancelled operation.
    if (reply.error() == QNetworkReply::OperationCanceledError || reply.error() == QNetworkReply::TimeoutError)
        return NetworkError(QNetworkReply::OperationCanceledError, QStringLiteral("The request timed out."));
    return NetworkError(reply.error(), reply.errorString());
}

} // namespace parlino
