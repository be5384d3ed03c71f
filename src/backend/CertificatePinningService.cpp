#include "backend/CertificatePinningService.h"

#include "backend/CertificatePinningError.h"
#include "core/Logging.h"
#include "core/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSslKey>

namespace parlino {

namespace {

using Kind = CertificatePinningError::Kind;

QByteArray readPinFile(const QDir &base, const QJsonValue &entry)
{
    if (!entry.isString() || entry.toString().isEmpty())
        throw CertificatePinningError(Kind::invalidCertificateData);
    QFile file(base.absoluteFilePath(entry.toString()));
    if (!file.exists())
        throw CertificatePinningError(Kind::pinnedCertificateNotFound);
    if (!file.open(QIODevice::ReadOnly))
        throw CertificatePinningError(Kind::invalidCertificateData);
    return file.readAll();
}

std::optional<QSslCertificate> certificateIn(const QByteArray &data)
{
    for (const QSsl::EncodingFormat format : {QSsl::Pem, QSsl::Der}) {
        const QList<QSslCertificate> certificates = QSslCertificate::fromData(data, format);
        if (!certificates.isEmpty() && !certificates.first().isNull())
            return certificates.first();
    }
    return std::nullopt;
}

// A pinned key comes as a certificate carrying it or as a public key of its own.
QByteArray publicKeyIn(const QByteArray &data)
{
    if (const auto certificate = certificateIn(data))
        return certificate->publicKey().toDer();
    for (const QSsl::EncodingFormat format : {QSsl::Pem, QSsl::Der}) {
        for (const QSsl::KeyAlgorithm algorithm : {QSsl::Rsa, QSsl::Ec, QSsl::Dsa}) {
            const QSslKey key(data, algorithm, format, QSsl::PublicKey);
            if (!key.isNull())
                return key.toDer();
        }
    }
    throw CertificatePinningError(Kind::invalidCertificateData);
}

} // namespace

CertificatePinningService::CertificatePinningService(QList<QByteArray> pinnedCertificates,
                                                     QList<QByteArray> pinnedPublicKeys, Mode mode)
    : m_pinnedPublicKeys(std::move(pinnedPublicKeys))
    , m_pinnedCertificates(std::move(pinnedCertificates))
    , m_pinningMode(mode)
{
}

QString CertificatePinningService::defaultPinsFile()
{
    // Beside the settings file: $XDG_CONFIG_HOME/Parlino/pins.json.
    return QFileInfo(Paths::defaultsFile()).absolutePath() + QStringLiteral("/pins.json");
}

CertificatePinningService CertificatePinningService::fromFile(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        throw CertificatePinningError(Kind::pinnedCertificateNotFound);
    if (!file.open(QIODevice::ReadOnly))
        throw CertificatePinningError(Kind::invalidCertificateData);
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        throw CertificatePinningError(Kind::invalidCertificateData);
    const QJsonObject pins = document.object();

    const QString modeName = pins.value(QStringLiteral("mode")).toString(QStringLiteral("publicKey"));
    if (modeName != u"publicKey" && modeName != u"certificate")
        throw CertificatePinningError(Kind::invalidCertificateData);

    // File names are taken relative to the pins file, so the pins and their certificates move together.
    const QDir base = QFileInfo(path).absoluteDir();
    QList<QByteArray> certificates;
    for (const QJsonValue &entry : pins.value(QStringLiteral("certificates")).toArray()) {
        const auto certificate = certificateIn(readPinFile(base, entry));
        if (!certificate)
            throw CertificatePinningError(Kind::invalidCertificateData);
        certificates.append(certificate->toDer());
    }
    QList<QByteArray> keys;
    for (const QJsonValue &entry : pins.value(QStringLiteral("publicKeys")).toArray())
        keys.append(publicKeyIn(readPinFile(base, entry)));
    return {certificates, keys, modeName == u"certificate" ? Mode::certificate : Mode::publicKey};
}

CertificatePinningService CertificatePinningService::loadConfigured()
{
    const QString path = defaultPinsFile();
    if (!QFileInfo::exists(path))
        return {};
    try {
        CertificatePinningService service = fromFile(path);
        PLOG(lcBackend) << "✅ Loaded certificate pins from " << path;
        return service;
    } catch (const CertificatePinningError &error) {
        PWARN(lcBackend) << "❌ Could not load certificate pins from " << path << ": " << error.description();
        return {};
    }
}

void CertificatePinningService::validate(const ServerTrust &trust, const QString &domain) const
{
    if (isDisabled()) {
        PLOG(lcBackend) << "⚠️ Certificate pinning disabled - allowing connection to " << domain;
        return;
    }
    if (!trust.verificationErrors.isEmpty()) {
        PLOG(lcBackend) << "❌ Server trust evaluation failed for " << domain;
        PLOG(lcBackend) << "   Error: " << trust.verificationErrors.first().errorString();
        throw CertificatePinningError(Kind::invalidServerTrust);
    }
    if (trust.chain.isEmpty())
        throw CertificatePinningError(Kind::noCertificatesProvided);
    if (m_pinningMode == Mode::publicKey) {
        validatePublicKeyPinning(trust.chain, domain);
        return;
    }
    for (const QSslCertificate &certificate : trust.chain) {
        const QByteArray der = certificate.toDer();
        for (const QByteArray &pinned : m_pinnedCertificates) {
            if (der == pinned) {
                PLOG(lcBackend) << "✅ Certificate pinning validated for " << domain;
                return;
            }
        }
    }
    PLOG(lcBackend) << "❌ Certificate mismatch for " << domain;
    throw CertificatePinningError(Kind::certificateMismatch);
}

void CertificatePinningService::validatePublicKeyPinning(const QList<QSslCertificate> &chain,
                                                         const QString &domain) const
{
    for (const QSslCertificate &certificate : chain) {
        const QSslKey key = certificate.publicKey();
        if (key.isNull())
            continue;
        const QByteArray exported = key.toDer();
        if (exported.isEmpty())
            continue;
        for (const QByteArray &pinned : m_pinnedPublicKeys) {
            if (exported == pinned)
                return;
        }
    }
    PLOG(lcBackend) << "❌ Public key mismatch for " << domain;
    throw CertificatePinningError(Kind::certificateMismatch);
}

} // namespace parlino
