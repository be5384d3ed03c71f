#pragma once

#include <QByteArray>
#include <QString>

namespace parlino {

// Writes data to a new file in the private temporary folder (Paths::newTemporaryFile, readable by the
// user only), with the extension ".mp3", and returns its path. The file belongs to the caller, who
// removes it when done. Throws Error when it cannot be written.
[[nodiscard]] QString writeTemporaryMp3(const QByteArray &data);

} // namespace parlino
