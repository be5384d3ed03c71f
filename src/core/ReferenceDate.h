#pragma once

#include <QDateTime>

namespace parlino {

// Dates in the stored index and usage formats are seconds since 2001-01-01 00:00 UTC, the reference
// date of the format they keep; milliseconds survive the round trip. A number too large to be a date
// (a damaged file) gives an invalid QDateTime.
[[nodiscard]] double referenceDateSeconds(const QDateTime &when);
[[nodiscard]] QDateTime fromReferenceDateSeconds(double seconds);

} // namespace parlino
