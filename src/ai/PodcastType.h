#pragma once

#include <QString>

#include <array>
#include <optional>

namespace parlino {

// The six podcast styles; the raw value is both the stored form and the display name.
enum class PodcastType { educational, fictional, business, conversational, deepDive, quickSummary };

inline constexpr std::array<PodcastType, 6> allPodcastTypes{PodcastType::educational, PodcastType::fictional,
                                                            PodcastType::business,    PodcastType::conversational,
                                                            PodcastType::deepDive,    PodcastType::quickSummary};

[[nodiscard]] inline QString rawValue(PodcastType type)
{
    switch (type) {
    case PodcastType::educational: return QStringLiteral("Educational");
    case PodcastType::fictional: return QStringLiteral("Fictional Narrative");
    case PodcastType::business: return QStringLiteral("Business Analysis");
    case PodcastType::conversational: return QStringLiteral("Interview Style");
    case PodcastType::deepDive: return QStringLiteral("Deep Dive");
    case PodcastType::quickSummary: return QStringLiteral("Quick Summary");
    }
    return {};
}

[[nodiscard]] inline std::optional<PodcastType> podcastTypeFromRawValue(const QString &raw)
{
    for (PodcastType type : allPodcastTypes) {
        if (rawValue(type) == raw)
            return type;
    }
    return std::nullopt;
}

// The style whose raw value is name in any case, with hyphens or underscores for blanks ("deep-dive").
[[nodiscard]] inline std::optional<PodcastType> podcastTypeNamed(QString name)
{
    name.replace(u'-', u' ').replace(u'_', u' ');
    for (PodcastType type : allPodcastTypes) {
        if (rawValue(type).compare(name.simplified(), Qt::CaseInsensitive) == 0)
            return type;
    }
    return std::nullopt;
}

// The target length of a podcast of this type for a source of wordCount words, e.g. "3–4 minutes":
// reading time at 150 words a minute (whole minutes) stretched by the style's low and high factors,
// each truncated. Sources under 150 words give "0–0 minutes".
[[nodiscard]] inline QString estimateDuration(PodcastType type, int wordCount)
{
    double low = 1.0;
    double high = 1.0;
    switch (type) {
    case PodcastType::educational:
        low = 1.2;
        high = 1.5;
        break;
    case PodcastType::fictional:
        low = 1.3;
        high = 1.7;
        break;
    case PodcastType::business:
        low = 1.1;
        high = 1.4;
        break;
    case PodcastType::conversational:
        low = 1.4;
        high = 1.8;
        break;
    case PodcastType::deepDive:
        low = 1.5;
        high = 2.0;
        break;
    case PodcastType::quickSummary:
        low = 0.3;
        high = 0.5;
        break;
    }
    const int minutes = wordCount / 150;
    return QString::number(static_cast<int>(minutes * low)) + u'\u2013'
           + QString::number(static_cast<int>(minutes * high)) + QStringLiteral(" minutes");
}

} // namespace parlino
