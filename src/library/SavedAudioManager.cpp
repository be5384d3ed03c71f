#include "library/SavedAudioManager.h"

#include "core/Logging.h"
#include "library/LibraryError.h"
#include "library/SavedAudioStorageService.h"

#include <QFileInfo>

#include <algorithm>

namespace parlino {

SavedAudioManager::SavedAudioManager(SavedAudioStorageService &storage, PlayFunction play, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_play(std::move(play))
{
    // What a crash left half-saved goes before the list is read.
    m_storage.tidyFolder();
    load();
}

void SavedAudioManager::load()
{
    try {
        m_savedAudioList = m_storage.loadAll();
    } catch (const Error &error) {
        PLOG(lcLibrary) << "❌ Error loading saved audio: " << error.description();
        m_loadError = error.description();
        return;
    }
    sortNewestFirst();
    PLOG(lcLibrary) << "✅ Loaded " << m_savedAudioList.size() << " saved audio items";
    Q_EMIT savedAudioListChanged();
}

QCoro::Task<SavedAudio> SavedAudioManager::save(SavedAudio item)
{
    SavedAudio stored = m_storage.save(item);
    m_savedAudioList.append(stored);
    sortNewestFirst();
    Q_EMIT savedAudioListChanged();
    Q_EMIT audioSaved();
    co_return stored;
}

QCoro::Task<> SavedAudioManager::update(SavedAudio item)
{
    m_storage.update(item);
    const auto found = std::find_if(m_savedAudioList.begin(), m_savedAudioList.end(),
                                    [&](const SavedAudio &listed) { return listed.id == item.id; });
    if (found != m_savedAudioList.end()) {
        *found = item;
        sortNewestFirst();
        Q_EMIT savedAudioListChanged();
    }
    co_return;
}

QCoro::Task<> SavedAudioManager::remove(QUuid id)
{
    m_storage.remove(id);
    if (m_savedAudioList.removeIf([&](const SavedAudio &listed) { return listed.id == id; }) > 0)
        Q_EMIT savedAudioListChanged();
    co_return;
}

bool SavedAudioManager::play(const SavedAudio &item)
{
    const QString path = item.audioURL.toLocalFile();
    if (!QFileInfo::exists(path)) {
        PLOG(lcLibrary) << "❌ Audio file not found at: " << path;
        return false;
    }
    PLOG(lcLibrary) << "▶️ Playing saved audio: " << item.title;
    if (m_play)
        m_play(path);
    return true;
}

void SavedAudioManager::sortNewestFirst()
{
    std::stable_sort(m_savedAudioList.begin(), m_savedAudioList.end(),
                     [](const SavedAudio &a, const SavedAudio &b) { return a.createdDate > b.createdDate; });
}

} // namespace parlino
