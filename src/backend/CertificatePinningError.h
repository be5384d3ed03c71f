#pragma once

#include "core/Error.h"

namespace parlino {

// Why a server's certificate chain was refused, or why the pins could not be loaded.
class CertificatePinningError final : public Error {
public:
    enum class Kind {
        noCertificatesProvided,    // the server presented an empty chain
        invalidServerTrust,        // the ordinary certificate verification failed
        certificateMismatch,       // nothing in the chain matches a pin
        invalidCertificateData,    // a pin file holds no certificate or key
        pinnedCertificateNotFound, // a pin file named in the pins is missing
    };

    explicit CertificatePinningError(Kind kind);

    [[nodiscard]] Kind kind() const noexcept { return m_kind; }
    [[nodiscard]] static QString descriptionOf(Kind kind);

private:
    Kind m_kind;
};

} // namespace parlino
