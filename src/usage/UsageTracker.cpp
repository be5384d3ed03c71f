#include "usage/UsageTracker.h"

#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <QtGlobal>

#include <cmath>
#include <limits>

namespace parlino {

namespace {

double storedNonNegative(const Defaults &defaults, const QString &key)
{
    const double value = defaults.doubleForKey(key);
    return std::isfinite(value) && value > 0 ? value : 0.0;
}

} // namespace

UsageTracker::UsageTracker(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_totalListeningTime(storedNonNegative(defaults, SettingsKeys::totalListeningTime))
    , m_playbackSpeedSum(storedNonNegative(defaults, SettingsKeys::playbackSpeedSum))
    , m_playbackSpeedCount(std::max<qint64>(0, defaults.integerForKey(SettingsKeys::playbackSpeedCount)))
{
}

double UsageTracker::averagePlaybackSpeed() const
{
    return m_playbackSpeedCount > 0 ? m_playbackSpeedSum / static_cast<double>(m_playbackSpeedCount) : 1.0;
}

void UsageTracker::addListeningTime(double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0)
        return;
    m_totalListeningTime += seconds;
    save();
    Q_EMIT totalListeningTimeChanged();
}

void UsageTracker::recordPlaybackSpeed(double speed)
{
    if (m_playbackSpeedCount == std::numeric_limits<qint64>::max())
        qFatal("playbackSpeedCount overflow");
    if (!std::isfinite(speed) || speed <= 0) {
        PWARN(lcUsage) << "⚠️ Ignoring invalid playback speed: " << speed;
        return;
    }
    m_playbackSpeedSum += speed;
    ++m_playbackSpeedCount;
    save();
    Q_EMIT playbackSpeedChanged();
}

void UsageTracker::save()
{
    m_defaults.set(SettingsKeys::totalListeningTime, m_totalListeningTime);
    m_defaults.set(SettingsKeys::playbackSpeedSum, m_playbackSpeedSum);
    m_defaults.set(SettingsKeys::playbackSpeedCount, m_playbackSpeedCount);
}

} // namespace parlino
