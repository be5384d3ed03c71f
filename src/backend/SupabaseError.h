#pragma once

#include "core/Error.h"

#include <QByteArray>

namespace parlino {

// Why a request to the hosted database gave no usable answer. The service logs these and turns them
// into an absent result; the sync engine counts them as a failed attempt.
class SupabaseError final : public Error {
public:
    enum class Kind { notConfigured, invalidURL, transport, httpStatus, decoding };

    [[nodiscard]] static SupabaseError notConfigured();
    [[nodiscard]] static SupabaseError invalidURL(const QString &url);
    [[nodiscard]] static SupabaseError transport(const QString &reason);
    [[nodiscard]] static SupabaseError httpStatus(int status, const QByteArray &body);
    [[nodiscard]] static SupabaseError decoding(const QString &reason);

    [[nodiscard]] Kind kind() const noexcept { return m_kind; }
    // The HTTP status for httpStatus, 0 otherwise.
    [[nodiscard]] int status() const noexcept { return m_status; }

private:
    SupabaseError(Kind kind, int status, const QString &description);

    Kind m_kind;
    int m_status;
};

} // namespace parlino
