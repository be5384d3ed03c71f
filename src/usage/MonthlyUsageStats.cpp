#include "usage/MonthlyUsageStats.h"

#include "usage/TTSUsageLog.h"

#include <QJsonValue>

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

std::optional<QMap<QString, UsageBreakdown>> breakdownFromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    QMap<QString, UsageBreakdown> lines;
    const QJsonObject object = value.toObject();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        const QJsonObject line = it.value().toObject();
        if (!line.value(u"callCount").isDouble() || !line.value(u"characters").isDouble())
            return std::nullopt;
        lines.insert(it.key(),
                     UsageBreakdown{line.value(u"callCount").toInteger(), line.value(u"characters").toInteger(),
                                    line.value(u"costCents").toDouble(), line.value(u"avgCostPerKChars").toDouble()});
    }
    return lines;
}

void addTo(UsageBreakdown &line, const TTSUsageLog &log)
{
    line.avgCostPerKChars = (line.avgCostPerKChars * static_cast<double>(line.callCount) + log.costPerKChars)
                            / static_cast<double>(line.callCount + 1);
    ++line.callCount;
    line.characters += log.characterCount;
    line.costCents += log.costCents();
}

} // namespace

void MonthlyUsageStats::add(const TTSUsageLog &log, UsageEventType eventType)
{
    totalCharacters += log.characterCount;
    exactCostCents += log.costCents();
    totalCostCents = std::llround(exactCostCents);
    switch (eventType) {
    case UsageEventType::tts: ++ttsCallCount; break;
    case UsageEventType::podcast: ++podcastCount; break;
    case UsageEventType::qaInteraction: ++qaInteractionCount; break;
    case UsageEventType::readSummary: ++readSummaryCount; break;
    }
    addTo(byProvider[log.provider], log);
    addTo(byVoiceTier[log.voiceTier], log);
    addTo(byFeature[log.feature], log);
    addTo(bySource[log.requestSource], log);
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
        if (!json.value(QStringView(key)).isDouble())
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
