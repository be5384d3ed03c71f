#pragma once

#include "core/Clock.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

namespace parlino {

class AudioEngine;
class Defaults;
class SpeechStream;
class UsageTracker;

// The one player of the process, for every kind of synthesized audio, and the only owner of the
// playback figures: it publishes them as properties (the position every 0.5 s while audio plays),
// keeps a finished file loaded so it can be replayed, and adds listening time to the usage tracker.
// The application state mirrors the figures through a connection made at start-up. Lives on the
// main thread.
//
// States: empty → loading (play) → playing ⇄ paused, → finished at the end of the file (still
// loaded, paused) → playing again from the start (togglePlayPause) → empty (stop).
class AudioPlayerManager final : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
    Q_PROPERTY(float playbackRate READ playbackRate NOTIFY playbackRateChanged)
    Q_PROPERTY(QUrl currentURL READ currentURLOrEmpty NOTIFY currentURLChanged)

public:
    static constexpr std::chrono::milliseconds kTimeUpdateInterval{500};
    // Listening time is accounted every time the position has advanced this far.
    static constexpr double kTrackingPositionStep = 10.0;
    // Sessions of this length or shorter are not listening time.
    static constexpr double kMinimumSession = 1.0;
    // Resuming this close to the end starts the file again.
    static constexpr double kReplayThreshold = 0.5;

    AudioPlayerManager(AudioEngine &engine, UsageTracker &usageTracker, Defaults &defaults, Clock &clock,
                       QObject *parent = nullptr);
    ~AudioPlayerManager() override;

    // Loads a local audio file and starts it at the settings' default speed (or at `speed`) once it is
    // ready; a file that cannot be loaded is logged, reported by fileFailedToLoad and stays silent.
    void play(const QUrl &url, std::optional<float> speed = std::nullopt);
    // play() for a file of the temporary folder (Paths::temporary) that nobody else keeps, such as a
    // reading just made: the player removes it once another item replaces it (unless it was set
    // aside) or the player goes away.
    void playTemporaryFile(const QString &path, std::optional<float> speed = std::nullopt);
    // Plays speech that is still arriving, from its first bytes; stop() (and any later play) cancels
    // the stream, so its remaining pieces are not requested. currentURL is cleared: no file plays.
    void playStream(std::shared_ptr<SpeechStream> stream, std::optional<float> speed = std::nullopt);
    // Lets go of the stream that plays without cancelling it: it keeps arriving for whoever holds it
    // (a reading set aside while something else plays), and the next play or stop leaves it open.
    void releaseStream();
    // The same for the file that plays: a temporary file stays on disk when another item replaces it,
    // until it is played again or dropSetAsideFile() says it will not be.
    void setAsideCurrentFile();
    void dropSetAsideFile();
    // Moves to an absolute position in seconds, clamped to the start and the end.
    void seek(double seconds);
    // Pauses, or resumes at the chosen rate; at the end of the file resuming starts it again.
    void togglePlayPause();
    // Releases the file (currentURL is kept). With forceClose the floating player closes as well.
    void stop(bool forceClose = false);
    // The rate for this and later playback in this run (the settings' default is not changed).
    void setSpeed(float speed);
    // Moves the position by `seconds` (negative goes back), clamped to the start and the end.
    void skip(double seconds);

    [[nodiscard]] bool isPlaying() const { return m_isPlaying; }
    [[nodiscard]] double currentTime() const { return m_currentTime; }
    [[nodiscard]] double duration() const { return m_duration; }
    [[nodiscard]] float playbackRate() const { return m_playbackRate; }
    [[nodiscard]] const std::optional<QUrl> &currentURL() const { return m_currentURL; }
    // The reading that plays while it arrives (it has no file); null for a file.
    [[nodiscard]] const std::shared_ptr<SpeechStream> &currentStream() const { return m_currentStream; }
    // True while a file is loaded (or loading), also after it finished.
    [[nodiscard]] bool hasItem() const { return m_hasItem; }
    [[nodiscard]] AudioEngine &engine() const { return m_engine; }

Q_SIGNALS:
    void isPlayingChanged();
    void currentTimeChanged();
    void durationChanged();
    void playbackRateChanged();
    void currentURLChanged();
    // A newly loaded file started playing.
    void itemReady();
    // stop(true): the user closed the player, so the floating player should close too.
    void closeRequested();
    // The local file given to play() could not be loaded (damaged or not audio).
    void fileFailedToLoad(const QString &path);

private:
    [[nodiscard]] QUrl currentURLOrEmpty() const { return m_currentURL.value_or(QUrl()); }
    // Loads the next item at the settings' default speed; `load` hands it to the engine.
    void startItem(const std::function<void()> &load, std::optional<float> speed);
    void handleItemReady(float initialSpeed);
    void handleItemFailed(const QString &error);
    void handlePlaybackFinished();
    void setupTimeObserver();
    void updateTime();
    void trackPlaybackSession();
    void setIsPlaying(bool value);
    void setCurrentTime(double value);
    void setDuration(double value);
    // Removes a temporary file given to the player that it no longer plays and nobody set aside.
    void discardTemporary(const std::optional<QUrl> &released);

    AudioEngine &m_engine;
    UsageTracker &m_usageTracker;
    Defaults &m_defaults;
    Clock &m_clock;

    bool m_hasItem = false;
    bool m_itemFailed = false;
    std::optional<Clock::TimerId> m_timeObserver;
    QList<QMetaObject::Connection> m_itemConnections;
    std::optional<QUrl> m_currentURL;
    std::optional<QUrl> m_setAsideURL;
    QSet<QUrl> m_temporaryFiles; // given by playTemporaryFile and not removed yet
    std::shared_ptr<SpeechStream> m_currentStream;
    bool m_isPlaying = false;
    double m_currentTime = 0;
    double m_duration = 0;
    float m_playbackRate = 1.0F;
    std::optional<QDateTime> m_playbackStartTime;
    double m_lastTrackedTime = 0;
};

} // namespace parlino
