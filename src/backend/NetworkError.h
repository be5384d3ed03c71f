#pragma once

#include "core/Error.h"

#include <QNetworkReply>

namespace parlino {

// A request that never got an HTTP answer: refused or dropped connection, DNS failure, time-out.
// Kept apart from OpenAIError so callers can tell "the service said no" from "we could not reach it".
class NetworkError final : public Error {
public:
    NetworkError(QNetworkReply::NetworkError code, const QString &description);

    // "The request timed out." for a time-out, Qt's own text otherwise.
    [[nodiscard]] static NetworkError fromReply(const QNetworkReply &reply);

    [[nodiscard]] QNetworkReply::NetworkError code() const noexcept { return m_code; }
    [[nodiscard]] bool isTimeout() const noexcept { return m_code == QNetworkReply::OperationCanceledError; }

private:
    QNetworkReply::NetworkError m_code;
};

} // namespace parlino
