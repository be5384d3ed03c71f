// The models' shutdown dates as kept from the service's last answer (model_availability.json).
#include "FuzzSupport.h"
#include "backend/ModelAvailability.h"
#include "backend/OpenAIConnection.h"
#include "core/Clock.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    const QString path = fuzz::emptyFolder() + QStringLiteral("/model_availability.json");
    fuzz::writeFile(path, fuzz::bytes(data, size));
    OpenAIConnection connection(std::nullopt, QStringLiteral("http://127.0.0.1:9"));
    ModelAvailability availability(connection, Clock::system(), path);
    (void)availability.shutdownDate(QStringLiteral("tts-1"));
    return 0;
}
