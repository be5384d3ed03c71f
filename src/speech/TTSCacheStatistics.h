#pragma once

#include <QtGlobal>

namespace parlino {

// Running totals of the cache, kept across runs in cache_statistics.json.
struct TTSCacheStatistics {
    qint64 totalHits = 0;
    qint64 totalMisses = 0;
    qint64 totalSize = 0; // bytes of audio held
    qint64 entryCount = 0;

    friend bool operator==(const TTSCacheStatistics &, const TTSCacheStatistics &) = default;
};

} // namespace parlino
