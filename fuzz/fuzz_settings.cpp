// The settings file itself, read through Defaults by every reader of numbers in it.
#include "FuzzSupport.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "usage/UsageTracker.h"

#include <limits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    const QString path = fuzz::emptyFolder() + QStringLiteral("/settings.conf");
    fuzz::writeFile(path, fuzz::bytes(data, size));
    Defaults defaults(path);
    const QStringList keys = defaults.allKeys();
    for (const QString &key : keys) {
        (void)defaults.boolForKey(key);
        (void)defaults.doubleForKey(key);
        (void)defaults.integerForKey(key);
        (void)defaults.stringForKey(key);
        (void)defaults.dataForKey(key);
        (void)defaults.boundedDouble(key, 0, 3, 1);
        (void)defaults.boundedInteger(key, 1, std::numeric_limits<qint64>::max(), 1);
        (void)defaults.boundedSize(key, QSizeF(200, 180), QSizeF(500, 600), QSizeF(280, 380));
    }
    UsageTracker tracker(defaults);
    tracker.recordPlaybackSpeed(1.5);
    tracker.addListeningTime(10);
    ModelSettings models(defaults);
    (void)models.speechProvider();
    (void)models.speechModel();
    (void)models.realtimeSpeechModel();
    return 0;
}
