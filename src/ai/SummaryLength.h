#pragma once

#include <QString>

#include <array>
#include <optional>

namespace parlino {

// How long an audio summary should be. `short_` and `long_` carry a trailing underscore only because
// their plain names are C++ keywords; their names as text are "short", "medium" and "long".
enum class SummaryLength { short_, medium, long_ };

inline constexpr std::array<SummaryLength, 3> allSummaryLengths{SummaryLength::short_, SummaryLength::medium,
                                                                SummaryLength::long_};

[[nodiscard]] inline QString name(SummaryLength length)
{
    switch (length) {
    case SummaryLength::short_: return QStringLiteral("short");
    case SummaryLength::medium: return QStringLiteral("medium");
    case SummaryLength::long_: return QStringLiteral("long");
    }
    return {};
}

[[nodiscard]] inline std::optional<SummaryLength> summaryLengthFromName(const QString &text)
{
    for (SummaryLength length : allSummaryLengths) {
        if (name(length) == text)
            return length;
    }
    return std::nullopt;
}

// The length instruction that ends the summary prompt.
[[nodiscard]] inline QString instruction(SummaryLength length)
{
    switch (length) {
    case SummaryLength::short_: return QStringLiteral("20-25% of original length, 3 key points");
    case SummaryLength::medium: return QStringLiteral("25-30% of original length, 5 key points");
    case SummaryLength::long_: return QStringLiteral("30-40% of original length, 7-10 key points");
    }
    return {};
}

// 200 tokens per level: 200, 400, 600.
[[nodiscard]] constexpr int maxTokens(SummaryLength length)
{
    return 200 * (static_cast<int>(length) + 1);
}

} // namespace parlino
