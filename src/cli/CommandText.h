#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>

namespace parlino {

// The text a command works on: its positional words joined by blanks, or standard input when there
// are none or the only one is "-".
[[nodiscard]] QString readCommandText(const QStringList &positional);

// The exit codes of every command: it ran but failed (a service refused, a file was unreadable), or it
// was called wrongly (unknown option, invalid input).
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;

// One line of text, flushed at once so output and errors interleave as they happened.
void printTo(FILE *stream, const QString &text);

} // namespace parlino
