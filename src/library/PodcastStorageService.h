#pragma once

#include "library/JsonIndexFile.h"
#include "library/Podcast.h"

#include <QList>
#include <QString>
#include <QUuid>

namespace parlino {

// The only writer of the podcasts folder: one MP3 per podcast, named "<ID>.mp3", and the index
// "podcasts.json" (indented JSON, ISO 8601 dates) in insertion order. Every change reads the index,
// changes it and writes it back without returning to the event loop in between, so two saves made on
// the main thread never lose one another. Failures throw LibraryError; a missing index is no podcasts.
class PodcastStorageService final {
public:
    // folder: by default $XDG_DATA_HOME/Parlino/Podcasts, created on the first save.
    explicit PodcastStorageService(QString folder = defaultFolder());

    [[nodiscard]] static QString defaultFolder();
    [[nodiscard]] const QString &folder() const { return m_folder; }
    [[nodiscard]] QString indexPath() const { return m_index.path(); }
    // The item's audio file: always "<ID>.mp3" in the folder, whatever the index says, so an edited
    // index cannot make the library play or delete a file elsewhere.
    [[nodiscard]] QString audioPathFor(const QUuid &id) const;
    // For the start of a run: folder 0700 and files 0600, and files that no item names removed. Leaves
    // everything as it is when the index cannot be read.
    void tidyFolder() const;

    // Copies the podcast's audio (the synthesis output, left where it is) into the folder and appends
    // the podcast; returns it as stored, its audioURL the copy.
    Podcast savePodcast(const Podcast &podcast);
    [[nodiscard]] QList<Podcast> loadAllPodcasts() const;
    // Removes the podcast and its MP3; an unknown id is logged only.
    void deletePodcast(const QUuid &id);
    // Writes the whole index.
    void saveMetadata(const QList<Podcast> &podcasts);

private:
    QString m_folder;
    JsonIndexFile m_index;
};

} // namespace parlino
