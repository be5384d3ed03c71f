#pragma once

#include <QString>

#include <array>
#include <optional>

namespace parlino {

// The six podcast styles; the raw value is both the stored form and the display name.
enum class PodcastType { educational, fictional, business, conversational, deepDive, quickSummary };

inline constexpr std::array<PodcastType, 6> allPodcastTypes{PodcastType::educational,    PodcastType::fictional,
                                                            PodcastType::business,       PodcastType::conversational,
                                                            PodcastType::deepDive,       PodcastType::quickSummary};

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

} // namespace parlino
