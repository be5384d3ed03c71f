#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace parlino {

// Hands `text` to the running app's read-aloud service for `method` ("ReadAloud" or "ReadSummary"),
// starting the app first when none runs; false with `error` set when that did not work.
using ServiceCall = std::function<bool(const QString &method, const QString &text, QString *error)>;

// `parlino --read-aloud [TEXT|-]` and `--read-summary`: reads the text (standard input for "-") and
// hands it over with `call`. Prints the service's error (for example "No text selected") to standard
// error. Returns the process exit code.
int runServiceCommand(const QString &method, const QStringList &arguments, const ServiceCall &call);

} // namespace parlino
