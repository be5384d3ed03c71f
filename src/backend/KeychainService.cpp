#include "backend/KeychainService.h"

#include <QEventLoop>
#include <QStringDecoder>
#include <qt6keychain/keychain.h>

namespace parlino {

KeychainService::KeychainService(QString service)
    : m_service(std::move(service))
{
}

KeychainService &KeychainService::shared()
{
    static KeychainService instance(QStringLiteral("com.parlino.app"));
    return instance;
}

std::optional<QString> KeychainService::get(const QString &key, const std::optional<QString> &service) const
{
    QKeychain::ReadPasswordJob job(service.value_or(m_service));
    job.setAutoDelete(false);
    job.setKey(key);
    // Only the Secret Service: an unencrypted fallback file would not be the user's keyring.
    job.setInsecureFallback(false);

    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec(QEventLoop::ExcludeUserInputEvents);

    if (job.error() != QKeychain::NoError)
        return std::nullopt;
    const QByteArray data = job.binaryData();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(data);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace parlino
