#pragma once

#include <QString>

namespace parlino {

// `parlino --read-aloud [TEXT|-]` and `--read-summary`: hands the text to the running app's read-aloud
// service, starting the app first when none runs. Prints the service's error (for example
// "No text selected") to standard error. Returns the process exit code.
int runServiceCommand(const QString &method, const QStringList &arguments);

} // namespace parlino
