#pragma once

#include <QString>

#include <optional>

namespace parlino {

enum class AppearanceMode { light, dark, system };

[[nodiscard]] inline QString rawValue(AppearanceMode mode)
{
    switch (mode) {
    case AppearanceMode::light: return QStringLiteral("light");
    case AppearanceMode::dark: return QStringLiteral("dark");
    case AppearanceMode::system: return QStringLiteral("system");
    }
    return {};
}

[[nodiscard]] inline std::optional<AppearanceMode> appearanceModeFromRawValue(const QString &value)
{
    for (AppearanceMode mode : {AppearanceMode::light, AppearanceMode::dark, AppearanceMode::system})
        if (rawValue(mode) == value)
            return mode;
    return std::nullopt;
}

} // namespace parlino
