#pragma once

#include "backend/CertificatePinningService.h"

#include <QObject>

class QNetworkAccessManager;
class QNetworkReply;

namespace parlino {

// Applies a CertificatePinningService to the TLS connections of a QNetworkAccessManager: once a
// connection's handshake is done, and before any request is sent on it, its chain is validated and a
// refused connection is aborted, so the request fails as an ordinary cancelled operation.
class CertificatePinningDelegate final : public QObject {
    Q_OBJECT
public:
    // Set (true) on a reply whose connection was refused, so its caller can say why it failed.
    static constexpr const char *refusedProperty = "parlinoPinningRefused";

    explicit CertificatePinningDelegate(CertificatePinningService service, QObject *parent = nullptr);

    // Checks every encrypted connection the manager makes from now on.
    void install(QNetworkAccessManager &network);

    [[nodiscard]] const CertificatePinningService &service() const { return m_service; }

private:
    void check(QNetworkReply *reply);

    CertificatePinningService m_service;
};

} // namespace parlino
