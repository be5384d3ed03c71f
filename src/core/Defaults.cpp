#include "core/Defaults.h"

#include "core/Logging.h"
#include "core/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace parlino {

Defaults::Defaults(const QString &filePath, QObject *parent)
    : QObject(parent)
{
    // The file may hold the OpenAI key: it is the user's alone. An empty file made with the right mode
    // first keeps that mode, as the settings are saved over it.
    Paths::makePrivateFolder(QFileInfo(filePath).absolutePath());
    if (!QFileInfo::exists(filePath)) {
        QFile created(filePath);
        if (!created.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            PWARN(lcApp) << "⚠️ Settings file could not be created: " << filePath << ": " << created.errorString();
    }
    Paths::makePrivateFile(filePath);
    m_settings = std::make_unique<QSettings>(filePath, QSettings::IniFormat);
    if (m_settings->status() == QSettings::FormatError)
        PWARN(lcApp) << "⚠️ Settings file could not be read and is treated as empty: " << filePath;
}

Defaults::~Defaults() = default;

Defaults &Defaults::shared()
{
    static Defaults instance(Paths::defaultsFile());
    return instance;
}

bool Defaults::boolForKey(const QString &key) const
{
    return value(key).toBool();
}

double Defaults::doubleForKey(const QString &key) const
{
    bool ok = false;
    const double result = value(key).toDouble(&ok);
    return ok ? result : 0.0;
}

qint64 Defaults::integerForKey(const QString &key) const
{
    bool ok = false;
    const qint64 result = value(key).toLongLong(&ok);
    return ok ? result : 0;
}

std::optional<QString> Defaults::stringForKey(const QString &key) const
{
    const QVariant v = value(key);
    if (!v.isValid() || v.metaType().id() == QMetaType::QStringList)
        return std::nullopt;
    return v.toString();
}

QByteArray Defaults::dataForKey(const QString &key) const
{
    return value(key).toByteArray();
}

QVariant Defaults::value(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_settings->value(key);
}

bool Defaults::contains(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_settings->contains(key);
}

QStringList Defaults::allKeys() const
{
    QMutexLocker lock(&m_mutex);
    return m_settings->allKeys();
}

QString Defaults::filePath() const
{
    return m_settings->fileName();
}

void Defaults::set(const QString &key, const QVariant &value)
{
    {
        QMutexLocker lock(&m_mutex);
        m_settings->setValue(key, value);
        m_settings->sync();
        if (m_settings->status() != QSettings::NoError)
            PWARN(lcApp) << "❌ Could not write settings file " << m_settings->fileName();
    }
    Q_EMIT valueChanged(key);
}

void Defaults::remove(const QString &key)
{
    {
        QMutexLocker lock(&m_mutex);
        m_settings->remove(key);
        m_settings->sync();
    }
    Q_EMIT valueChanged(key);
}

void Defaults::synchronize()
{
    QMutexLocker lock(&m_mutex);
    m_settings->sync();
}

} // namespace parlino
