#pragma once

#include <QStringList>

class QDateTime;
class QLoggingCategory;

namespace parlino {

// The calling thread's stack, innermost frame first, one symbolised frame per entry (best effort:
// frames without symbols show their address).
[[nodiscard]] QStringList currentStackTrace(int skipFrames = 1);

// Reading another application's selection fails silently without accessibility, so every query of the
// permission can leave a trace of who asked, when, and from where (in the diagnostics category).
void logAccessibilityQuery(const QString &caller, const QDateTime &when);

} // namespace parlino
