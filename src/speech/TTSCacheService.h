#pragma once

#include "core/Clock.h"
#include "speech/TTSCacheEntry.h"
#include "speech/TTSCacheStatistics.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QThreadPool>
#include <qcoro/qcorotask.h>

#include <optional>

namespace parlino {

// Synthesized speech on disk, so the same text read with the same voice at the same speed is paid for
// once. Entries live 30 days from creation; beyond the size limit the least recently used go first.
//
// Every operation runs on the cache's own single worker thread, one after another in call order, so
// counts and sizes never race and the caller's thread never waits on disk. No failure reaches the
// caller: a broken lookup is a miss, a broken store is a log line.
class TTSCacheService final {
public:
    static constexpr qint64 defaultMaxCacheSizeBytes = 524288000; // 500 MiB
    static constexpr double cacheTTLSeconds = 2592000;            // 30 days

    // A cache in `directory` (created on first use); loads what an earlier run left there and drops
    // expired entries, before any other operation runs.
    explicit TTSCacheService(QString directory = defaultDirectory(), Clock &clock = Clock::system(),
                             qint64 maxCacheSizeBytes = defaultMaxCacheSizeBytes);
    ~TTSCacheService();
    TTSCacheService(const TTSCacheService &) = delete;
    TTSCacheService &operator=(const TTSCacheService &) = delete;

    // $XDG_DATA_HOME/TTSCache. The process has one cache there, shared by the speech machinery and
    // the read-aloud flows so that one object owns the folder's metadata.
    [[nodiscard]] static QString defaultDirectory();

    // The cached file for this text, voice identifier and speed, or nothing. The file belongs to the
    // cache: callers play or copy it, never delete it.
    QCoro::Task<std::optional<QString>> getCachedAudio(QString text, QString voice, double speed);
    // Stores a copy of filePath; the caller's file is left as it is.
    QCoro::Task<> cacheAudio(QString filePath, QString text, QString voice, double speed);
    // Removes every entry older than 30 days.
    QCoro::Task<> evictOldEntries();

    QCoro::Task<TTSCacheStatistics> statistics();
    QCoro::Task<QList<TTSCacheEntry>> entries();

    // 64 lowercase hex digits: SHA-256 of "text|voice|speed".
    [[nodiscard]] static QString generateCacheKey(const QString &text, const QString &voice, double speed);
    // The shortest decimal that reads back as the same double, always with a fraction: "1.0", "1.25".
    [[nodiscard]] static QString speedText(double speed);

    [[nodiscard]] const QString &directory() const { return m_directory; }
    // The file lies in the cache's folder, so it is the cache's and no caller may delete it.
    [[nodiscard]] bool ownsFile(const QString &path) const;
    [[nodiscard]] QString metadataPath() const;
    [[nodiscard]] QString statisticsPath() const;

private:
    // These run on the worker thread only.
    std::optional<QString> lookUp(const QString &text, const QString &voice, double speed);
    void store(const QString &filePath, const QString &text, const QString &voice, double speed);
    void removeExpired();
    void evictLRUEntries(qint64 incomingBytes);
    void removeEntry(const QString &key);
    void putEntry(const TTSCacheEntry &entry);
    [[nodiscard]] bool isExpired(const TTSCacheEntry &entry) const;
    [[nodiscard]] QString audioPathFor(const QString &key) const;
    void loadMetadata();
    void saveMetadata();
    void loadStatistics();
    void saveStatistics();

    QString m_directory;
    Clock &m_clock;
    qint64 m_maxCacheSizeBytes;
    QMap<QString, TTSCacheEntry> m_cacheEntries;
    // Each entry's JSON text, kept up to date with m_cacheEntries: a hit changes one entry, and the
    // metadata file is then rewritten without encoding the thousands of others again.
    QHash<QString, QByteArray> m_encodedEntries;
    TTSCacheStatistics m_statistics;
    QThreadPool m_worker; // one thread: the serial queue every operation runs on
};

} // namespace parlino
