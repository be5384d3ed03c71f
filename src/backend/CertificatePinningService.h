#pragma once

#include <QByteArray>
#include <QList>
#include <QSslCertificate>
#include <QSslError>
#include <QString>

namespace parlino {

// Decides whether the certificate chain a TLS server presented is acceptable, by comparing it with
// pins held in memory: whole certificates (DER) in certificate mode, public keys in public-key mode.
// Any certificate of the chain may match, so pinning an intermediate authority survives a renewal of
// the server's own certificate. Without pins the service is disabled: every connection that passed
// the ordinary verification is allowed, with a warning. The pins are fixed at construction.
class CertificatePinningService final {
public:
    enum class Mode { certificate, publicKey };

    // What a connection presented: the chain, leaf first, and the ordinary verification's complaints
    // (empty when it passed).
    struct ServerTrust {
        QList<QSslCertificate> chain;
        QList<QSslError> verificationErrors;
    };

    // Disabled: no pins, public-key mode.
    CertificatePinningService() = default;
    // pinnedPublicKeys: each key as QSslKey::toDer() exports it.
    CertificatePinningService(QList<QByteArray> pinnedCertificates, QList<QByteArray> pinnedPublicKeys, Mode mode);

    // Pins from a JSON file (format in docs/security.md). Throws CertificatePinningError:
    // pinnedCertificateNotFound for a missing file, invalidCertificateData for one that cannot be read.
    [[nodiscard]] static CertificatePinningService fromFile(const QString &path);
    // $XDG_CONFIG_HOME/Parlino/pins.json
    [[nodiscard]] static QString defaultPinsFile();
    // The pins of defaultPinsFile(); disabled when there is none, or (logged) when it cannot be read.
    [[nodiscard]] static CertificatePinningService loadConfigured();

    // Returns when the connection is acceptable; throws CertificatePinningError otherwise.
    void validate(const ServerTrust &trust, const QString &domain) const;
    // The public-key comparison alone; throws certificateMismatch when no key of the chain is pinned.
    void validatePublicKeyPinning(const QList<QSslCertificate> &chain, const QString &domain) const;

    [[nodiscard]] bool isDisabled() const { return m_pinnedCertificates.isEmpty() && m_pinnedPublicKeys.isEmpty(); }
    [[nodiscard]] Mode pinningMode() const { return m_pinningMode; }
    [[nodiscard]] const QList<QByteArray> &pinnedCertificates() const { return m_pinnedCertificates; }
    [[nodiscard]] const QList<QByteArray> &pinnedPublicKeys() const { return m_pinnedPublicKeys; }

private:
    QList<QByteArray> m_pinnedPublicKeys;
    QList<QByteArray> m_pinnedCertificates;
    Mode m_pinningMode = Mode::publicKey;
};

} // namespace parlino
