#pragma once

#include "usage/MonthlyUsageStats.h"

#include <QDate>
#include <QList>
#include <QMap>
#include <QString>

namespace parlino {

struct TTSUsageLog;

// Figures the stored monthly totals do not hold, worked out from the month's logs for the dashboard.

// Characters read on each day from `first` (local dates), `days` days long; logs outside are ignored.
[[nodiscard]] QList<qint64> charactersPerDay(const QList<TTSUsageLog> &logs, const QDate &first, int days);

// Requests, characters and cost by the voice that really read ("alloy", "espeak:de", ...).
[[nodiscard]] QMap<QString, UsageBreakdown> breakdownByVoice(const QList<TTSUsageLog> &logs);

} // namespace parlino
