#pragma once

#include <QStringList>

namespace parlino {

// The calling thread's stack, innermost frame first, one symbolised frame per entry (best effort:
// frames without symbols show their address).
[[nodiscard]] QStringList currentStackTrace(int skipFrames = 1);

} // namespace parlino
