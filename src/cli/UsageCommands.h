#pragma once

#include <QStringList>

namespace parlino {

class UsageTrackingService;

// `parlino usage [--json]`: this month's statistics as the usage account holds them (what the running app
// has saved so far): characters, the estimated cost, the requests by kind and the breakdowns by provider,
// voice tier, feature and request source. --json prints {"month", "currentMonthCharacters", "stats"}
// with the stored statistics' members. Exit codes: 0 success, 2 bad usage.
int runUsageCommand(const UsageTrackingService &usage, const QStringList &arguments);

} // namespace parlino
