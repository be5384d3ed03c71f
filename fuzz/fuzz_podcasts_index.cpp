// The podcasts index (podcasts.json).
#include "FuzzSupport.h"
#include "core/Error.h"
#include "library/PodcastStorageService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString folder = parlino::fuzz::emptyFolder();
    parlino::fuzz::writeFile(folder + QStringLiteral("/podcasts.json"), parlino::fuzz::bytes(data, size));
    try {
        (void)parlino::PodcastStorageService(folder).loadAllPodcasts();
    } catch (const parlino::Error &) {
        // A damaged index is refused with an error: the expected outcome.
    }
    return 0;
}
