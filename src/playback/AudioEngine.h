#pragma once

#include <QObject>
#include <QString>

#include <memory>

namespace parlino {

class SpeechStream;

// The sound device side of the player: one loaded file at a time, play, pause, rate and seek, with
// the position and duration reported back. Implementations deliver every signal on the thread that
// owns the engine (the main thread).
class AudioEngine : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~AudioEngine() override = default;

    // Starts loading a file (or URL), paused. Later emits loaded() or loadFailed() for this file only;
    // a file replaced before it finished loading reports nothing.
    virtual void load(const QString &location) = 0;
    // Starts loading audio that is still arriving, paused, like load(). Playback can start with the
    // first bytes; at the end of what arrived it waits for more until the stream is closed. The
    // duration grows as audio arrives.
    virtual void loadStream(std::shared_ptr<SpeechStream> stream) = 0;
    // Drops the loaded file; the position and duration return to 0.
    virtual void unload() = 0;

    virtual void play() = 0;
    virtual void pause() = 0;
    // Playback rate; the voice keeps its pitch at every rate.
    virtual void setRate(double rate) = 0;
    // Absolute position in seconds. position() reports the target at once.
    virtual void seek(double seconds) = 0;

    [[nodiscard]] virtual double position() const = 0;
    [[nodiscard]] virtual double duration() const = 0;
    [[nodiscard]] virtual double rate() const = 0;
    [[nodiscard]] virtual bool isPaused() const = 0;
    // Output volume in percent and the mute switch, for diagnostics.
    [[nodiscard]] virtual double volume() const = 0;
    [[nodiscard]] virtual bool isMuted() const = 0;

Q_SIGNALS:
    void loaded();
    void loadFailed(const QString &error);
    // The duration can change while a file plays (concatenated MP3 files are measured as they go).
    void durationChanged(double seconds);
    void positionChanged(double seconds);
    // The end of the file was reached; the file stays loaded, paused at its end.
    void finished();
};

} // namespace parlino
