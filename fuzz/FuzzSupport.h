#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: a Qt application object, XDG folders in a temporary directory that
// lives as long as the process, and silence (the loaders' warnings would swamp libFuzzer's output).
// FuzzSupport.cpp defines LLVMFuzzerInitialize for every target; a target defines only
// LLVMFuzzerTestOneInput.
namespace parlino::fuzz {

// Called once by LLVMFuzzerInitialize, before the first input.
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
