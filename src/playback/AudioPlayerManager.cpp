#include "playback/AudioPlayerManager.h"

#include "core/Defaults.h"
#include "core/Logging.h"
#include "core/Paths.h"
#include "core/SettingsKeys.h"
#include "playback/AudioEngine.h"
#include "playback/PlaybackSpeed.h"
#include "speech/SpeechStream.h"
#include "usage/UsageTracker.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace parlino {

namespace {

// Rates as people read them: "2.0", "1.25".
QString formatRate(double rate)
{
    const QString text = QString::number(rate, 'g', 6);
    return text.contains(u'.') ? text : text + QStringLiteral(".0");
}

} // namespace

AudioPlayerManager::AudioPlayerManager(AudioEngine &engine, UsageTracker &usageTracker, Defaults &defaults,
                                       Clock &clock, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_usageTracker(usageTracker)
    , m_defaults(defaults)
    , m_clock(clock)
{
}

AudioPlayerManager::~AudioPlayerManager()
{
    if (m_timeObserver)
        m_clock.cancel(*m_timeObserver);
    for (const auto &connection : std::as_const(m_itemConnections))
        disconnect(connection);
    m_setAsideURL.reset();
    const QSet<QUrl> remaining = m_temporaryFiles;
    for (const QUrl &url : remaining)
        discardTemporary(url);
}

void AudioPlayerManager::playTemporaryFile(const QString &path, std::optional<float> speed)
{
    const QUrl url = QUrl::fromLocalFile(path);
    if (Paths::isTemporary(path))
        m_temporaryFiles.insert(url);
    play(url, speed);
}

void AudioPlayerManager::setAsideCurrentFile()
{
    if (m_setAsideURL != m_currentURL)
        dropSetAsideFile();
    m_setAsideURL = m_currentURL;
}

void AudioPlayerManager::dropSetAsideFile()
{
    const std::optional<QUrl> setAside = std::exchange(m_setAsideURL, std::nullopt);
    if (setAside != m_currentURL)
        discardTemporary(setAside);
}

void AudioPlayerManager::discardTemporary(const std::optional<QUrl> &released)
{
    if (!released || released == m_setAsideURL || !m_temporaryFiles.remove(*released))
        return;
    const QString path = released->toLocalFile();
    if (QFile::remove(path))
        PLOG(lcPlayback) << "🔍 Removed the finished temporary audio " << QFileInfo(path).fileName();
}

void AudioPlayerManager::play(const QUrl &url, std::optional<float> speed)
{
    const QString location = url.isLocalFile() ? url.toLocalFile() : url.toString();
    PLOG(lcPlayback) << "🎵 AudioPlayerManager.play() called";
    PLOG(lcPlayback) << "   URL: " << url.toString();
    PLOG(lcPlayback) << "   File exists: " << boolText(url.isLocalFile() && QFileInfo::exists(location));

    stop(false);

    const std::optional<QUrl> previous = std::exchange(m_currentURL, url);
    if (m_setAsideURL == url)
        m_setAsideURL.reset(); // playing again: it is the current file once more
    if (previous != url)
        discardTemporary(previous);
    Q_EMIT currentURLChanged();
    startItem([this, location] { m_engine.load(location); }, speed);
}

void AudioPlayerManager::playStream(std::shared_ptr<SpeechStream> stream, std::optional<float> speed)
{
    PLOG(lcPlayback) << "🎵 AudioPlayerManager.playStream() called";
    stop(false);
    // The file before it is no longer what plays; keeping its URL would let it be saved by mistake.
    if (m_currentURL) {
        discardTemporary(std::exchange(m_currentURL, std::nullopt));
        Q_EMIT currentURLChanged();
    }
    m_currentStream = stream;
    startItem([this, stream] { m_engine.loadStream(stream); }, speed);
}

void AudioPlayerManager::releaseStream()
{
    m_currentStream.reset();
}

void AudioPlayerManager::seek(double seconds)
{
    if (!m_hasItem || m_itemFailed || !std::isfinite(seconds))
        return;
    const double end = m_duration > 0 ? m_duration : std::numeric_limits<double>::max();
    m_engine.seek(std::clamp(seconds, 0.0, end));
    updateTime();
}

void AudioPlayerManager::startItem(const std::function<void()> &load, std::optional<float> speed)
{
    m_hasItem = true;
    m_itemFailed = false;

    const double storedSpeed = m_defaults.boundedDouble(SettingsKeys::defaultSpeed, 0, kFastestPlaybackRate, 0);
    float initialSpeed = storedSpeed > 0 ? static_cast<float>(storedSpeed) : 1.0F;
    if (speed && std::isfinite(*speed) && *speed > 0)
        initialSpeed = *speed;
    PLOG(lcPlayback) << "   Initial playback speed: " << formatRate(initialSpeed);

    m_itemConnections = {
        connect(&m_engine, &AudioEngine::loaded, this, [this, initialSpeed] { handleItemReady(initialSpeed); }),
        connect(&m_engine, &AudioEngine::loadFailed, this, &AudioPlayerManager::handleItemFailed),
        connect(&m_engine, &AudioEngine::durationChanged, this, &AudioPlayerManager::setDuration),
        connect(&m_engine, &AudioEngine::finished, this, &AudioPlayerManager::handlePlaybackFinished),
    };
    // The rate goes in before loading: audio decoded ahead while the file loads paused would
    // otherwise play its first moment at the previous rate.
    m_engine.setRate(initialSpeed);
    load();
}

void AudioPlayerManager::handleItemReady(float initialSpeed)
{
    PLOG(lcPlayback) << "✅ AVPlayerItem ready to play!";
    PLOG(lcPlayback) << "   Duration: " << m_engine.duration();
    setDuration(m_engine.duration());

    m_playbackRate = initialSpeed;
    Q_EMIT playbackRateChanged();

    PLOG(lcPlayback) << "   Calling player.play()...";
    m_engine.setRate(initialSpeed);
    m_engine.play();
    setIsPlaying(true);
    setupTimeObserver();

    PLOG(lcPlayback) << "▶️ Starting playback at " << formatRate(initialSpeed) << "x speed (from settings)";
    PLOG(lcPlayback) << "   Volume: " << m_engine.volume() << "%, muted: " << boolText(m_engine.isMuted());

    Q_EMIT itemReady();
}

void AudioPlayerManager::handleItemFailed(const QString &error)
{
    m_itemFailed = true;
    PLOG(lcPlayback) << "❌ AVPlayerItem FAILED to load";
    PLOG(lcPlayback) << "   Error: " << error;
    if (m_currentURL && m_currentURL->isLocalFile())
        Q_EMIT fileFailedToLoad(m_currentURL->toLocalFile());
}

void AudioPlayerManager::handlePlaybackFinished()
{
    PLOG(lcPlayback) << "🏁 Playback finished - preserving player for replay";
    trackPlaybackSession();
    m_engine.pause();
    setIsPlaying(false);
    updateTime();
    const QString fileName = m_currentURL ? QFileInfo(m_currentURL->path()).fileName() : QString();
    PLOG(lcPlayback) << "✅ Audio ready for replay - player, URL, and duration preserved";
    PLOG(lcPlayback) << "   File: " << fileName;
    PLOG(lcPlayback) << "   Duration: " << m_duration;
    PLOG(lcPlayback) << "   Current time: " << m_currentTime;
}

void AudioPlayerManager::setupTimeObserver()
{
    m_playbackStartTime = m_clock.now();
    if (m_timeObserver)
        m_clock.cancel(*m_timeObserver);
    m_timeObserver = m_clock.startRepeating(kTimeUpdateInterval, this, [this] {
        // Like a periodic observer: report while playing, and once after the position jumped.
        if (m_isPlaying || m_engine.position() != m_currentTime)
            updateTime();
    });
}

void AudioPlayerManager::updateTime()
{
    setCurrentTime(m_engine.position());
    if (m_currentTime - m_lastTrackedTime >= kTrackingPositionStep) {
        trackPlaybackSession();
        m_lastTrackedTime = m_currentTime;
    }
}

void AudioPlayerManager::trackPlaybackSession()
{
    if (!m_playbackStartTime)
        return;
    const QDateTime now = m_clock.now();
    const double elapsed = static_cast<double>(m_playbackStartTime->msecsTo(now)) / 1000.0;
    if (elapsed > kMinimumSession) {
        m_usageTracker.addListeningTime(elapsed);
        PLOG(lcPlayback) << "📊 Tracked playback session: " << static_cast<qint64>(elapsed) << "s";
    }
    m_playbackStartTime = now;
}

void AudioPlayerManager::togglePlayPause()
{
    if (!m_hasItem || m_itemFailed)
        return;
    if (!m_isPlaying) {
        const double position = m_engine.position();
        if (m_duration > 0 && position >= m_duration - kReplayThreshold) {
            PLOG(lcPlayback) << "🔄 At end of audio - seeking to beginning for replay";
            m_engine.seek(0);
        }
        setIsPlaying(true);
        m_engine.setRate(m_playbackRate);
        m_engine.play();
        PLOG(lcPlayback) << "▶️ Resumed playback at " << formatRate(m_playbackRate) << "x speed";
    } else {
        m_engine.pause();
        setIsPlaying(false);
        PLOG(lcPlayback) << "⏸️ Paused playback";
    }
    updateTime();
}

void AudioPlayerManager::stop(bool forceClose)
{
    trackPlaybackSession();
    m_engine.pause();

    // Stopping a reading that is still arriving stops its requests too.
    if (m_currentStream) {
        m_currentStream->cancel();
        m_currentStream.reset();
    }
    m_engine.unload();
    m_hasItem = false;
    m_itemFailed = false;

    setIsPlaying(false);
    setCurrentTime(0);
    setDuration(0);

    // The engine is already released; the observer is simply dropped after it.
    if (m_timeObserver) {
        m_clock.cancel(*m_timeObserver);
        m_timeObserver.reset();
    }

    for (const auto &connection : std::as_const(m_itemConnections))
        disconnect(connection);
    m_itemConnections.clear();
    m_playbackStartTime.reset();
    m_lastTrackedTime = 0;

    if (forceClose) {
        Q_EMIT closeRequested();
        PLOG(lcPlayback) << "🔒 Floating player force closed - user must use Super+Shift+R";
    }
}

void AudioPlayerManager::setSpeed(float speed)
{
    if (!std::isfinite(speed) || speed <= 0) {
        PWARN(lcPlayback) << "⚠️ Ignoring invalid playback speed: " << speed;
        return;
    }
    m_playbackRate = speed;
    Q_EMIT playbackRateChanged();
    if (m_isPlaying)
        m_engine.setRate(speed);

    PLOG(lcPlayback) << "🎚️ Speed changed to " << formatRate(speed) << "x";
    PLOG(lcPlayback) << "   Stored playbackRate: " << formatRate(m_playbackRate);
    PLOG(lcPlayback) << "   Current player rate: " << formatRate(m_isPlaying ? m_engine.rate() : 0.0);
    PLOG(lcPlayback) << "   Is playing: " << boolText(m_isPlaying);

    m_usageTracker.recordPlaybackSpeed(speed);
}

void AudioPlayerManager::skip(double seconds)
{
    if (!m_hasItem || m_itemFailed || !std::isfinite(seconds))
        return;
    const double end = m_duration > 0 ? m_duration : std::numeric_limits<double>::max();
    const double target = std::clamp(m_engine.position() + seconds, 0.0, end);
    m_engine.seek(target);
    updateTime();
}

void AudioPlayerManager::setIsPlaying(bool value)
{
    if (m_isPlaying == value)
        return;
    m_isPlaying = value;
    Q_EMIT isPlayingChanged();
}

void AudioPlayerManager::setCurrentTime(double value)
{
    if (m_currentTime == value)
        return;
    m_currentTime = value;
    Q_EMIT currentTimeChanged();
}

void AudioPlayerManager::setDuration(double value)
{
    if (m_duration == value)
        return;
    m_duration = value;
    Q_EMIT durationChanged();
}

} // namespace parlino
