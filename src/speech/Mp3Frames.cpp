#include "speech/Mp3Frames.h"

#include <array>
#include <cstring>

namespace parlino {

namespace {

// Bit rates in kbit/s by header index, for MPEG-1 Layer III and for MPEG-2/2.5 Layer III.
constexpr std::array<int, 16> kBitratesV1{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
constexpr std::array<int, 16> kBitratesV2{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
constexpr std::array<int, 3> kSampleRatesV1{44100, 48000, 32000};

} // namespace

Mp3FrameHeader parseMp3FrameHeader(const unsigned char *p)
{
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0)
        return {};
    const int version = (p[1] >> 3) & 0x03; // 0: MPEG-2.5, 2: MPEG-2, 3: MPEG-1
    const int layer = (p[1] >> 1) & 0x03;   // 1: Layer III
    const int bitrateIndex = (p[2] >> 4) & 0x0F;
    const int sampleRateIndex = (p[2] >> 2) & 0x03;
    const int padding = (p[2] >> 1) & 0x01;
    if (version == 1 || layer != 1 || bitrateIndex == 0 || bitrateIndex == 15 || sampleRateIndex == 3)
        return {};
    const bool mpeg1 = version == 3;
    const int divisor = version == 3 ? 1 : version == 2 ? 2 : 4;
    const int sampleRate = kSampleRatesV1[static_cast<size_t>(sampleRateIndex)] / divisor;
    const int bitrate = (mpeg1 ? kBitratesV1 : kBitratesV2)[static_cast<size_t>(bitrateIndex)] * 1000;
    const int length = (mpeg1 ? 144 : 72) * bitrate / sampleRate + padding;
    return {length, mpeg1 ? 1152 : 576, sampleRate};
}

qint64 id3TagSize(const unsigned char *p, qint64 available)
{
    if (available < 10 || std::memcmp(p, "ID3", 3) != 0)
        return 0;
    const qint64 body =
        (qint64(p[6] & 0x7F) << 21) | (qint64(p[7] & 0x7F) << 14) | (qint64(p[8] & 0x7F) << 7) | qint64(p[9] & 0x7F);
    const bool footer = (p[5] & 0x10) != 0;
    return 10 + body + (footer ? 10 : 0);
}

Mp3Opening mp3Opening(const QByteArray &data, bool complete, int frames)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(data.constData());
    const qint64 size = data.size();
    const Mp3Opening waiting = complete ? Mp3Opening::notAudio : Mp3Opening::undecided;
    qint64 at = 0;
    // Tags first; a tag is only known once its ten-byte header is there.
    while (size - at >= 3 && std::memcmp(bytes + at, "ID3", 3) == 0) {
        const qint64 tag = id3TagSize(bytes + at, size - at);
        if (tag == 0 || at + tag > size)
            return waiting;
        at += tag;
    }
    int found = 0;
    while (found < frames) {
        if (size - at < 4)
            break;
        const Mp3FrameHeader header = parseMp3FrameHeader(bytes + at);
        if (header.length <= 4)
            return Mp3Opening::notAudio;
        if (at + header.length > size)
            break; // the rest of this frame has not arrived
        at += header.length;
        ++found;
    }
    if (found == frames)
        return Mp3Opening::audio;
    if (complete)
        return found > 0 ? Mp3Opening::audio : Mp3Opening::notAudio;
    return Mp3Opening::undecided;
}

} // namespace parlino
