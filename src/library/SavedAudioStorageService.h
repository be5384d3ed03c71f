#pragma once

#include "library/JsonIndexFile.h"
#include "library/SavedAudio.h"

#include <QList>
#include <QString>
#include <QUuid>

namespace parlino {

// The only writer of the saved-audio folder: one MP3 per item, named "<ID>.mp3", and the index
// "saved_audio.json" (compact JSON). Every change reads the index, changes it and writes it back without
// returning to the event loop in between, so two changes made on the main thread never lose one another.
// Failures throw LibraryError; a missing index is an empty library.
class SavedAudioStorageService final {
public:
    // folder: by default $XDG_DATA_HOME/Parlino/SavedAudio, created on the first save.
    explicit SavedAudioStorageService(QString folder = defaultFolder());

    [[nodiscard]] static QString defaultFolder();
    [[nodiscard]] const QString &folder() const { return m_folder; }
    [[nodiscard]] QString indexPath() const { return m_index.path(); }
    // The item's audio file: always "<ID>.mp3" in the folder, whatever the index says, so an edited
    // index cannot make the library play or delete a file elsewhere.
    [[nodiscard]] QString audioPathFor(const QUuid &id) const;
    // For the start of a run: folder 0700 and files 0600, and files that no item names removed. Leaves
    // everything as it is when the index cannot be read.
    void tidyFolder() const;

    // The index in its stored order.
    [[nodiscard]] QList<SavedAudio> loadAll() const;
    // Copies item's audio file into the folder and appends the item; returns it as stored (its
    // audioURL is the copy).
    SavedAudio save(const SavedAudio &item);
    // Replaces the stored item with item's id; an unknown id changes nothing.
    void update(const SavedAudio &item);
    // Removes the first item with id and its MP3; an unknown id changes nothing.
    void remove(const QUuid &id);

private:
    void write(const QList<SavedAudio> &items);

    QString m_folder;
    JsonIndexFile m_index;
};

} // namespace parlino
