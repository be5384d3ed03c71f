#include "backend/CertificatePinningDelegate.h"

#include "backend/CertificatePinningError.h"
#include "core/Logging.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslConfiguration>

namespace parlino {

namespace {

// The verification complaints Qt reported for a reply; kept on the reply until its handshake ends.
constexpr const char *kVerificationErrors = "parlinoVerificationErrors";

} // namespace

CertificatePinningDelegate::CertificatePinningDelegate(CertificatePinningService service, QObject *parent)
    : QObject(parent)
    , m_service(std::move(service))
{
}

void CertificatePinningDelegate::install(QNetworkAccessManager &network)
{
    // A reply whose verification failed reaches `encrypted` only when someone chose to ignore the
    // errors; the pinning check must still see them.
    connect(&network, &QNetworkAccessManager::sslErrors, this,
            [](QNetworkReply *reply, const QList<QSslError> &errors) {
                reply->setProperty(kVerificationErrors, QVariant::fromValue(errors));
            });
    connect(&network, &QNetworkAccessManager::encrypted, this, &CertificatePinningDelegate::check);
}

void CertificatePinningDelegate::check(QNetworkReply *reply)
{
    const QString host = reply->url().host();
    CertificatePinningService::ServerTrust trust;
    trust.chain = reply->sslConfiguration().peerCertificateChain();
    trust.verificationErrors = reply->property(kVerificationErrors).value<QList<QSslError>>();
    try {
        m_service.validate(trust, host);
    } catch (const CertificatePinningError &error) {
        PLOG(lcBackend) << "❌ Certificate pinning failed for " << host << ": " << error.description();
        reply->setProperty(refusedProperty, true);
        reply->abort();
    }
}

} // namespace parlino
