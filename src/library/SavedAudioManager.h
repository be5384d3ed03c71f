#pragma once

#include "library/SavedAudio.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>
#include <qcoro/qcorotask.h>

#include <functional>

namespace parlino {

class SavedAudioStorageService;

// The saved-audio list the library views show, newest first, kept in step with the storage service.
// Lives on the main thread; the list is loaded at creation, after the storage folder is tidied.
class SavedAudioManager final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<parlino::SavedAudio> savedAudioList READ savedAudioList NOTIFY savedAudioListChanged)

public:
    // Plays a local audio file (the player's play(url)).
    using PlayFunction = std::function<void(const QString &path)>;

    SavedAudioManager(SavedAudioStorageService &storage, PlayFunction play, QObject *parent = nullptr);

    [[nodiscard]] const QList<SavedAudio> &savedAudioList() const { return m_savedAudioList; }
    // Why the index could not be read at creation (the list is then empty), or empty.
    [[nodiscard]] const QString &loadError() const { return m_loadError; }

    // Stores item (its audio is copied into the library) and lists it; throws LibraryError.
    QCoro::Task<SavedAudio> save(SavedAudio item);
    QCoro::Task<> update(SavedAudio item);
    QCoro::Task<> remove(QUuid id);
    // Plays item's file; false (and a log line) when the file is gone.
    bool play(const SavedAudio &item);

Q_SIGNALS:
    void savedAudioListChanged();
    // One item was saved, for the usage figures.
    void audioSaved();

private:
    void load();
    void sortNewestFirst();

    SavedAudioStorageService &m_storage;
    PlayFunction m_play;
    QList<SavedAudio> m_savedAudioList;
    QString m_loadError;
};

} // namespace parlino
