#include "library/SavedAudioStorageService.h"

#include "core/Logging.h"
#include "core/Paths.h"
#include "library/LibraryError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace parlino {

SavedAudioStorageService::SavedAudioStorageService(QString folder)
    : m_folder(std::move(folder))
    , m_index(m_folder + QStringLiteral("/saved_audio.json"))
{
}

QString SavedAudioStorageService::defaultFolder()
{
    return Paths::applicationSupport() + QStringLiteral("/Parlino/SavedAudio");
}

QString SavedAudioStorageService::audioPathFor(const QUuid &id) const
{
    return m_folder + u'/' + JsonIndexFile::audioFileName(id);
}

void SavedAudioStorageService::tidyFolder() const
{
    m_index.tidyFolder([this] {
        QList<QUuid> ids;
        for (const SavedAudio &item : loadAll())
            ids.append(item.id);
        return ids;
    });
}

QList<SavedAudio> SavedAudioStorageService::loadAll() const
{
    QList<SavedAudio> items;
    const std::optional<QJsonArray> array = m_index.read();
    if (!array)
        return items;
    for (const QJsonValue &value : *array) {
        SavedAudio item = SavedAudio::fromJson(value.toObject());
        item.audioURL = QUrl::fromLocalFile(audioPathFor(item.id));
        items.append(item);
    }
    return items;
}

SavedAudio SavedAudioStorageService::save(const SavedAudio &item)
{
    // Read first: a damaged index stops the save before anything is copied.
    QList<SavedAudio> items = loadAll();
    if (!QDir().mkpath(m_folder))
        throw LibraryError(QStringLiteral("Could not create the folder %1").arg(m_folder));

    const QString destination = audioPathFor(item.id);
    const QString source = item.audioURL.toLocalFile();
    QFile::remove(destination);
    QFile sourceFile(source);
    if (!sourceFile.copy(destination))
        throw LibraryError(
            QStringLiteral("Could not copy %1 to %2: %3").arg(source, destination, sourceFile.errorString()));
    QFile::setPermissions(destination, QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    SavedAudio stored = item;
    stored.audioURL = QUrl::fromLocalFile(destination);
    items.append(stored);
    try {
        write(items);
    } catch (const LibraryError &) {
        QFile::remove(destination);
        throw;
    }
    return stored;
}

void SavedAudioStorageService::update(const SavedAudio &item)
{
    QList<SavedAudio> items = loadAll();
    for (SavedAudio &stored : items) {
        if (stored.id == item.id) {
            stored = item;
            write(items);
            return;
        }
    }
}

void SavedAudioStorageService::remove(const QUuid &id)
{
    QList<SavedAudio> items = loadAll();
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items[i].id == id) {
            const QString path = items[i].audioURL.toLocalFile();
            items.removeAt(i);
            write(items);
            QFile::remove(path);
            return;
        }
    }
}

void SavedAudioStorageService::write(const QList<SavedAudio> &items)
{
    QJsonArray array;
    for (const SavedAudio &item : items)
        array.append(item.toJson());
    m_index.write(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

} // namespace parlino
