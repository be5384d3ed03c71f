#pragma once

#include "playback/AudioEngine.h"

#include <QByteArray>
#include <QList>
#include <QPair>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

struct mpv_handle;
struct mpv_stream_cb_info;
struct mpv_event;

namespace parlino {

// AudioEngine on libmpv. One mpv core, driven from the owning thread: mpv's wakeup callback posts a
// queued call that drains the event queue. Speed changes go through mpv's pitch correction
// (scaletempo2), so a voice at 2× keeps its pitch. Files stay loaded at their end (keep-open) so they
// can be replayed.
class MpvAudioEngine final : public AudioEngine {
    Q_OBJECT
public:
    // Audio outputs tried in order by the application; tests pass "null".
    static constexpr auto kDefaultAudioOutput = "pulse,alsa,null";

    // `audioOutput` is mpv's "ao" list. `extraOptions` are further mpv options set before the core
    // starts (for example an "ao-pcm-file" to record what was played). Must be created after the
    // application object: it resets LC_NUMERIC to "C", which mpv requires.
    explicit MpvAudioEngine(const QString &audioOutput = QLatin1String(kDefaultAudioOutput),
                            const QList<QPair<QByteArray, QByteArray>> &extraOptions = {}, QObject *parent = nullptr);
    ~MpvAudioEngine() override;

    // False when the mpv core could not be created or started; every load then fails.
    [[nodiscard]] bool isValid() const { return m_mpv != nullptr; }
    // Stops the core for good (at application exit); later loads fail.
    void shutdown();
    // Opens the sound output once in the background by playing a moment of silence through a second,
    // short-lived core. The first stream a process opens on the sound server can take a second to start
    // sounding; afterwards, and for this engine's own first reading, it takes a few milliseconds.
    void warmUpOutput();

    void load(const QString &location) override;
    void loadStream(std::shared_ptr<SpeechStream> stream) override;
    void unload() override;
    void play() override;
    void pause() override;
    void setRate(double rate) override;
    void seek(double seconds) override;

    [[nodiscard]] double position() const override { return m_position; }
    [[nodiscard]] double duration() const override { return m_duration; }
    [[nodiscard]] double rate() const override { return m_rate; }
    [[nodiscard]] bool isPaused() const override { return m_paused; }
    [[nodiscard]] double volume() const override;
    [[nodiscard]] bool isMuted() const override;

private:
    static void wakeup(void *context);
    // mpv opens "parlino-stream://<id>" on its own thread through this.
    static int openStream(void *context, char *uri, mpv_stream_cb_info *info);
    void drainEvents();
    void handleEvent(const mpv_event &event);
    void handlePropertyChange(const mpv_event &event);
    void setFlag(const char *name, bool value);
    void reachEnd();
    void failLater(const QString &error);

    mpv_handle *m_mpv = nullptr;
    QString m_audioOutput;
    // Streams handed to loadStream(), by the id in their URI; only the latest is kept.
    std::mutex m_streamsMutex;
    std::map<quint64, std::shared_ptr<SpeechStream>> m_streams;
    quint64 m_nextStreamId = 1;
    QMetaObject::Connection m_streamGrowth;
    double m_streamedSeconds = 0;
    std::atomic<bool> m_drainQueued{false};

    // Playlist entry of the file asked for by the last load(); events of other entries are stale.
    qint64 m_expectedEntry = -1;
    qint64 m_currentEntry = -1;
    bool m_loadPending = false;
    bool m_seekPending = false;
    QString m_location;
    QString m_lastError;

    double m_position = 0;
    double m_duration = 0;
    double m_rate = 1;
    bool m_paused = true;
    bool m_pausedByMpv = false;
    bool m_eofReached = false;
    bool m_endReported = false;
};

} // namespace parlino
