#include "speech/SpeechStream.h"

#include "speech/Mp3Frames.h"

#include <algorithm>
#include <cstring>

namespace parlino {

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
        const Mp3FrameHeader header = parseMp3FrameHeader(p);
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
