#pragma once

#include "speech/TTSVoice.h"
#include "usage/TTSUsageLog.h"

#include <QString>

namespace parlino {

class OpenAIClient;

// The usage record of speech just made: the provider, model and voice that really read it (the Realtime
// model after a retirement switch, the offline voice without a key), its characters and price. The
// caller adds what it measured (times, audio length) and the days of the period.
[[nodiscard]] TTSUsageLog speechUsageLog(const OpenAIClient &client, const QString &spoken, TTSVoice voice,
                                         const QString &feature, const QString &requestSource);

} // namespace parlino
