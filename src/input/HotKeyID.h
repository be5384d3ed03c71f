#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>

namespace parlino {

// The actions that a global shortcut can start. The raw value is the identifier registered with the
// hot-key service and must stay stable.
enum class HotKeyID : quint32 {
    readAloud = 1,
    readSummary = 2,
    playPause = 3,
    speedUp = 4,
    speedDown = 5,
    reserved = 6, // kept so the numbering of the later actions stays unchanged; has no binding
    generatePodcast = 7,
    downloadAudio = 8,
    saveAudio = 9,
    summarizeText = 10,
    readSelectedText = 11,
    stopReading = 12,
    speedUpFaster = 13,
    slowDown = 14,
    openLibrary = 15,
    askQuestion = 16,
};

// The action for a raw identifier; absent outside 1..16.
[[nodiscard]] std::optional<HotKeyID> hotKeyIDFromRaw(quint32 raw);

// The action name used as key in the bindings dictionary and its persisted form ("readAloud", ...).
[[nodiscard]] QString actionName(HotKeyID id);

} // namespace parlino
