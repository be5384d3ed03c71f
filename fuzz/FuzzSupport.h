#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: a Qt application object, XDG folders in a temporary directory that
// lives as long as the process, and silence (the loaders' warnings would swamp libFuzzer's output).
namespace parlino::fuzz {

// Call once from LLVMFuzzerInitialize.
void initialize(int *argc, char ***argv);
// A fresh, empty folder inside the temporary directory (each input starts from nothing).
[[nodiscard]] QString emptyFolder();
// Writes `data` to `path`, replacing what was there.
void writeFile(const QString &path, const QByteArray &data);
[[nodiscard]] inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

} // namespace parlino::fuzz
