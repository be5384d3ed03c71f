#include "library/PodcastManager.h"

#include "core/Logging.h"
#include "library/LibraryError.h"
#include "library/PodcastStorageService.h"

#include <algorithm>

namespace parlino {

PodcastManager::PodcastManager(PodcastStorageService &storage, PlayFunction play, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_play(std::move(play))
{
    // What a crash left half-saved goes before the list is read.
    m_storage.tidyFolder();
    // The load neither waits nor throws, so the task is finished when it returns.
    QCoro::Task<> loading = loadPodcasts();
    Q_UNUSED(loading);
}

QCoro::Task<> PodcastManager::loadPodcasts()
{
    try {
        m_savedPodcasts = m_storage.loadAllPodcasts();
        m_loadError.clear();
        sortNewestFirst();
        PLOG(lcLibrary) << "✅ PodcastManager: Loaded " << m_savedPodcasts.size() << " podcasts";
    } catch (const Error &error) {
        m_savedPodcasts.clear();
        m_loadError = error.description();
        PLOG(lcLibrary) << "❌ PodcastManager: Failed to load podcasts: " << error.description();
    }
    Q_EMIT savedPodcastsChanged();
    co_return;
}

QCoro::Task<Podcast> PodcastManager::save(Podcast podcast)
{
    PLOG(lcLibrary) << "📝 PodcastManager: Saving podcast";
    Podcast stored = m_storage.savePodcast(podcast);
    m_savedPodcasts.append(stored);
    sortNewestFirst();
    Q_EMIT savedPodcastsChanged();
    PLOG(lcLibrary) << "✅ PodcastManager: Podcast saved and added to list";
    co_return stored;
}

QCoro::Task<> PodcastManager::deletePodcast(QUuid id)
{
    PLOG(lcLibrary) << "🗑️ PodcastManager: Deleting podcast";
    m_storage.deletePodcast(id);
    m_savedPodcasts.removeIf([&](const Podcast &listed) { return listed.id == id; });
    Q_EMIT savedPodcastsChanged();
    PLOG(lcLibrary) << "✅ PodcastManager: Podcast deleted";
    co_return;
}

void PodcastManager::playPodcast(const Podcast &podcast)
{
    PLOG(lcLibrary) << "▶️ PodcastManager: Playing podcast: " << podcast.title;
    if (m_play)
        m_play(podcast);
}

void PodcastManager::sortNewestFirst()
{
    std::stable_sort(m_savedPodcasts.begin(), m_savedPodcasts.end(),
                     [](const Podcast &a, const Podcast &b) { return a.generationDate > b.generationDate; });
}

} // namespace parlino
