#include "speech/Mp3Encoder.h"

#include "core/Error.h"
#include "core/Logging.h"

#include <QtEndian>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <lame/lame.h>
#include <vector>

namespace parlino {

namespace {

// Samples handed to LAME per call, so the output buffer stays small however big a piece is.
constexpr int kSamplesPerCall = 16384;
// LAME's own worst case for a call's output: 1.25 bytes per sample plus 7200.
constexpr int kOutputBufferSize = kSamplesPerCall + kSamplesPerCall / 4 + 7200;

void reportLameError(const char *format, va_list arguments)
{
    char line[512];
    std::vsnprintf(line, sizeof line, format, arguments);
    PWARN(lcSpeech) << "⚠️ LAME: " << QString::fromLocal8Bit(line).trimmed();
}

void ignoreLameMessage(const char *, va_list)
{
}

QString lameCodeText(int code)
{
    switch (code) {
    case -1: return QStringLiteral("output buffer too small");
    case -2: return QStringLiteral("out of memory");
    case -3: return QStringLiteral("encoder not initialised");
    case -4: return QStringLiteral("psychoacoustic model failed");
    default: return QStringLiteral("error %1").arg(code);
    }
}

} // namespace

Mp3Encoder::Mp3Encoder(int sampleRate, int bitrateKbps)
    : m_sampleRate(sampleRate)
    , m_bitrateKbps(bitrateKbps)
{
    open();
}

Mp3Encoder::~Mp3Encoder()
{
    close();
}

void Mp3Encoder::open()
{
    m_lame = lame_init();
    if (!m_lame)
        throw Error(QStringLiteral("Could not start the MP3 encoder (out of memory)."));
    lame_set_errorf(m_lame, reportLameError);
    lame_set_debugf(m_lame, ignoreLameMessage);
    lame_set_msgf(m_lame, ignoreLameMessage);
    lame_set_num_channels(m_lame, 1);
    lame_set_mode(m_lame, MONO);
    lame_set_in_samplerate(m_lame, m_sampleRate);
    // The same rate out as in: LAME would otherwise pick its own for low bit rates.
    lame_set_out_samplerate(m_lame, m_sampleRate);
    lame_set_VBR(m_lame, vbr_off);
    lame_set_brate(m_lame, m_bitrateKbps);
    // Encoders' outputs are joined into one stream: an Info frame in the middle would make players
    // take the first chunk's length for the whole, and a tag would be noise between frames.
    lame_set_bWriteVbrTag(m_lame, 0);
    lame_set_write_id3tag_automatic(m_lame, 0);
    // LAME quietly picks the nearest rate MP3 has (23 kHz becomes 24 kHz, 320 kbit/s at 24 kHz becomes
    // 160): the stream would then not be what its reader expects, so that is refused as well.
    if (lame_init_params(m_lame) < 0 || lame_get_out_samplerate(m_lame) != m_sampleRate
        || lame_get_brate(m_lame) != m_bitrateKbps) {
        close();
        throw Error(
            QStringLiteral("The MP3 encoder cannot write %1 Hz at %2 kbit/s.").arg(m_sampleRate).arg(m_bitrateKbps));
    }
}

void Mp3Encoder::close()
{
    if (m_lame)
        lame_close(m_lame);
    m_lame = nullptr;
}

QByteArray Mp3Encoder::encode(const QByteArray &pcm16le)
{
    if (pcm16le.isEmpty())
        return {};
    if (!m_lame)
        open();
    const QByteArray bytes = m_pendingByte.isEmpty() ? pcm16le : m_pendingByte + pcm16le;
    const qsizetype sampleCount = bytes.size() / 2;
    m_pendingByte = bytes.size() % 2 != 0 ? bytes.right(1) : QByteArray();
    if (sampleCount == 0)
        return {};

    std::vector<short> samples(static_cast<size_t>(sampleCount));
    qFromLittleEndian<qint16>(bytes.constData(), sampleCount, samples.data());
    QByteArray mp3;
    std::vector<unsigned char> buffer(kOutputBufferSize);
    for (qsizetype at = 0; at < sampleCount; at += kSamplesPerCall) {
        const int count = static_cast<int>(std::min<qsizetype>(kSamplesPerCall, sampleCount - at));
        const int written =
            lame_encode_buffer(m_lame, samples.data() + at, nullptr, count, buffer.data(), kOutputBufferSize);
        if (written < 0)
            throw Error(QStringLiteral("MP3 encoding failed: ") + lameCodeText(written));
        mp3.append(reinterpret_cast<const char *>(buffer.data()), written);
    }
    return mp3;
}

QByteArray Mp3Encoder::flush()
{
    m_pendingByte.clear();
    if (!m_lame)
        return {};
    std::vector<unsigned char> buffer(kOutputBufferSize);
    const int written = lame_encode_flush(m_lame, buffer.data(), kOutputBufferSize);
    // The next encode() opens a fresh encoder: LAME's state after a flush belongs to a finished stream.
    close();
    if (written < 0)
        throw Error(QStringLiteral("MP3 encoding failed: ") + lameCodeText(written));
    return QByteArray(reinterpret_cast<const char *>(buffer.data()), written);
}

} // namespace parlino
