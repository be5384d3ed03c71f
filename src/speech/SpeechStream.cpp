#include "speech/SpeechStream.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace parlino {

namespace {

// Bit rates in kbit/s by header index, for MPEG-1 Layer III and for MPEG-2/2.5 Layer III.
constexpr std::array<int, 16> kBitratesV1{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
constexpr std::array<int, 16> kBitratesV2{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
constexpr std::array<int, 3> kSampleRatesV1{44100, 48000, 32000};

struct FrameHeader {
    int length = 0;  // bytes, header included
    int samples = 0; // per channel
    int sampleRate = 0;
};

// A Layer III frame header at `p`, or length 0 when the four bytes are none.
FrameHeader parseHeader(const unsigned char *p)
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

// The size of an ID3v2 tag starting at `p` (its ten-byte header included), or 0.
qint64 id3TagSize(const unsigned char *p, qint64 available)
{
    if (available < 10 || std::memcmp(p, "ID3", 3) != 0)
        return 0;
    const qint64 body =
        (qint64(p[6] & 0x7F) << 21) | (qint64(p[7] & 0x7F) << 14) | (qint64(p[8] & 0x7F) << 7) | qint64(p[9] & 0x7F);
    const bool footer = (p[5] & 0x10) != 0;
    return 10 + body + (footer ? 10 : 0);
}

} // namespace

SpeechStream::SpeechStream(QObject *parent)
    : QObject(parent)
{
}

SpeechStream::~SpeechStream() = default;

void SpeechStream::append(const QByteArray &mp3)
{
    double seconds = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed || mp3.isEmpty())
            return;
        m_data.append(mp3);
        scanFrames();
        seconds = m_seconds;
    }
    m_changed.notify_all();
    Q_EMIT grown(seconds);
}

void SpeechStream::scanFrames()
{
    // Chunks from the speech service are whole MP3 files joined byte for byte, so tags can stand
    // between frames; anything that is neither a tag nor a frame is stepped over one byte at a time.
    const auto *data = reinterpret_cast<const unsigned char *>(m_data.constData());
    const qint64 size = m_data.size();
    while (m_scanned + 4 <= size) {
        const unsigned char *p = data + m_scanned;
        if (p[0] == 'I') {
            if (size - m_scanned < 10)
                return; // wait for the whole tag header
            if (const qint64 tag = id3TagSize(p, size - m_scanned)) {
                if (m_scanned + tag > size)
                    return;
                m_scanned += tag;
                continue;
            }
        }
        const FrameHeader header = parseHeader(p);
        if (header.length <= 4) {
            ++m_scanned;
            continue;
        }
        if (m_scanned + header.length > size)
            return; // the rest of this frame has not arrived
        m_scanned += header.length;
        m_seconds += static_cast<double>(header.samples) / header.sampleRate;
    }
}

void SpeechStream::finish()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
    }
    m_changed.notify_all();
    Q_EMIT finished();
}

void SpeechStream::fail(const QString &error)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
        m_error = error;
    }
    m_changed.notify_all();
    Q_EMIT failed(error);
}

void SpeechStream::cancel()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
        m_cancelled = true;
    }
    m_changed.notify_all();
}

bool SpeechStream::isCancelled() const
{
    const std::lock_guard lock(m_mutex);
    return m_cancelled;
}

qint64 SpeechStream::read(qint64 offset, char *buffer, qint64 capacity, const bool &cancelled)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return cancelled || m_closed || offset < m_data.size(); });
    if (cancelled)
        return -1;
    if (offset >= m_data.size())
        return 0;
    const qint64 count = std::min(capacity, m_data.size() - offset);
    std::memcpy(buffer, m_data.constData() + offset, static_cast<size_t>(count));
    return count;
}

void SpeechStream::cancelReader(bool &cancelled)
{
    {
        const std::lock_guard lock(m_mutex);
        cancelled = true;
    }
    m_changed.notify_all();
}

qint64 SpeechStream::size() const
{
    const std::lock_guard lock(m_mutex);
    return m_data.size();
}

bool SpeechStream::isClosed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

bool SpeechStream::hasFailed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed && !m_error.isEmpty();
}

QString SpeechStream::error() const
{
    const std::lock_guard lock(m_mutex);
    return m_error;
}

double SpeechStream::arrivedSeconds() const
{
    const std::lock_guard lock(m_mutex);
    return m_seconds;
}

QByteArray SpeechStream::bytes() const
{
    const std::lock_guard lock(m_mutex);
    return m_data;
}

} // namespace parlino
