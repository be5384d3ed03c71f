// The certificate pins file (pins.json).
#include "FuzzSupport.h"
#include "backend/CertificatePinningService.h"
#include "core/Error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString path = parlino::fuzz::emptyFolder() + QStringLiteral("/pins.json");
    parlino::fuzz::writeFile(path, parlino::fuzz::bytes(data, size));
    try {
        (void)parlino::CertificatePinningService::fromFile(path);
    } catch (const parlino::Error &) {
        // An unreadable pins file is refused with an error: the expected outcome.
    }
    return 0;
}
