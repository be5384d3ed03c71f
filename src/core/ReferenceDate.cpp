#include "core/ReferenceDate.h"

#include <QTimeZone>

#include <cmath>

namespace parlino {

namespace {

// 2001-01-01T00:00:00Z in milliseconds since the Unix epoch.
constexpr qint64 kReferenceDateMsecs = 978307200000;
// About 300 000 years either side: far beyond any real date, and well inside qint64 milliseconds.
constexpr double kLargestSeconds = 1.0e13;

} // namespace

double referenceDateSeconds(const QDateTime &when)
{
    return static_cast<double>(when.toMSecsSinceEpoch() - kReferenceDateMsecs) / 1000.0;
}

QDateTime fromReferenceDateSeconds(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) > kLargestSeconds)
        return {};
    return QDateTime::fromMSecsSinceEpoch(kReferenceDateMsecs + std::llround(seconds * 1000.0), QTimeZone::utc());
}

} // namespace parlino
