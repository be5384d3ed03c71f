#pragma once

#include <QByteArray>

struct lame_global_struct;

namespace parlino {

// Turns mono PCM16 little-endian samples into MP3 (constant bit rate, at the input's sample rate:
// 24 kHz becomes MPEG-2 Layer III) as they arrive. The output carries no Xing/Info frame and no ID3
// tag, so the outputs of several encoders joined byte for byte are one stream whose length players
// and SpeechStream measure from its frames.
//
// flush() ends a stream; the next encode() starts a new, independent one (as a fresh encoder would),
// so one encoder can serve the chunks of a reading one after another.
class Mp3Encoder final {
public:
    // Throws parlino::Error for settings MP3 has no frames for (e.g. 23 kHz, or 320 kbit/s at 24 kHz).
    explicit Mp3Encoder(int sampleRate = 24000, int bitrateKbps = 64);
    ~Mp3Encoder();
    Mp3Encoder(const Mp3Encoder &) = delete;
    Mp3Encoder &operator=(const Mp3Encoder &) = delete;

    // The MP3 bytes that are ready after these samples; often empty, as LAME holds back a frame or
    // two. A piece of odd size leaves its last byte for the next call.
    [[nodiscard]] QByteArray encode(const QByteArray &pcm16le);
    // The rest of the stream: the held-back samples padded to whole frames. A dangling half sample is
    // dropped.
    [[nodiscard]] QByteArray flush();

    [[nodiscard]] int sampleRate() const { return m_sampleRate; }
    [[nodiscard]] int bitrateKbps() const { return m_bitrateKbps; }

private:
    void open();
    void close();

    int m_sampleRate;
    int m_bitrateKbps;
    lame_global_struct *m_lame = nullptr;
    // The first byte of a sample whose second byte has not arrived yet.
    QByteArray m_pendingByte;
};

} // namespace parlino
