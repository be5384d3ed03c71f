#pragma once

#include <QByteArray>
#include <QString>

namespace parlino {

// Writes data to a new file in the temporary folder named by a fresh UUID, with the extension
// ".mp3", and returns its path. The file belongs to the caller. Throws Error when it cannot be written.
[[nodiscard]] QString writeTemporaryMp3(const QByteArray &data);

} // namespace parlino
