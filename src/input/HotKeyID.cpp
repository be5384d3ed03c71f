#include "input/HotKeyID.h"

namespace parlino {

std::optional<HotKeyID> hotKeyIDFromRaw(quint32 raw)
{
    if (raw < quint32(HotKeyID::readAloud) || raw > quint32(HotKeyID::askQuestion))
        return std::nullopt;
    return HotKeyID(raw);
}

QString actionName(HotKeyID id)
{
    switch (id) {
    case HotKeyID::readAloud: return QStringLiteral("readAloud");
    case HotKeyID::readSummary: return QStringLiteral("readSummary");
    case HotKeyID::playPause: return QStringLiteral("playPause");
    case HotKeyID::speedUp: return QStringLiteral("speedUp");
    case HotKeyID::speedDown: return QStringLiteral("speedDown");
    case HotKeyID::reserved: return QStringLiteral("reserved");
    case HotKeyID::generatePodcast: return QStringLiteral("generatePodcast");
    case HotKeyID::downloadAudio: return QStringLiteral("downloadAudio");
    case HotKeyID::saveAudio: return QStringLiteral("saveAudio");
    case HotKeyID::summarizeText: return QStringLiteral("summarizeText");
    case HotKeyID::readSelectedText: return QStringLiteral("readSelectedText");
    case HotKeyID::stopReading: return QStringLiteral("stopReading");
    case HotKeyID::speedUpFaster: return QStringLiteral("speedUpFaster");
    case HotKeyID::slowDown: return QStringLiteral("slowDown");
    case HotKeyID::openLibrary: return QStringLiteral("openLibrary");
    case HotKeyID::askQuestion: return QStringLiteral("askQuestion");
    }
    return QString();
}

} // namespace parlino
