#pragma once

#include <QString>

#include <array>
#include <optional>

namespace parlino {

// The selectable playback rates, 0.5× to 3× in steps of 0.25.
enum class PlaybackSpeed { x0_5, x0_75, x1, x1_25, x1_5, x1_75, x2, x2_25, x2_5, x2_75, x3 };

inline constexpr std::array<PlaybackSpeed, 11> allPlaybackSpeeds{
    PlaybackSpeed::x0_5, PlaybackSpeed::x0_75, PlaybackSpeed::x1, PlaybackSpeed::x1_25,
    PlaybackSpeed::x1_5, PlaybackSpeed::x1_75, PlaybackSpeed::x2, PlaybackSpeed::x2_25,
    PlaybackSpeed::x2_5, PlaybackSpeed::x2_75, PlaybackSpeed::x3};

[[nodiscard]] constexpr double rawValue(PlaybackSpeed speed)
{
    return 0.5 + 0.25 * static_cast<int>(speed);
}

// The range a stored default speed must lie in (0 meaning none chosen).
inline constexpr double kFastestPlaybackRate = 3.0;

// "1x", "2x", "3x" for whole rates, "0.5x", "1.25x" for the others.
[[nodiscard]] inline QString displayName(PlaybackSpeed speed)
{
    return QString::number(rawValue(speed), 'g', 4) + u'x';
}

// Matches one of the eleven rates exactly; anything else is no speed.
[[nodiscard]] constexpr std::optional<PlaybackSpeed> playbackSpeedFromRawValue(double rate)
{
    for (PlaybackSpeed speed : allPlaybackSpeeds) {
        if (rawValue(speed) == rate)
            return speed;
    }
    return std::nullopt;
}

} // namespace parlino
