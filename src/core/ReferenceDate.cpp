#include "core/ReferenceDate.h"

#include <QTimeZone>

#include <cmath>

namespace parlino {

namespace {

// 2001-01-01T00:00:00Z in milliseconds since the Unix epoch.
constexpr qint64 kReferenceDateMsecs = 978307200000;

} // namespace

double referenceDateSeconds(const QDateTime &when)
{
    return static_cast<double>(when.toMSecsSinceEpoch() - kReferenceDateMsecs) / 1000.0;
}

QDateTime fromReferenceDateSeconds(double seconds)
{
    return QDateTime::fromMSecsSinceEpoch(kReferenceDateMsecs + std::llround(seconds * 1000.0), QTimeZone::utc());
}

} // namespace parlino
