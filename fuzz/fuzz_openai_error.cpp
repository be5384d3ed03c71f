// The body of a refused request, and a Realtime "error" event, as they come from the network.
#include "FuzzSupport.h"
#include "backend/ModelCatalogue.h"
#include "backend/OpenAIConnection.h"

#include <QJsonDocument>
#include <QJsonObject>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    const QByteArray body = fuzz::bytes(data, size);
    (void)errorMessageFromBody(body);
    (void)ModelCatalogue::isRetirementError(400, body);
    (void)ModelCatalogue::isRetirementError(404, body);
    (void)ModelCatalogue::isRealtimeRetirementError(QJsonDocument::fromJson(body).object());
    return 0;
}
