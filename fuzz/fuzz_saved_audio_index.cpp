// The saved-audio index (saved_audio.json).
#include "FuzzSupport.h"
#include "core/Error.h"
#include "library/SavedAudioStorageService.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString folder = parlino::fuzz::emptyFolder();
    parlino::fuzz::writeFile(folder + QStringLiteral("/saved_audio.json"), parlino::fuzz::bytes(data, size));
    try {
        (void)parlino::SavedAudioStorageService(folder).loadAll();
    } catch (const parlino::Error &) {
        // A damaged index is refused with an error: the expected outcome.
    }
    return 0;
}
