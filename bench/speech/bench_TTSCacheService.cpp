// Median time of a cache hit and of a store with 100, 1 000 and 5 000 entries already held.
// Every hit and store rewrites the whole metadata file, so both grow with the number of entries.
//   bench_TTSCacheService [samples]

#include "speech/TTSCacheService.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace parlino;

namespace {

constexpr qint64 audioBytes = 48 * 1024; // about six seconds of 64 kbit/s speech

QString sampleText(int i)
{
    return QStringLiteral("Sentence %1 of the benchmark, long enough to look like a real paragraph of reading. ")
        .arg(i)
        .repeated(4);
}

// Writes `count` entries straight into the cache's files, as an earlier run would have left them.
void prefill(const QString &folder, int count)
{
    QDir().mkpath(folder);
    const QByteArray audio(audioBytes, 'm');
    const QString now = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    QByteArray json = "{\n";
    for (int i = 0; i < count; ++i) {
        const QString key = TTSCacheService::generateCacheKey(sampleText(i), QStringLiteral("alloy"), 1.0);
        const QString path = folder + u'/' + key + QStringLiteral(".m4a");
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(audio);
        json += QStringLiteral("\"%1\": {\"key\": \"%1\", \"text\": \"%2\", \"voice\": \"alloy\", \"speed\": 1, "
                               "\"createdAt\": \"%3\", \"lastAccessedAt\": \"%3\", \"fileSize\": %4, "
                               "\"audioFileURL\": \"%5\"}")
                    .arg(key, sampleText(i), now)
                    .arg(audioBytes)
                    .arg(QUrl::fromLocalFile(path).toString())
                    .toUtf8();
        json += i + 1 < count ? ",\n" : "\n";
    }
    json += "}\n";
    QFile metadata(folder + QStringLiteral("/cache_metadata.json"));
    if (metadata.open(QIODevice::WriteOnly))
        metadata.write(json);
}

double medianMs(std::vector<qint64> nanoseconds)
{
    std::sort(nanoseconds.begin(), nanoseconds.end());
    return static_cast<double>(nanoseconds[nanoseconds.size() / 2]) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int samples = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 31;
    QTemporaryDir scratch;
    QFile source(scratch.filePath(QStringLiteral("generated.mp3")));
    if (!source.open(QIODevice::WriteOnly))
        return 1;
    source.write(QByteArray(audioBytes, 'n'));
    source.close();

    std::printf("| entries | look-up (hit), median ms | store, median ms |\n|---:|---:|---:|\n");
    for (int count : {100, 1000, 5000}) {
        const QString folder = scratch.filePath(QStringLiteral("TTSCache-%1").arg(count));
        prefill(folder, count);
        TTSCacheService cache(folder);
        if (static_cast<int>(QCoro::waitFor(cache.entries()).size()) != count)
            return 1;

        std::vector<qint64> lookUps;
        std::vector<qint64> stores;
        QElapsedTimer timer;
        for (int i = 0; i < samples; ++i) {
            timer.start();
            const auto hit =
                QCoro::waitFor(cache.getCachedAudio(sampleText(i * 7 % count), QStringLiteral("alloy"), 1.0));
            lookUps.push_back(timer.nsecsElapsed());
            if (!hit)
                return 1;
            timer.start();
            QCoro::waitFor(cache.cacheAudio(source.fileName(), QStringLiteral("New text %1").arg(i),
                                            QStringLiteral("alloy"), 1.0));
            stores.push_back(timer.nsecsElapsed());
        }
        std::printf("| %d | %.2f | %.2f |\n", count, medianMs(lookUps), medianMs(stores));
        std::fflush(stdout);
    }
    return 0;
}
