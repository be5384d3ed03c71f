#pragma once

#include <QString>
#include <QStringList>

namespace parlino {

// The text a command works on: its positional words joined by blanks, or standard input when there
// are none or the only one is "-".
[[nodiscard]] QString readCommandText(const QStringList &positional);

} // namespace parlino
