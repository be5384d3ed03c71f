#pragma once

#include "core/Error.h"

namespace parlino {

// The error of every OpenAI request, speech and chat alike. description() gives the user-facing text,
// e.g. "API Error (401): {...}" with the service's own answer as the message.
class OpenAIError final : public Error {
public:
    enum class Kind { apiError, invalidURL, invalidResponse, noResponse };

    [[nodiscard]] static OpenAIError apiError(int statusCode, const QString &message);
    [[nodiscard]] static OpenAIError invalidURL();
    [[nodiscard]] static OpenAIError invalidResponse();
    // An answer that came whole but is not what was asked for; `description` says what is wrong.
    [[nodiscard]] static OpenAIError invalidResponse(const QString &description);
    [[nodiscard]] static OpenAIError noResponse();

    [[nodiscard]] Kind kind() const noexcept { return m_kind; }
    // Only meaningful for apiError.
    [[nodiscard]] int statusCode() const noexcept { return m_statusCode; }
    [[nodiscard]] const QString &message() const noexcept { return m_message; }

private:
    OpenAIError(Kind kind, QString description, int statusCode = 0, QString message = {});

    Kind m_kind;
    int m_statusCode;
    QString m_message;
};

} // namespace parlino
