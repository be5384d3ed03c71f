#pragma once

#include <QString>

#include <array>
#include <optional>

namespace parlino {

// The six OpenAI voices; the identifier is what speech requests and cache keys carry.
enum class TTSVoice { alloy, echo, fable, onyx, nova, shimmer };

inline constexpr std::array<TTSVoice, 6> allTTSVoices{TTSVoice::alloy, TTSVoice::echo, TTSVoice::fable,
                                                      TTSVoice::onyx,  TTSVoice::nova, TTSVoice::shimmer};

[[nodiscard]] inline QString identifier(TTSVoice voice)
{
    switch (voice) {
    case TTSVoice::alloy: return QStringLiteral("alloy");
    case TTSVoice::echo: return QStringLiteral("echo");
    case TTSVoice::fable: return QStringLiteral("fable");
    case TTSVoice::onyx: return QStringLiteral("onyx");
    case TTSVoice::nova: return QStringLiteral("nova");
    case TTSVoice::shimmer: return QStringLiteral("shimmer");
    }
    return {};
}

// Exact, case-sensitive match against the six identifiers.
[[nodiscard]] inline std::optional<TTSVoice> ttsVoiceFromIdentifier(const QString &id)
{
    for (TTSVoice voice : allTTSVoices) {
        if (identifier(voice) == id)
            return voice;
    }
    return std::nullopt;
}

// The chosen voice as the settings keep it: "provider:voice", for OpenAI voices "openai:alloy".
[[nodiscard]] inline QString persistedVoiceValue(TTSVoice voice)
{
    return QStringLiteral("openai:") + identifier(voice);
}

} // namespace parlino
