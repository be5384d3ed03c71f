#pragma once

#include "library/Podcast.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>
#include <qcoro/qcorotask.h>

#include <functional>

namespace parlino {

class PodcastStorageService;

// The podcast list the library views show, newest first, kept in step with the storage service.
// Lives on the main thread; the list is loaded at creation, after the storage folder is tidied.
class PodcastManager final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<parlino::Podcast> savedPodcasts READ savedPodcasts NOTIFY savedPodcastsChanged)

public:
    // Makes the podcast the playing text (its source text and title) and plays its file.
    using PlayFunction = std::function<void(const Podcast &podcast)>;

    PodcastManager(PodcastStorageService &storage, PlayFunction play, QObject *parent = nullptr);

    [[nodiscard]] const QList<Podcast> &savedPodcasts() const { return m_savedPodcasts; }
    [[nodiscard]] PodcastStorageService &storage() const { return m_storage; }
    // Why the index could not be read at the last load (the list is then empty), or empty.
    [[nodiscard]] const QString &loadError() const { return m_loadError; }

    // Stores the podcast (its audio is copied into the library) and lists it; throws LibraryError.
    QCoro::Task<Podcast> save(Podcast podcast);
    QCoro::Task<> deletePodcast(QUuid id);
    // Reads the list again; a failure is logged and leaves the list empty.
    QCoro::Task<> loadPodcasts();
    void playPodcast(const Podcast &podcast);

Q_SIGNALS:
    void savedPodcastsChanged();

private:
    void sortNewestFirst();

    PodcastStorageService &m_storage;
    PlayFunction m_play;
    QList<Podcast> m_savedPodcasts;
    QString m_loadError;
};

} // namespace parlino
