#include "cli/LibraryCommands.h"

#include "cli/CommandText.h"
#include "library/LibraryError.h"
#include "library/Podcast.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudio.h"
#include "library/SavedAudioStorageService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace parlino {

namespace {

const QString kUsage = QStringLiteral("Usage: parlino library list [--json]");

QString minutesAndSeconds(double seconds)
{
    const qint64 whole = std::isfinite(seconds) && seconds > 0 ? static_cast<qint64>(seconds) : 0;
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

QString line(const QDateTime &date, double duration, const QString &title, const QUrl &audio)
{
    return QStringLiteral("  %1  %2  %3  %4")
        .arg(date.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")),
             minutesAndSeconds(duration).rightJustified(6), title, audio.toLocalFile());
}

} // namespace

int runLibraryCommand(const SavedAudioStorageService &savedAudio, const PodcastStorageService &podcasts,
                      const QStringList &arguments)
{
    const bool json = arguments.size() == 2 && arguments.at(1) == u"--json";
    if (arguments.isEmpty() || arguments.first() != u"list" || (arguments.size() > 1 && !json)) {
        printTo(stderr, kUsage);
        return exitUsage;
    }

    QList<SavedAudio> saved;
    QList<Podcast> generated;
    try {
        saved = savedAudio.loadAll();
        generated = podcasts.loadAllPodcasts();
    } catch (const LibraryError &error) {
        printTo(stderr, error.description());
        return exitFailure;
    }
    std::stable_sort(saved.begin(), saved.end(),
                     [](const SavedAudio &a, const SavedAudio &b) { return a.createdDate > b.createdDate; });
    std::stable_sort(generated.begin(), generated.end(),
                     [](const Podcast &a, const Podcast &b) { return a.generationDate > b.generationDate; });

    if (json) {
        QJsonArray savedItems;
        for (const SavedAudio &item : std::as_const(saved))
            savedItems.append(item.toJson());
        QJsonArray podcastItems;
        for (const Podcast &podcast : std::as_const(generated))
            podcastItems.append(podcast.toJson());
        const QJsonObject root{{QStringLiteral("savedAudio"), savedItems}, {QStringLiteral("podcasts"), podcastItems}};
        printTo(stdout, QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented)).trimmed());
        return 0;
    }

    printTo(stdout, QStringLiteral("Saved audio (%1)").arg(saved.size()));
    for (const SavedAudio &item : std::as_const(saved))
        printTo(stdout, line(item.createdDate, item.duration, item.title, item.audioURL));
    printTo(stdout, QStringLiteral("Podcasts (%1)").arg(generated.size()));
    for (const Podcast &podcast : std::as_const(generated))
        printTo(stdout, line(podcast.generationDate, podcast.duration,
                             podcast.title + QStringLiteral(" [") + podcast.podcastType + u']', podcast.audioURL));
    return 0;
}

} // namespace parlino
