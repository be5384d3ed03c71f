#include "app/SpeechUsage.h"

#include "ai/OpenAIClient.h"
#include "speech/TextChunker.h"
#include "usage/SpeechPrices.h"

#include <QDateTime>

namespace parlino {

TTSUsageLog speechUsageLog(const OpenAIClient &client, const QString &spoken, TTSVoice voice, const QString &feature,
                           const QString &requestSource)
{
    TTSUsageLog log;
    log.timestamp = QDateTime::currentDateTimeUtc();
    log.provider = client.speechProviderName();
    log.modelName = client.speechModelName();
    log.voiceName = client.speechCacheVoice(voice);
    log.voiceTier = log.provider == u"offline" ? QStringLiteral("offline") : QStringLiteral("standard");
    log.characterCount = characterCount(spoken);
    log.costPerKChars = speechCentsPerThousandCharacters(log.modelName);
    log.feature = feature;
    log.requestSource = requestSource;
    return log;
}

} // namespace parlino
