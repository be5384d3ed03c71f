#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>

#include <optional>

namespace parlino {

struct TTSUsageLog;

// What a request counts as in the month's totals.
enum class UsageEventType { tts, podcast, qaInteraction, readSummary };

// One line of a breakdown (by provider, voice tier, feature or request source).
struct UsageBreakdown {
    qint64 callCount = 0;
    qint64 characters = 0;
    double costCents = 0;
    // The mean price per 1000 characters of its requests, in cents (the one shown by provider).
    double avgCostPerKChars = 0;

    friend bool operator==(const UsageBreakdown &, const UsageBreakdown &) = default;
};

// The current calendar month's totals with their four breakdowns. Stored as JSON with these member
// names; costs are summed exactly and shown rounded to whole cents.
struct MonthlyUsageStats {
    qint64 totalCharacters = 0;
    qint64 totalCostCents = 0;
    qint64 ttsCallCount = 0;
    qint64 podcastCount = 0;
    qint64 qaInteractionCount = 0;
    qint64 readSummaryCount = 0;
    QMap<QString, UsageBreakdown> byProvider;
    QMap<QString, UsageBreakdown> byVoiceTier;
    QMap<QString, UsageBreakdown> byFeature;
    QMap<QString, UsageBreakdown> bySource;
    // The unrounded cost behind totalCostCents, so many small requests are not rounded away.
    double exactCostCents = 0;

    // Folds one request in: totals, the counter of its kind, and its four breakdown lines. Totals that
    // would overflow start again from this request, with a warning.
    void add(const TTSUsageLog &log, UsageEventType eventType);

    [[nodiscard]] QJsonObject toJson() const;
    // Nothing when the members are not there, of the wrong type, or counts below zero.
    [[nodiscard]] static std::optional<MonthlyUsageStats> fromJson(const QJsonObject &json);

    friend bool operator==(const MonthlyUsageStats &, const MonthlyUsageStats &) = default;
};

} // namespace parlino
