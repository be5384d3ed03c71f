#include "backend/CertificatePinningError.h"

namespace parlino {

CertificatePinningError::CertificatePinningError(Kind kind)
    : Error(descriptionOf(kind))
    , m_kind(kind)
{
}

QString CertificatePinningError::descriptionOf(Kind kind)
{
    switch (kind) {
    case Kind::noCertificatesProvided: return QStringLiteral("No pinned certificates configured");
    case Kind::invalidServerTrust: return QStringLiteral("Server trust evaluation failed");
    case Kind::certificateMismatch: return QStringLiteral("Server certificate does not match pinned certificate");
    case Kind::invalidCertificateData: return QStringLiteral("Invalid certificate data format");
    case Kind::pinnedCertificateNotFound: return QStringLiteral("Pinned certificate file not found in bundle");
    }
    return {};
}

} // namespace parlino
