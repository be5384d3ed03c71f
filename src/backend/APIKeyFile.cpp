#include "backend/APIKeyFile.h"

#include "core/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace parlino {

APIKeyFile::APIKeyFile(QString path)
    : m_path(std::move(path))
{
}

std::optional<QString> APIKeyFile::read() const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QString key = QString::fromUtf8(file.read(4096)).trimmed();
    if (key.isEmpty())
        return std::nullopt;
    return key;
}

void APIKeyFile::write(const QString &key) const
{
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QDir().mkpath(folder))
        throw Error(QStringLiteral("Could not create the folder %1.").arg(folder));
    QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        throw Error(QStringLiteral("Could not save the key to %1: %2").arg(m_path, file.errorString()));
    // The temporary file gets the final permissions before the key is written into it.
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    file.write(key.trimmed().toUtf8() + '\n');
    if (!file.commit())
        throw Error(QStringLiteral("Could not save the key to %1: %2").arg(m_path, file.errorString()));
}

bool APIKeyFile::remove() const
{
    return !QFile::exists(m_path) || QFile::remove(m_path);
}

} // namespace parlino
