#pragma once

#include <QString>

namespace parlino {

class Defaults;

// The installation's device identifier under "deviceID": read as stored, or created once as an
// upper-case random UUID and written at once. It never changes afterwards.
[[nodiscard]] QString readOrCreateDeviceID(Defaults &defaults);

} // namespace parlino
