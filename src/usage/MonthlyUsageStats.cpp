#include "usage/MonthlyUsageStats.h"

#include "core/Logging.h"
#include "usage/TTSUsageLog.h"

#include <QJsonValue>
#include <QtGlobal>

#include <cmath>
#include <optional>

namespace parlino {

namespace {

QJsonObject breakdownJson(const QMap<QString, UsageBreakdown> &lines)
{
    QJsonObject json;
    for (auto it = lines.cbegin(); it != lines.cend(); ++it) {
        QJsonObject line{{QStringLiteral("callCount"), it->callCount},
                         {QStringLiteral("characters"), it->characters},
                         {QStringLiteral("costCents"), it->costCents},
                         {QStringLiteral("avgCostPerKChars"), it->avgCostPerKChars}};
        json.insert(it.key(), line);
    }
    return json;
}

bool isCount(const QJsonValue &value)
{
    return value.isDouble() && value.toInteger(-1) >= 0;
}

std::optional<QMap<QString, UsageBreakdown>> breakdownFromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    QMap<QString, UsageBreakdown> lines;
    const QJsonObject object = value.toObject();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QJsonObject line = it.value().toObject();
        if (!isCount(line.value(u"callCount")) || !isCount(line.value(u"characters")))
            return std::nullopt;
        lines.insert(it.key(),
                     UsageBreakdown{line.value(u"callCount").toInteger(), line.value(u"characters").toInteger(),
                                    line.value(u"costCents").toDouble(), line.value(u"avgCostPerKChars").toDouble()});
    }
    return lines;
}

// Costs beyond this cannot be rounded into a qint64 of cents.
constexpr double kLargestCostCents = 9.0e18;

bool costFits(double cents)
{
    return std::isfinite(cents) && std::fabs(cents) < kLargestCostCents;
}

// False when a count or cost would overflow; the line may then be half updated.
bool addTo(UsageBreakdown &line, const TTSUsageLog &log)
{
    const double average = (line.avgCostPerKChars * static_cast<double>(line.callCount) + log.costPerKChars)
                           / (static_cast<double>(line.callCount) + 1);
    if (qAddOverflow(line.callCount, qint64(1), &line.callCount)
        || qAddOverflow(line.characters, log.characterCount, &line.characters))
        return false;
    line.avgCostPerKChars = average;
    line.costCents += log.costCents();
    return costFits(line.costCents) && std::isfinite(average);
}

bool addChecked(MonthlyUsageStats &stats, const TTSUsageLog &log, UsageEventType eventType)
{
    qint64 *counter = nullptr;
    switch (eventType) {
    case UsageEventType::tts: counter = &stats.ttsCallCount; break;
    case UsageEventType::podcast: counter = &stats.podcastCount; break;
    case UsageEventType::qaInteraction: counter = &stats.qaInteractionCount; break;
    case UsageEventType::readSummary: counter = &stats.readSummaryCount; break;
    }
    stats.exactCostCents += log.costCents();
    if (qAddOverflow(stats.totalCharacters, log.characterCount, &stats.totalCharacters)
        || qAddOverflow(*counter, qint64(1), counter) || !costFits(stats.exactCostCents))
        return false;
    stats.totalCostCents = std::llround(stats.exactCostCents);
    return addTo(stats.byProvider[log.provider], log) && addTo(stats.byVoiceTier[log.voiceTier], log)
           && addTo(stats.byFeature[log.feature], log) && addTo(stats.bySource[log.requestSource], log);
}

} // namespace

void MonthlyUsageStats::add(const TTSUsageLog &log, UsageEventType eventType)
{
    MonthlyUsageStats next = *this;
    if (!addChecked(next, log, eventType)) {
        PWARN(lcUsage) << "⚠️ This month's usage statistics overflowed; starting them again";
        next = {};
        if (!addChecked(next, log, eventType))
            next = {};
    }
    *this = next;
}

QJsonObject MonthlyUsageStats::toJson() const
{
    return QJsonObject{{QStringLiteral("totalCharacters"), totalCharacters},
                       {QStringLiteral("totalCostCents"), totalCostCents},
                       {QStringLiteral("ttsCallCount"), ttsCallCount},
                       {QStringLiteral("podcastCount"), podcastCount},
                       {QStringLiteral("qaInteractionCount"), qaInteractionCount},
                       {QStringLiteral("readSummaryCount"), readSummaryCount},
                       {QStringLiteral("byProvider"), breakdownJson(byProvider)},
                       {QStringLiteral("byVoiceTier"), breakdownJson(byVoiceTier)},
                       {QStringLiteral("byFeature"), breakdownJson(byFeature)},
                       {QStringLiteral("bySource"), breakdownJson(bySource)},
                       {QStringLiteral("exactCostCents"), exactCostCents}};
}

std::optional<MonthlyUsageStats> MonthlyUsageStats::fromJson(const QJsonObject &json)
{
    for (const char16_t *key : {u"totalCharacters", u"totalCostCents", u"ttsCallCount", u"podcastCount",
                                u"qaInteractionCount", u"readSummaryCount"}) {
        if (!isCount(json.value(QStringView(key))))
            return std::nullopt;
    }
    const auto provider = breakdownFromJson(json.value(u"byProvider"));
    const auto tier = breakdownFromJson(json.value(u"byVoiceTier"));
    const auto feature = breakdownFromJson(json.value(u"byFeature"));
    const auto source = breakdownFromJson(json.value(u"bySource"));
    if (!provider || !tier || !feature || !source)
        return std::nullopt;
    MonthlyUsageStats stats;
    stats.totalCharacters = json.value(u"totalCharacters").toInteger();
    stats.totalCostCents = json.value(u"totalCostCents").toInteger();
    stats.ttsCallCount = json.value(u"ttsCallCount").toInteger();
    stats.podcastCount = json.value(u"podcastCount").toInteger();
    stats.qaInteractionCount = json.value(u"qaInteractionCount").toInteger();
    stats.readSummaryCount = json.value(u"readSummaryCount").toInteger();
    stats.byProvider = *provider;
    stats.byVoiceTier = *tier;
    stats.byFeature = *feature;
    stats.bySource = *source;
    stats.exactCostCents = json.value(u"exactCostCents").toDouble(static_cast<double>(stats.totalCostCents));
    return stats;
}

} // namespace parlino
