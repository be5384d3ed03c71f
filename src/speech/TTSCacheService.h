#pragma once

#include "core/Clock.h"
#include "speech/TTSCacheEntry.h"
#include "speech/TTSCacheStatistics.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
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
//
// The cache trusts only its own folder: an entry's audio file is named after its key, never taken from
// the index, and nothing outside the folder (symbolic links resolved) is deleted, moved or handed out.
// Another process (the command line) may use the same folder: every change re-reads the index under a
// lock file, merges, and writes it back, so neither loses the other's entries. Folder 0700, files 0600.
class TTSCacheService final {
public:
    static constexpr qint64 defaultMaxCacheSizeBytes = 524288000; // 500 MiB
    static constexpr double cacheTTLSeconds = 2592000;            // 30 days

    // A cache in `directory` (created on first use); loads what an earlier run left there, before any
    // other operation runs: keeps the entries that check out one by one, moves an unreadable index
    // aside ("cache_metadata.json.corrupt-<time>"), removes the files no entry names and expired entries.
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
    // Drops the entry whose audio file is `path` (one that would not play), after the operations asked
    // before it; a path that is no entry's file changes nothing.
    void removeFile(const QString &path);

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
    [[nodiscard]] QString lockPath() const;

private:
    // Identifies one version of the index file, so an unchanged file is not read again.
    struct FileStamp {
        qint64 inode = -1;
        qint64 size = -1;
        qint64 modifiedNs = -1;
        friend bool operator==(const FileStamp &, const FileStamp &) = default;
    };

    // These run on the worker thread only.
    // Runs `change` with the index lock held, on the entries as they are on disk now, then saves the
    // index and deletes the files of the entries it removed (in that order, so a crash leaves at worst
    // an unnamed file that the next start sweeps).
    template <typename Change> auto locked(Change change);
    void start();
    std::optional<QString> lookUp(const QString &text, const QString &voice, double speed);
    void store(const QString &filePath, const QString &text, const QString &voice, double speed);
    void removeExpired();
    void evictLRUEntries(qint64 incomingBytes);
    void removeEntry(QString key);
    void putEntry(const TTSCacheEntry &entry);
    [[nodiscard]] bool isExpired(const TTSCacheEntry &entry) const;
    [[nodiscard]] QString audioPathFor(const QString &key) const;
    // The entry's file is a regular file inside the folder (not a link leading out).
    [[nodiscard]] bool hasOwnFile(const TTSCacheEntry &entry) const;
    [[nodiscard]] FileStamp indexStamp() const;
    void refresh();
    void loadMetadata();
    void moveAsideCorruptIndex(const QString &reason);
    void sweepUnnamedFiles();
    void removeOwnFile(const QString &path);
    void saveMetadata();
    void loadStatistics();
    void saveStatistics();
    void recount();

    QString m_directory;
    Clock &m_clock;
    qint64 m_maxCacheSizeBytes;
    QMap<QString, TTSCacheEntry> m_cacheEntries;
    // Each entry's JSON text, kept up to date with m_cacheEntries: a hit changes one entry, and the
    // metadata file is then rewritten without encoding the thousands of others again.
    QHash<QString, QByteArray> m_encodedEntries;
    TTSCacheStatistics m_statistics;
    // Hits and misses of this process not yet added to the statistics file another process may share.
    qint64 m_unsavedHits = 0;
    qint64 m_unsavedMisses = 0;
    FileStamp m_loadedStamp;       // the index version m_cacheEntries reflects
    bool m_entriesChanged = false; // the index must be written at the end of this change
    QStringList m_filesToDelete;   // files of removed entries, deleted once the index is saved
    QThreadPool m_worker;          // one thread: the serial queue every operation runs on
};

} // namespace parlino
