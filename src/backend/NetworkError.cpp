#include "backend/NetworkError.h"

#include "backend/RequestPolicy.h"

namespace parlino {

NetworkError::NetworkError(QNetworkReply::NetworkError code, const QString &description)
    : Error(description)
    , m_code(code)
{
}

NetworkError NetworkError::fromReply(const QNetworkReply &reply)
{
    // A request the policy ended says which rule ended it.
    if (std::optional<NetworkError> refused = RequestPolicy::failureOf(reply))
        return *refused;
    // A transfer time-out aborts the reply, which Qt reports as a cancelled operation.
    if (reply.error() == QNetworkReply::OperationCanceledError || reply.error() == QNetworkReply::TimeoutError)
        return NetworkError(QNetworkReply::OperationCanceledError, QStringLiteral("The request timed out."));
    return NetworkError(reply.error(), reply.errorString());
}

} // namespace parlino
