// The usage logs, the logs still to send and this month's statistics, then one more reading counted.
#include "FuzzSupport.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/SettingsKeys.h"
#include "usage/UsageTrackingService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    const QByteArray input = fuzz::bytes(data, size);
    Defaults defaults(fuzz::emptyFolder() + QStringLiteral("/settings.conf"));
    for (const QString &key :
         {SettingsKeys::usageLogs, SettingsKeys::pendingUsageLogs, SettingsKeys::monthlyUsageStats})
        defaults.set(key, input);
    UsageTrackingService usage(defaults, Clock::system());
    TTSUsageLog log;
    log.timestamp = Clock::system().now();
    log.characterCount = 1200;
    log.costPerKChars = 1.5;
    log.provider = QStringLiteral("openai-speech");
    usage.addUsageLog(log);
    return 0;
}
