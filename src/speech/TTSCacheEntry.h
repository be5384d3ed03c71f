#pragma once

#include <QDateTime>
#include <QString>

namespace parlino {

// One synthesized audio file kept by the cache, as recorded in cache_metadata.json.
struct TTSCacheEntry {
    QString key;
    QString text;
    QString voice;
    double speed = 1.0;
    QDateTime createdAt;
    QDateTime lastAccessedAt;
    qint64 fileSize = 0;
    QString audioFilePath; // stored in the JSON as a file URL under "audioFileURL"

    friend bool operator==(const TTSCacheEntry &, const TTSCacheEntry &) = default;
};

} // namespace parlino
