#pragma once

#include <QString>

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

} // namespace parlino
