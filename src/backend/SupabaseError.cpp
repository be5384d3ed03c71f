#include "backend/SupabaseError.h"

namespace parlino {

SupabaseError::SupabaseError(Kind kind, int status, const QString &description)
    : Error(description)
    , m_kind(kind)
    , m_status(status)
{
}

SupabaseError SupabaseError::notConfigured()
{
    return {Kind::notConfigured, 0,
            QStringLiteral("The hosted database is not configured (SUPABASE_URL, SUPABASE_KEY).")};
}

SupabaseError SupabaseError::invalidURL(const QString &url)
{
    return {Kind::invalidURL, 0, QStringLiteral("Not a usable database URL: ") + url};
}

SupabaseError SupabaseError::transport(const QString &reason)
{
    return {Kind::transport, 0, QStringLiteral("The database could not be reached: ") + reason};
}

SupabaseError SupabaseError::httpStatus(int status, const QByteArray &body)
{
    QString text = QStringLiteral("The database answered with status %1").arg(status);
    if (!body.isEmpty())
        text += QStringLiteral(": ") + QString::fromUtf8(body.left(500));
    return {Kind::httpStatus, status, text};
}

SupabaseError SupabaseError::decoding(const QString &reason)
{
    return {Kind::decoding, 0, QStringLiteral("The database's answer could not be read: ") + reason};
}

} // namespace parlino
