#include "cli/UsageCommands.h"

#include "cli/CommandText.h"
#include "usage/MonthlyUsageStats.h"
#include "usage/SpeechPrices.h"
#include "usage/UsageTrackingService.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace parlino {

namespace {

void printBreakdown(const QString &title, const QMap<QString, UsageBreakdown> &lines)
{
    if (lines.isEmpty())
        return;
    printTo(stdout, title);
    for (auto line = lines.cbegin(); line != lines.cend(); ++line) {
        const UsageBreakdown &figures = line.value();
        printTo(stdout, QStringLiteral("  %1: %2 characters, %3 %4, %5")
                            .arg(line.key().isEmpty() ? QStringLiteral("(none)") : line.key())
                            .arg(figures.characters)
                            .arg(figures.callCount)
                            .arg(figures.callCount == 1 ? QStringLiteral("request") : QStringLiteral("requests"),
                                 dollarText(figures.costCents)));
    }
}

} // namespace

int runUsageCommand(const UsageTrackingService &usage, const QStringList &arguments)
{
    const bool json = arguments == QStringList{QStringLiteral("--json")};
    if (!arguments.isEmpty() && !json) {
        printTo(stderr, QStringLiteral("Usage: parlino usage [--json]"));
        return exitUsage;
    }
    const MonthlyUsageStats &stats = usage.monthlyStats();
    const QString month = usage.currentMonthStart().toLocalTime().toString(QStringLiteral("yyyy-MM"));
    if (json) {
        const QJsonObject root{{QStringLiteral("month"), month},
                               {QStringLiteral("currentMonthCharacters"), usage.currentMonthCharacters()},
                               {QStringLiteral("stats"), stats.toJson()}};
        printTo(stdout, QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented)).trimmed());
        return 0;
    }
    printTo(stdout, QStringLiteral("Usage in %1").arg(month));
    printTo(stdout, QStringLiteral("Characters: %1").arg(usage.currentMonthCharacters()));
    printTo(stdout, QStringLiteral("Estimated cost: %1").arg(dollarText(stats.exactCostCents)));
    printTo(stdout, QStringLiteral("Requests: %1 read aloud, %2 summaries, %3 podcasts, %4 questions")
                        .arg(stats.ttsCallCount)
                        .arg(stats.readSummaryCount)
                        .arg(stats.podcastCount)
                        .arg(stats.qaInteractionCount));
    printBreakdown(QStringLiteral("By provider:"), stats.byProvider);
    printBreakdown(QStringLiteral("By voice tier:"), stats.byVoiceTier);
    printBreakdown(QStringLiteral("By feature:"), stats.byFeature);
    printBreakdown(QStringLiteral("By source:"), stats.bySource);
    return 0;
}

} // namespace parlino
