#include "core/Defaults.h"

#include "core/Logging.h"
#include "core/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace parlino {

namespace {

// A number that is finite and within [min, max]; QString::toDouble() accepts "nan" and "inf", so
// both are checked here rather than trusted to the comparison.
std::optional<double> finiteWithin(const QVariant &stored, double min, double max)
{
    bool ok = false;
    const double number = stored.toDouble(&ok);
    if (!ok || !std::isfinite(number) || number < min || number > max)
        return std::nullopt;
    return number;
}

} // namespace

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

double Defaults::boundedDouble(const QString &key, double min, double max, double fallback) const
{
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    if (const std::optional<double> number = finiteWithin(stored, min, max))
        return *number;
    warnOnce(key, stored);
    return fallback;
}

qint64 Defaults::boundedInteger(const QString &key, qint64 min, qint64 max, qint64 fallback) const
{
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    // Read as text so that a count beyond qint64 is refused instead of wrapped or rounded.
    bool ok = false;
    const qint64 number = stored.toString().trimmed().toLongLong(&ok);
    if (ok && number >= min && number <= max)
        return number;
    warnOnce(key, stored);
    return fallback;
}

QSizeF Defaults::boundedSize(const QString &key, const QSizeF &min, const QSizeF &max, const QSizeF &fallback) const
{
    const QVariant stored = value(key);
    if (!stored.isValid())
        return fallback;
    if (stored.canConvert<QSizeF>()) {
        const QSizeF size = stored.toSizeF();
        const std::optional<double> width = finiteWithin(size.width(), min.width(), max.width());
        const std::optional<double> height = finiteWithin(size.height(), min.height(), max.height());
        if (width && height)
            return {*width, *height};
    }
    warnOnce(key, stored);
    return fallback;
}

void Defaults::warnOnce(const QString &key, const QVariant &stored) const
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_warnedKeys.contains(key))
            return;
        m_warnedKeys.insert(key);
    }
    PWARN(lcApp) << "⚠️ Ignoring the setting " << key << " = " << stored.toString()
                 << " (not a number in its range); using the default";
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
