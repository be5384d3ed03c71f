#pragma once

#include "ai/PodcastType.h"
#include "library/Podcast.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>

namespace parlino {

class UsageTrackingService;
class AppState;
class Clock;
class OpenAIClient;
class PodcastManager;

// Turns a text into a podcast: the chat model writes a script in the chosen style and its title and
// summary, the script is spoken at speed 1.0 in the user's voice, measured, stored in the podcast
// library and played. Each step's text goes to AppState::podcastGenerationProgress. A failing step
// ends the run with its error; nothing is stored or played then. Keeps no state between runs.
class PodcastService final : public QObject {
    Q_OBJECT

public:
    // Seconds of audio in a local file, as the player engine measures it; may throw.
    using DurationFunction = std::function<QCoro::Task<double>(QString path)>;

    PodcastService(OpenAIClient &client, PodcastManager &podcasts, AppState &state, DurationFunction duration,
                   Clock &clock, QObject *parent = nullptr);

    QCoro::Task<Podcast> generatePodcast(QString text, PodcastType type);
    // Every podcast's speech is logged in this usage account (its characters, provider and cost).
    void enableUsageTracking(UsageTrackingService &usage) { m_usage = &usage; }
    // Called after every podcast that was stored (the linked account's activity notice).
    void enableActivityNotices(std::function<void()> notice) { m_activityNotice = std::move(notice); }

private:
    OpenAIClient &m_client;
    PodcastManager &m_podcasts;
    AppState &m_state;
    DurationFunction m_duration;
    Clock &m_clock;
    std::function<void()> m_activityNotice;
    UsageTrackingService *m_usage = nullptr;
};

} // namespace parlino
