#include "backend/OpenAIError.h"

namespace parlino {

OpenAIError::OpenAIError(Kind kind, QString description, int statusCode, QString message)
    : Error(std::move(description))
    , m_kind(kind)
    , m_statusCode(statusCode)
    , m_message(std::move(message))
{
}

OpenAIError OpenAIError::apiError(int statusCode, const QString &message)
{
    return OpenAIError(Kind::apiError,
                       QStringLiteral("API Error (") + QString::number(statusCode) + QStringLiteral("): ") + message,
                       statusCode, message);
}

OpenAIError OpenAIError::invalidURL()
{
    return OpenAIError(Kind::invalidURL, QStringLiteral("Invalid API URL"));
}

OpenAIError OpenAIError::invalidResponse()
{
    return OpenAIError(Kind::invalidResponse, QStringLiteral("Invalid response from server"));
}

OpenAIError OpenAIError::invalidResponse(const QString &description)
{
    return OpenAIError(Kind::invalidResponse, description);
}

OpenAIError OpenAIError::noResponse()
{
    return OpenAIError(Kind::noResponse, QStringLiteral("No response from API"));
}

} // namespace parlino
