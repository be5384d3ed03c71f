// The sync engine's three stored queues and its statistics, then one more event queued over them;
// and the account row, as cached beside them and as the database answers it.
#include "FuzzSupport.h"
#include "backend/AppUser.h"
#include "backend/SupabaseService.h"
#include "backend/SupabaseSyncEngine.h"
#include "core/Clock.h"
#include "core/Defaults.h"
#include "core/Error.h"
#include "core/SettingsKeys.h"

#include <QJsonDocument>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    const QByteArray input = fuzz::bytes(data, size);
    Defaults defaults(fuzz::emptyFolder() + QStringLiteral("/settings.conf"));
    for (const QString &key : {SettingsKeys::syncHighPriorityQueue, SettingsKeys::syncMediumPriorityQueue,
                               SettingsKeys::syncLowPriorityQueue, SettingsKeys::syncStatistics})
        defaults.set(key, input);
    SupabaseService service(SupabaseCredentials{}, defaults, Clock::system());
    SupabaseSyncEngine engine(service, defaults, Clock::system());
    (void)engine.getAllEventsNeedingRetry();
    (void)AppUser::fromJson(QJsonDocument::fromJson(input).object());
    try {
        (void)AppUser::decodeServerList(input);
    } catch (const Error &) {
        // Rows that do not decode are refused with an error: the expected outcome.
    }
    engine.queueEvent(SyncEventType::ttsGeneration, QJsonObject{{QStringLiteral("character_count"), 12}},
                      SyncPriority::low);
    return 0;
}
