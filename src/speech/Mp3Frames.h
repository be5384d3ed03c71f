#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace parlino {

// MPEG audio Layer III frame headers and ID3v2 tags: what the stream counts as audio and what an answer
// of the speech service must open with.
struct Mp3FrameHeader {
    int length = 0;  // bytes, header included; 0 when the bytes are no frame header
    int samples = 0; // per channel
    int sampleRate = 0;
};

// The Layer III frame header in the four bytes at `p`, or length 0 when they are none.
[[nodiscard]] Mp3FrameHeader parseMp3FrameHeader(const unsigned char *p);

// The size of an ID3v2 tag starting at `p` (its ten-byte header included), or 0.
[[nodiscard]] qint64 id3TagSize(const unsigned char *p, qint64 available);

enum class Mp3Opening {
    undecided, // more bytes are needed to tell
    audio,     // after any ID3v2 tags, whole frames back to back
    notAudio,
};

// Whether data opens, after any ID3v2 tags, with `frames` whole Layer III frames back to back. `complete`
// says no more bytes will come: then fewer frames do, as long as the bytes hold at least one.
[[nodiscard]] Mp3Opening mp3Opening(const QByteArray &data, bool complete, int frames = 3);

} // namespace parlino
