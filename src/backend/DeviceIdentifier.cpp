#include "backend/DeviceIdentifier.h"

#include "core/Defaults.h"
#include "core/SettingsKeys.h"

#include <QUuid>

namespace parlino {

QString readOrCreateDeviceID(Defaults &defaults)
{
    const QString &key = SettingsKeys::deviceID;
    if (std::optional<QString> stored = defaults.stringForKey(key))
        return *stored;
    QString created = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    defaults.set(key, created);
    return created;
}

} // namespace parlino
