#include "usage/UsageTracker.h"

#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/SettingsKeys.h"

#include <cmath>
#include <limits>

namespace parlino {

namespace {

constexpr double kLargestFigure = std::numeric_limits<double>::max();
constexpr qint64 kLargestCount = std::numeric_limits<qint64>::max();

} // namespace

UsageTracker::UsageTracker(Defaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_totalListeningTime(defaults.boundedDouble(SettingsKeys::totalListeningTime, 0, kLargestFigure, 0))
    , m_playbackSpeedSum(defaults.boundedDouble(SettingsKeys::playbackSpeedSum, 0, kLargestFigure, 0))
    , m_playbackSpeedCount(defaults.boundedInteger(SettingsKeys::playbackSpeedCount, 0, kLargestCount, 0))
{
    // A sum without its count (or the other way round) would make the average meaningless.
    if ((m_playbackSpeedCount == 0) != (m_playbackSpeedSum == 0)) {
        PWARN(lcUsage) << "⚠️ Playback speed figures disagree (sum " << m_playbackSpeedSum << ", count "
                       << m_playbackSpeedCount << "); starting them again";
        m_playbackSpeedSum = 0;
        m_playbackSpeedCount = 0;
    }
}

double UsageTracker::averagePlaybackSpeed() const
{
    return m_playbackSpeedCount > 0 ? m_playbackSpeedSum / static_cast<double>(m_playbackSpeedCount) : 1.0;
}

void UsageTracker::addListeningTime(double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0)
        return;
    if (!std::isfinite(m_totalListeningTime + seconds)) {
        PWARN(lcUsage) << "⚠️ Total listening time overflowed; starting it again";
        m_totalListeningTime = 0;
    }
    m_totalListeningTime += seconds;
    save();
    Q_EMIT totalListeningTimeChanged();
}

void UsageTracker::recordPlaybackSpeed(double speed)
{
    if (!std::isfinite(speed) || speed <= 0) {
        PWARN(lcUsage) << "⚠️ Ignoring invalid playback speed: " << speed;
        return;
    }
    if (m_playbackSpeedCount == kLargestCount || !std::isfinite(m_playbackSpeedSum + speed)) {
        PWARN(lcUsage) << "⚠️ Playback speed figures overflowed; starting them again";
        m_playbackSpeedSum = 0;
        m_playbackSpeedCount = 0;
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
