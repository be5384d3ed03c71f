#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace parlino {

class AppState;
class PodcastManager;
class SavedAudioManager;

// The tray popover's content: what Parlino is doing now with pause and stop, the latest saved readings
// and podcasts to play again, and the actions (read, summarise, podcast, library, dashboard, settings,
// quit). Every button is reachable by Tab and named for screen readers.
class MenuPopoverView final : public QWidget {
    Q_OBJECT
public:
    // savedAudio, podcasts: the recent items' sources; nullptr leaves that list out.
    explicit MenuPopoverView(AppState &state, SavedAudioManager *savedAudio = nullptr,
                             PodcastManager *podcasts = nullptr, QWidget *parent = nullptr);

    // How many recent items the popover lists.
    static constexpr int recentCount = 3;

Q_SIGNALS:
    void readSelectionRequested();
    void readSummaryRequested();
    void podcastRequested();
    void playPauseRequested();
    void stopRequested();
    void libraryRequested();
    void dashboardRequested();
    void settingsRequested();
    void quitRequested();
    // A recent item was played (the popover closes).
    void recentItemPlayed();

private:
    void refresh();
    void refreshRecent();

    AppState &m_state;
    SavedAudioManager *m_savedAudio;
    PodcastManager *m_podcasts;
    QLabel *m_status = nullptr;
    QLabel *m_detail = nullptr;
    QProgressBar *m_progress = nullptr;
    QPushButton *m_playPause = nullptr;
    QPushButton *m_stop = nullptr;
    QLabel *m_recentHeading = nullptr;
    QVBoxLayout *m_recent = nullptr;
};

} // namespace parlino
