#include "playback/MpvAudioEngine.h"

#include "core/Logging.h"
#include "speech/Mp3Encoder.h"
#include "speech/SpeechStream.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstring>
#include <mpv/client.h>
#include <mpv/stream_cb.h>

namespace parlino {

namespace {

enum PropertyId : quint64 { TimePos = 1, Duration, Pause, EofReached, Speed };
constexpr quint64 kSeekReply = 1;

// Options that keep mpv to audio only and away from the user's own mpv configuration and scripts.
constexpr const char *kFixedOptions[][2] = {
    {"config", "no"},
    {"load-scripts", "no"},
    {"ytdl", "no"},
    // A played file never makes the player open other files or addresses it names (playlists, references).
    {"access-references", "no"},
    {"load-unsafe-playlists", "no"},
    {"terminal", "no"},
    {"input-default-bindings", "no"},
    {"vid", "no"},
    {"audio-display", "no"},
    {"idle", "yes"},
    {"keep-open", "yes"},
    {"pause", "yes"},
    {"audio-pitch-correction", "yes"},
    {"hr-seek", "yes"},
    {"resume-playback", "no"},
    {"audio-client-name", "Parlino"},
};

double doubleValue(const mpv_event_property &property)
{
    if (property.format == MPV_FORMAT_DOUBLE && property.data) {
        const double value = *static_cast<const double *>(property.data);
        return std::isfinite(value) ? value : 0.0;
    }
    return 0.0;
}

constexpr auto kStreamProtocol = "parlino-stream";

// One reading of a stream by mpv's demuxer: its position and its own cancel flag.
struct StreamReader {
    std::shared_ptr<SpeechStream> stream;
    qint64 position = 0;
    bool cancelled = false;
};

int64_t readStream(void *cookie, char *buffer, uint64_t capacity)
{
    auto *reader = static_cast<StreamReader *>(cookie);
    const qint64 count =
        reader->stream->read(reader->position, buffer, static_cast<qint64>(capacity), reader->cancelled);
    if (count > 0)
        reader->position += count;
    return count;
}

int64_t seekStream(void *cookie, int64_t offset)
{
    // Within what arrived the stream seeks like a file; past it there is nothing to seek to yet.
    auto *reader = static_cast<StreamReader *>(cookie);
    if (offset < 0 || offset > reader->stream->size())
        return MPV_ERROR_GENERIC;
    reader->position = offset;
    return offset;
}

int64_t streamSize(void *cookie)
{
    const auto *reader = static_cast<StreamReader *>(cookie);
    return reader->stream->isClosed() ? reader->stream->size() : int64_t{MPV_ERROR_UNSUPPORTED};
}

void closeStream(void *cookie)
{
    delete static_cast<StreamReader *>(cookie);
}

void cancelStream(void *cookie)
{
    auto *reader = static_cast<StreamReader *>(cookie);
    reader->stream->cancelReader(reader->cancelled);
}

bool flagValue(const mpv_event_property &property)
{
    return property.format == MPV_FORMAT_FLAG && property.data && *static_cast<const int *>(property.data) != 0;
}

} // namespace

MpvAudioEngine::MpvAudioEngine(const QString &audioOutput, const QList<QPair<QByteArray, QByteArray>> &extraOptions,
                               QObject *parent)
    : AudioEngine(parent)
{
    if (!QCoreApplication::instance())
        PWARN(lcPlayback) << "⚠️ Audio engine created before the application object";
    // QCoreApplication sets the locale from the environment; mpv refuses to start unless numbers are
    // parsed the C way.
    std::setlocale(LC_NUMERIC, "C");

    m_mpv = mpv_create();
    if (!m_mpv) {
        PWARN(lcPlayback) << "❌ Could not create the mpv audio engine";
        return;
    }
    for (const auto &option : kFixedOptions)
        mpv_set_option_string(m_mpv, option[0], option[1]);
    m_audioOutput = audioOutput;
    mpv_set_option_string(m_mpv, "ao", audioOutput.toUtf8().constData());
    for (const auto &[name, value] : extraOptions) {
        if (const int rc = mpv_set_option_string(m_mpv, name.constData(), value.constData()); rc < 0)
            PWARN(lcPlayback) << "⚠️ mpv option " << name << "=" << value << " rejected: " << mpv_error_string(rc);
    }
    if (const int rc = mpv_initialize(m_mpv); rc < 0) {
        PWARN(lcPlayback) << "❌ Could not start the mpv audio engine: " << mpv_error_string(rc);
        mpv_terminate_destroy(m_mpv);
        m_mpv = nullptr;
        return;
    }
    if (const int rc = mpv_stream_cb_add_ro(m_mpv, kStreamProtocol, this, &MpvAudioEngine::openStream); rc < 0)
        PWARN(lcPlayback) << "⚠️ Streamed audio is not available: " << mpv_error_string(rc);
    mpv_request_log_messages(m_mpv, "warn");
    mpv_observe_property(m_mpv, TimePos, "time-pos", MPV_FORMAT_DOUBLE);
    mpv_observe_property(m_mpv, Duration, "duration", MPV_FORMAT_DOUBLE);
    mpv_observe_property(m_mpv, Pause, "pause", MPV_FORMAT_FLAG);
    mpv_observe_property(m_mpv, EofReached, "eof-reached", MPV_FORMAT_FLAG);
    mpv_observe_property(m_mpv, Speed, "speed", MPV_FORMAT_DOUBLE);
    mpv_set_wakeup_callback(m_mpv, &MpvAudioEngine::wakeup, this);
}

MpvAudioEngine::~MpvAudioEngine()
{
    shutdown();
}

void MpvAudioEngine::warmUpOutput()
{
    if (!m_mpv)
        return;
    // Half a second of silence, made here so nothing is read from disk.
    Mp3Encoder encoder(24000);
    auto silence = std::make_shared<SpeechStream>();
    silence->append(encoder.encode(QByteArray(24000 / 2 * 2, '\0')) + encoder.flush());
    silence->finish();
    auto *helper = new MpvAudioEngine(m_audioOutput, {}, this);
    const auto done = [helper] {
        helper->shutdown();
        helper->deleteLater();
    };
    connect(helper, &AudioEngine::loaded, helper, &AudioEngine::play);
    connect(helper, &AudioEngine::finished, helper, done);
    connect(helper, &AudioEngine::loadFailed, helper, done);
    // Whatever happens, the second core does not outlive its purpose.
    QTimer::singleShot(std::chrono::seconds(10), helper, done);
    helper->loadStream(silence);
}

void MpvAudioEngine::shutdown()
{
    if (!m_mpv)
        return;
    // Once this returns no wakeup callback is running or will run, so none can reach a dead object.
    mpv_set_wakeup_callback(m_mpv, nullptr, nullptr);
    mpv_terminate_destroy(m_mpv);
    m_mpv = nullptr;
    m_expectedEntry = 0;
    m_loadPending = false;
}

int MpvAudioEngine::openStream(void *context, char *uri, mpv_stream_cb_info *info)
{
    auto *self = static_cast<MpvAudioEngine *>(context);
    const QString location = QString::fromUtf8(uri);
    const QString prefix = QLatin1String(kStreamProtocol) + QStringLiteral("://");
    bool isNumber = false;
    const quint64 id = location.mid(prefix.size()).toULongLong(&isNumber);
    std::shared_ptr<SpeechStream> stream;
    {
        const std::lock_guard lock(self->m_streamsMutex);
        if (const auto found = self->m_streams.find(id); isNumber && found != self->m_streams.end())
            stream = found->second;
    }
    if (!stream)
        return MPV_ERROR_LOADING_FAILED;
    info->cookie = new StreamReader{std::move(stream)};
    info->read_fn = &readStream;
    info->seek_fn = &seekStream;
    info->size_fn = &streamSize;
    info->close_fn = &closeStream;
    info->cancel_fn = &cancelStream;
    return 0;
}

void MpvAudioEngine::wakeup(void *context)
{
    // Called on one of mpv's threads: only hand the work over to the owning thread.
    auto *self = static_cast<MpvAudioEngine *>(context);
    if (self->m_drainQueued.exchange(true))
        return;
    QMetaObject::invokeMethod(
        self,
        [self] {
            self->m_drainQueued = false;
            self->drainEvents();
        },
        Qt::QueuedConnection);
}

void MpvAudioEngine::drainEvents()
{
    while (m_mpv) {
        const mpv_event *event = mpv_wait_event(m_mpv, 0);
        if (event->event_id == MPV_EVENT_NONE)
            break;
        handleEvent(*event);
    }
}

void MpvAudioEngine::handleEvent(const mpv_event &event)
{
    switch (event.event_id) {
    case MPV_EVENT_LOG_MESSAGE: {
        const auto *message = static_cast<const mpv_event_log_message *>(event.data);
        const QString text = QString::fromUtf8(message->text).trimmed();
        if (message->log_level <= MPV_LOG_LEVEL_ERROR)
            m_lastError = text;
        qCDebug(lcPlayback).noquote().nospace() << "🔍 mpv " << message->prefix << ": " << text;
        break;
    }
    case MPV_EVENT_START_FILE:
        m_currentEntry = static_cast<const mpv_event_start_file *>(event.data)->playlist_entry_id;
        break;
    case MPV_EVENT_FILE_LOADED:
        if (m_loadPending && (m_expectedEntry < 0 || m_currentEntry == m_expectedEntry)) {
            m_loadPending = false;
            // The property events for the new file may still be queued behind this one; whoever
            // handles loaded() reads the duration at once.
            double duration = 0;
            if (mpv_get_property(m_mpv, "duration", MPV_FORMAT_DOUBLE, &duration) >= 0 && std::isfinite(duration))
                m_duration = duration;
            Q_EMIT loaded();
        }
        break;
    case MPV_EVENT_END_FILE: {
        const auto *end = static_cast<const mpv_event_end_file *>(event.data);
        if (m_expectedEntry == 0 || (m_expectedEntry > 0 && end->playlist_entry_id != m_expectedEntry))
            break; // a file that was replaced or unloaded
        m_seekPending = false;
        if (end->reason == MPV_END_FILE_REASON_ERROR) {
            QString error = QString::fromUtf8(mpv_error_string(end->error));
            if (m_lastError.isEmpty() && m_location.startsWith(u'/') && !QFileInfo::exists(m_location))
                m_lastError = QStringLiteral("no such file: ") + m_location;
            if (!m_lastError.isEmpty())
                error += QStringLiteral(" (") + m_lastError + u')';
            if (m_loadPending) {
                m_loadPending = false;
                Q_EMIT loadFailed(error);
            } else {
                PWARN(lcPlayback) << "⚠️ Playback stopped by an error: " << error;
                reachEnd();
            }
        } else if (end->reason == MPV_END_FILE_REASON_EOF && !m_endReported) {
            reachEnd();
        }
        break;
    }
    case MPV_EVENT_PLAYBACK_RESTART: m_seekPending = false; break;
    case MPV_EVENT_COMMAND_REPLY:
        if (event.reply_userdata == kSeekReply && event.error < 0)
            m_seekPending = false;
        break;
    case MPV_EVENT_PROPERTY_CHANGE: handlePropertyChange(event); break;
    default: break;
    }
}

void MpvAudioEngine::handlePropertyChange(const mpv_event &event)
{
    const auto &property = *static_cast<const mpv_event_property *>(event.data);
    switch (event.reply_userdata) {
    case Pause: {
        const bool paused = flagValue(property);
        // A pause nobody here asked for is mpv's own at the end of the file (keep-open). It comes
        // once the output has played everything; eof-reached turns true earlier, when the last
        // data was handed to the output, so it alone would cut the end off.
        // The two may arrive in either order.
        m_pausedByMpv = paused && (m_pausedByMpv || !m_paused);
        m_paused = paused;
        if (m_pausedByMpv && m_eofReached && !m_endReported && m_expectedEntry != 0)
            reachEnd();
        return;
    }
    case Speed:
        if (const double speed = doubleValue(property); speed > 0)
            m_rate = speed;
        return;
    default: break;
    }

    // The remaining properties describe the file; ignore what still belongs to a replaced one.
    if (m_expectedEntry == 0 || (m_expectedEntry > 0 && m_currentEntry != m_expectedEntry))
        return;
    switch (event.reply_userdata) {
    case TimePos:
        if (m_seekPending)
            return; // the position before the seek; position() already reports the target
        m_position = doubleValue(property);
        Q_EMIT positionChanged(m_position);
        break;
    case Duration:
        m_duration = std::max(doubleValue(property), m_streamedSeconds);
        Q_EMIT durationChanged(m_duration);
        break;
    case EofReached: {
        m_eofReached = flagValue(property);
        if (!m_eofReached)
            m_endReported = false;
        else if (m_pausedByMpv && !m_endReported)
            reachEnd();
        break;
    }
    default: break;
    }
}

void MpvAudioEngine::reachEnd()
{
    m_endReported = true;
    setFlag("pause", true);
    Q_EMIT finished();
}

void MpvAudioEngine::failLater(const QString &error)
{
    QMetaObject::invokeMethod(
        this, [this, error] { Q_EMIT loadFailed(error); }, Qt::QueuedConnection);
}

void MpvAudioEngine::load(const QString &location)
{
    disconnect(m_streamGrowth);
    m_streamedSeconds = 0;
    m_position = 0;
    m_duration = 0;
    m_eofReached = false;
    m_endReported = false;
    m_seekPending = false;
    m_lastError.clear();
    m_location = location;
    if (!m_mpv) {
        m_expectedEntry = 0;
        failLater(QStringLiteral("the audio engine is not available"));
        return;
    }
    setFlag("pause", true);
    const QByteArray path = location.toUtf8();
    // Streamed speech is always MP3: naming the format spares the probe, which would otherwise wait for
    // tens of kilobytes before the first sound.
    const bool streamed = location.startsWith(QLatin1String(kStreamProtocol));
    const char *streamOptions = "demuxer-lavf-format=mp3,demuxer-lavf-probesize=32,demuxer-lavf-analyzeduration=0";
    const char *args[] = {"loadfile", path.constData(), "replace", streamed ? streamOptions : nullptr, nullptr};
    mpv_node result{};
    if (const int rc = mpv_command_ret(m_mpv, args, &result); rc < 0) {
        m_expectedEntry = 0;
        failLater(QString::fromUtf8(mpv_error_string(rc)));
        return;
    }
    m_expectedEntry = -1;
    if (result.format == MPV_FORMAT_NODE_MAP) {
        for (int i = 0; i < result.u.list->num; ++i) {
            const mpv_node &value = result.u.list->values[i];
            if (std::strcmp(result.u.list->keys[i], "playlist_entry_id") == 0 && value.format == MPV_FORMAT_INT64)
                m_expectedEntry = value.u.int64;
        }
    }
    mpv_free_node_contents(&result);
    m_loadPending = true;
}

void MpvAudioEngine::loadStream(std::shared_ptr<SpeechStream> stream)
{
    quint64 id = 0;
    {
        const std::lock_guard lock(m_streamsMutex);
        id = m_nextStreamId++;
        // A reader mpv still has open keeps its own reference; the map only serves the next open.
        m_streams.clear();
        m_streams.emplace(id, stream);
    }
    load(QLatin1String(kStreamProtocol) + QStringLiteral("://") + QString::number(id));
    // mpv cannot know the length of audio that is still arriving; what arrived is the duration so far.
    m_streamedSeconds = stream->arrivedSeconds();
    m_streamGrowth = connect(stream.get(), &SpeechStream::grown, this, [this](double seconds) {
        m_streamedSeconds = seconds;
        if (seconds > m_duration) {
            m_duration = seconds;
            Q_EMIT durationChanged(m_duration);
        }
    });
}

void MpvAudioEngine::unload()
{
    disconnect(m_streamGrowth);
    m_streamedSeconds = 0;
    {
        const std::lock_guard lock(m_streamsMutex);
        m_streams.clear();
    }
    m_expectedEntry = 0;
    m_loadPending = false;
    m_seekPending = false;
    m_position = 0;
    m_duration = 0;
    m_eofReached = false;
    m_endReported = false;
    if (!m_mpv)
        return;
    setFlag("pause", true);
    const char *args[] = {"stop", nullptr};
    mpv_command(m_mpv, args);
}

void MpvAudioEngine::play()
{
    setFlag("pause", false);
}

void MpvAudioEngine::pause()
{
    setFlag("pause", true);
}

void MpvAudioEngine::setFlag(const char *name, bool value)
{
    if (std::strcmp(name, "pause") == 0) {
        m_paused = value;
        m_pausedByMpv = false;
    }
    if (!m_mpv)
        return;
    int flag = value ? 1 : 0;
    mpv_set_property(m_mpv, name, MPV_FORMAT_FLAG, &flag);
}

void MpvAudioEngine::setRate(double rate)
{
    if (!std::isfinite(rate) || rate <= 0)
        return;
    m_rate = rate;
    if (m_mpv)
        mpv_set_property(m_mpv, "speed", MPV_FORMAT_DOUBLE, &rate);
}

void MpvAudioEngine::seek(double seconds)
{
    if (!std::isfinite(seconds))
        return;
    seconds = std::max(0.0, seconds);
    m_position = seconds;
    m_eofReached = false;
    m_endReported = false;
    if (!m_mpv || m_expectedEntry == 0)
        return;
    m_seekPending = true;
    const QByteArray target = QByteArray::number(seconds, 'f', 3);
    const char *args[] = {"seek", target.constData(), "absolute+exact", nullptr};
    mpv_command_async(m_mpv, kSeekReply, args);
}

double MpvAudioEngine::volume() const
{
    double value = 0;
    if (m_mpv)
        mpv_get_property(m_mpv, "volume", MPV_FORMAT_DOUBLE, &value);
    return value;
}

bool MpvAudioEngine::isMuted() const
{
    int value = 0;
    if (m_mpv)
        mpv_get_property(m_mpv, "mute", MPV_FORMAT_FLAG, &value);
    return value != 0;
}

} // namespace parlino
