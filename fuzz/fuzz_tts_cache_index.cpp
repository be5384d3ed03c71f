// The audio cache's index and statistics files, as an earlier run (or damage) left them.
#include "FuzzSupport.h"
#include "speech/TTSCacheService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString folder = parlino::fuzz::emptyFolder();
    const QByteArray input = parlino::fuzz::bytes(data, size);
    parlino::fuzz::writeFile(folder + QStringLiteral("/cache_metadata.json"), input);
    parlino::fuzz::writeFile(folder + QStringLiteral("/cache_statistics.json"), input);
    // Loading runs on the cache's worker thread; the destructor waits for it.
    const parlino::TTSCacheService cache(folder);
    return 0;
}
