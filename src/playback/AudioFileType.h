#pragma once

#include <QString>

namespace parlino {

// Whether the file's content (not its name) is audio in a format the player opens: MP3, Ogg, Opus, FLAC,
// WAV, AAC or M4A. Playlists (M3U, PLS, ASX) are not, though their types are filed under audio: they
// name other files and addresses to fetch.
[[nodiscard]] bool isAudioFile(const QString &path);

} // namespace parlino
