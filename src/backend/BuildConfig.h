#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

namespace parlino::BuildConfig {

// Settings that a build may compile in (the :/parlino/Info.json resource, filled at configure time)
// and that the environment can supply. Nothing is cached: every read looks again.
//
// A compiled-in value wins, but only if it is a non-empty string; an environment variable is
// returned as it stands, even when empty. The asymmetry is deliberate: an empty compiled-in value
// means "not configured in this build", an empty variable means "configured as empty".

[[nodiscard]] std::optional<QString> apiKey();      // "APIKey" / API_KEY
[[nodiscard]] std::optional<QString> supabaseURL(); // "SupabaseURL" / SUPABASE_URL
[[nodiscard]] std::optional<QString> supabaseKey(); // "SupabaseKey" / SUPABASE_KEY

// The lookup rule on its own, for any information dictionary.
[[nodiscard]] std::optional<QString> lookup(const QJsonObject &info, const QString &infoKey, const char *envVar);

// The compiled-in information dictionary (empty if the resource is missing or unreadable).
[[nodiscard]] QJsonObject infoDictionary();
// Replaces the compiled-in dictionary for this process (tests); std::nullopt restores it.
void overrideInfoDictionary(std::optional<QJsonObject> info);

// Start-up diagnostics: which settings are present and where they came from, never their values.
void printConfiguration();

} // namespace parlino::BuildConfig
