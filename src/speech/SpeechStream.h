#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <condition_variable>
#include <mutex>

namespace parlino {

// The MP3 bytes of one reading as they arrive. The speech side appends on the main thread; the
// player's decoder reads on its own thread and waits for more until the stream is finished, so sound
// can start with the first bytes of the first chunk. Everything that arrived stays readable, so the
// listener can seek back within it.
class SpeechStream final : public QObject {
    Q_OBJECT
public:
    explicit SpeechStream(QObject *parent = nullptr);
    ~SpeechStream() override;

    // ---- Writer (main thread) ----

    void append(const QByteArray &mp3);
    // No more bytes will come: a reader at the end sees the end of the stream.
    void finish();
    // The stream ends where it is; what arrived still plays. `error` is for the user.
    void fail(const QString &error);
    // The listener stopped: the stream closes and its writer requests nothing more.
    void cancel();
    [[nodiscard]] bool isCancelled() const;

    // ---- Readers (any thread) ----

    // Copies up to `capacity` bytes from `offset`; waits while the stream is open and has nothing
    // there yet. Returns 0 at the end of a closed stream, -1 once `cancelled` becomes true (a reader's
    // own flag, set with cancelReader()).
    qint64 read(qint64 offset, char *buffer, qint64 capacity, const bool &cancelled);
    // Sets `cancelled` and wakes the reader waiting on it.
    void cancelReader(bool &cancelled);

    [[nodiscard]] qint64 size() const;
    [[nodiscard]] bool isClosed() const;
    [[nodiscard]] bool hasFailed() const;
    [[nodiscard]] QString error() const;
    // Seconds of audio in the whole MP3 frames that arrived so far.
    [[nodiscard]] double arrivedSeconds() const;
    // A copy of every byte that arrived (the finished file, for the cache).
    [[nodiscard]] QByteArray bytes() const;

Q_SIGNALS:
    // More audio arrived; `seconds` is arrivedSeconds().
    void grown(double seconds);
    void finished();
    void failed(const QString &error);

private:
    void scanFrames();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    QByteArray m_data;
    bool m_closed = false;
    bool m_cancelled = false;
    QString m_error;
    // How far the frame scan has got, and the audio it found.
    qint64 m_scanned = 0;
    double m_seconds = 0;
};

} // namespace parlino
