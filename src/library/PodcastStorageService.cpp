#include "library/PodcastStorageService.h"

#include "core/Logging.h"
#include "core/Paths.h"
#include "library/LibraryError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

namespace parlino {

PodcastStorageService::PodcastStorageService(QString folder)
    : m_folder(std::move(folder))
    , m_index(m_folder + QStringLiteral("/podcasts.json"))
{
}

QString PodcastStorageService::defaultFolder()
{
    return Paths::applicationSupport() + QStringLiteral("/Parlino/Podcasts");
}

QString PodcastStorageService::audioPathFor(const QUuid &id) const
{
    return m_folder + u'/' + JsonIndexFile::audioFileName(id);
}

void PodcastStorageService::tidyFolder() const
{
    m_index.tidyFolder([this] {
        QList<QUuid> ids;
        for (const Podcast &podcast : loadAllPodcasts())
            ids.append(podcast.id);
        return ids;
    });
}

Podcast PodcastStorageService::savePodcast(const Podcast &podcast)
{
    PLOG(lcLibrary) << "💾 Saving podcast: " << podcast.title;
    // Read first: a damaged index stops the save before anything is copied.
    QList<Podcast> podcasts = loadAllPodcasts();
    if (!QDir().mkpath(m_folder))
        throw LibraryError(QStringLiteral("Could not create the folder %1").arg(m_folder));

    const QString destination = audioPathFor(podcast.id);
    const QString source = podcast.audioURL.toLocalFile();
    QFile::remove(destination);
    QFile sourceFile(source);
    if (!sourceFile.copy(destination))
        throw LibraryError(
            QStringLiteral("Could not copy %1 to %2: %3").arg(source, destination, sourceFile.errorString()));
    QFile::setPermissions(destination, QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    Podcast stored = podcast;
    stored.audioURL = QUrl::fromLocalFile(destination);
    podcasts.append(stored);
    try {
        saveMetadata(podcasts);
    } catch (const LibraryError &) {
        QFile::remove(destination);
        throw;
    }
    PLOG(lcLibrary) << "✅ Podcast saved successfully";
    return stored;
}

QList<Podcast> PodcastStorageService::loadAllPodcasts() const
{
    QList<Podcast> podcasts;
    const std::optional<QJsonArray> array = m_index.read();
    if (!array) {
        PLOG(lcLibrary) << "ℹ️ No podcasts file found, returning empty array";
        return podcasts;
    }
    for (const QJsonValue &value : *array) {
        Podcast podcast = Podcast::fromJson(value.toObject());
        podcast.audioURL = QUrl::fromLocalFile(audioPathFor(podcast.id));
        podcasts.append(podcast);
    }
    PLOG(lcLibrary) << "✅ Loaded " << podcasts.size() << " podcasts from storage";
    return podcasts;
}

void PodcastStorageService::deletePodcast(const QUuid &id)
{
    const QString idText = id.toString(QUuid::WithoutBraces).toUpper();
    PLOG(lcLibrary) << "🗑️ Deleting podcast: " << idText;
    QList<Podcast> podcasts = loadAllPodcasts();
    for (qsizetype i = 0; i < podcasts.size(); ++i) {
        if (podcasts[i].id == id) {
            const QString path = podcasts[i].audioURL.toLocalFile();
            podcasts.removeAt(i);
            saveMetadata(podcasts);
            QFile::remove(path);
            PLOG(lcLibrary) << "✅ Podcast deleted successfully";
            return;
        }
    }
    PLOG(lcLibrary) << "⚠️ Podcast not found: " << idText;
}

void PodcastStorageService::saveMetadata(const QList<Podcast> &podcasts)
{
    QJsonArray array;
    for (const Podcast &podcast : podcasts)
        array.append(podcast.toJson());
    m_index.write(QJsonDocument(array).toJson(QJsonDocument::Indented));
}

} // namespace parlino
