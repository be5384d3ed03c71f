#pragma once

#include <QObject>

namespace parlino {

class Defaults;

// Listening figures of the player: the total time spent listening and the running sum and count of
// chosen speeds (their quotient is the average speed). Kept in user defaults under their own keys and
// written at once on every change, so a crash loses nothing. Lives on the main thread.
class UsageTracker final : public QObject {
    Q_OBJECT
    Q_PROPERTY(double totalListeningTime READ totalListeningTime NOTIFY totalListeningTimeChanged)
    Q_PROPERTY(double playbackSpeedSum READ playbackSpeedSum NOTIFY playbackSpeedChanged)
    Q_PROPERTY(qint64 playbackSpeedCount READ playbackSpeedCount NOTIFY playbackSpeedChanged)

public:
    // Reads the stored figures; absent, corrupt or inconsistent values start at zero (with a warning).
    explicit UsageTracker(Defaults &defaults, QObject *parent = nullptr);

    // Seconds of listening, summed over all sessions.
    [[nodiscard]] double totalListeningTime() const { return m_totalListeningTime; }
    [[nodiscard]] double playbackSpeedSum() const { return m_playbackSpeedSum; }
    [[nodiscard]] qint64 playbackSpeedCount() const { return m_playbackSpeedCount; }
    // The mean of all recorded speeds, or 1 when none was recorded.
    [[nodiscard]] double averagePlaybackSpeed() const;

    // Adds a listening session; negative or non-finite durations are ignored, a total that would
    // overflow starts again.
    void addListeningTime(double seconds);
    // Counts one speed choice. Figures that would overflow start again from this choice.
    void recordPlaybackSpeed(double speed);

Q_SIGNALS:
    void totalListeningTimeChanged();
    void playbackSpeedChanged();

private:
    void save();

    Defaults &m_defaults;
    double m_totalListeningTime{0};
    double m_playbackSpeedSum{0};
    qint64 m_playbackSpeedCount{0};
};

} // namespace parlino
