#include "usage/UsageBreakdowns.h"

#include "usage/TTSUsageLog.h"

namespace parlino {

QList<qint64> charactersPerDay(const QList<TTSUsageLog> &logs, const QDate &first, int days)
{
    QList<qint64> perDay(std::max(days, 0), 0);
    for (const TTSUsageLog &log : logs) {
        const qint64 day = first.daysTo(log.timestamp.toLocalTime().date());
        if (day >= 0 && day < perDay.size())
            perDay[day] += log.characterCount;
    }
    return perDay;
}

QMap<QString, UsageBreakdown> breakdownByVoice(const QList<TTSUsageLog> &logs)
{
    QMap<QString, UsageBreakdown> byVoice;
    for (const TTSUsageLog &log : logs) {
        UsageBreakdown &line = byVoice[log.voiceName];
        ++line.callCount;
        line.characters += log.characterCount;
        line.costCents += log.costCents();
    }
    for (UsageBreakdown &line : byVoice)
        line.avgCostPerKChars =
            line.characters > 0 ? line.costCents * 1000.0 / static_cast<double>(line.characters) : 0;
    return byVoice;
}

} // namespace parlino
