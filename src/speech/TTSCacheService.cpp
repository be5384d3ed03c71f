#include "speech/TTSCacheService.h"

#include "core/Logging.h"
#include "core/Paths.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTimeZone>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>
#include <qcoro/qcorofuture.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <sys/stat.h>

namespace parlino {

namespace {

QString isoDate(const QDateTime &date)
{
    return date.toUTC().toString(Qt::ISODate);
}

std::optional<QDateTime> parseIsoDate(const QJsonValue &value)
{
    if (!value.isString())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date;
}

// One JSON value as Qt writes it, e.g. a string with its escapes or a number.
QByteArray jsonText(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

// QJsonObject sorts its members; the files keep the records' own member order, so they are written
// by hand, pretty-printed the way QJsonDocument::Indented does.
QByteArray orderedObject(const QList<std::pair<QString, QJsonValue>> &members, int depth)
{
    const QByteArray indent(4 * (depth + 1), ' ');
    QByteArray out = "{\n";
    for (qsizetype i = 0; i < members.size(); ++i) {
        out += indent + jsonText(members[i].first) + ": " + jsonText(members[i].second);
        out += i + 1 < members.size() ? ",\n" : "\n";
    }
    out += QByteArray(4 * depth, ' ') + '}';
    return out;
}

QByteArray encodeEntry(const TTSCacheEntry &entry, int depth)
{
    return orderedObject({{QStringLiteral("key"), entry.key},
                          {QStringLiteral("text"), entry.text},
                          {QStringLiteral("voice"), entry.voice},
                          {QStringLiteral("speed"), entry.speed},
                          {QStringLiteral("createdAt"), isoDate(entry.createdAt)},
                          {QStringLiteral("lastAccessedAt"), isoDate(entry.lastAccessedAt)},
                          {QStringLiteral("fileSize"), entry.fileSize},
                          {QStringLiteral("audioFileURL"), QUrl::fromLocalFile(entry.audioFilePath).toString()}},
                         depth);
}

bool isKey(const QString &text)
{
    static const QRegularExpression sha256Hex(QStringLiteral("^[0-9a-f]{64}$"));
    return sha256Hex.match(text).hasMatch();
}

// The entry stored under `name`, or why it is not one. Its file is filled in by the caller, from the key.
std::optional<TTSCacheEntry> decodeEntry(const QString &name, const QJsonValue &value, QString *problem)
{
    if (!value.isObject()) {
        *problem = QStringLiteral("not an object");
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    const auto createdAt = parseIsoDate(object.value(u"createdAt"));
    const auto lastAccessedAt = parseIsoDate(object.value(u"lastAccessedAt"));
    if (!object.value(u"key").isString() || !object.value(u"text").isString() || !object.value(u"voice").isString()
        || !object.value(u"speed").isDouble() || !object.value(u"fileSize").isDouble() || !createdAt
        || !lastAccessedAt) {
        *problem = QStringLiteral("a member is missing or of the wrong type");
        return std::nullopt;
    }
    const QString key = object.value(u"key").toString();
    if (!isKey(key) || key != name) {
        *problem = QStringLiteral("its key is not a cache key");
        return std::nullopt;
    }
    TTSCacheEntry entry;
    entry.key = key;
    entry.text = object.value(u"text").toString();
    entry.voice = object.value(u"voice").toString();
    entry.speed = object.value(u"speed").toDouble();
    entry.createdAt = *createdAt;
    entry.lastAccessedAt = *lastAccessedAt;
    entry.fileSize = object.value(u"fileSize").toInteger();
    if (object.contains(u"audioFileURL")) {
        const QUrl url(object.value(u"audioFileURL").toString());
        entry.audioFilePath = url.isLocalFile() ? QDir::cleanPath(url.toLocalFile()) : QString();
    }
    return entry;
}

// Writes the whole file or nothing: a full disk leaves the previous version in place.
bool writeWhole(const QString &path, const QByteArray &data, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(data) != data.size() || !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}

} // namespace

namespace {

constexpr QFileDevice::Permissions privateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
// A writer holds the lock for one change; one that holds it longer than this hangs.
constexpr int lockWaitMs = 10000;
constexpr int lockPollMs = 100;
constexpr qint64 abandonedLockMs = 1000;

} // namespace

template <typename Change> auto TTSCacheService::locked(Change change)
{
    Paths::makePrivateFolder(m_directory);
    QLockFile lock(lockPath());
    bool held = false;
    for (int waited = 0; !held && waited < lockWaitMs; waited += lockPollMs) {
        held = lock.tryLock(lockPollMs);
        // QLockFile recognises the lock of a process that is gone by the id written in it; a process
        // killed between creating the file and writing its id leaves an empty one that only ages out.
        const QFileInfo file(lockPath());
        if (!held && file.exists() && file.size() == 0
            && file.lastModified().msecsTo(QDateTime::currentDateTime()) > abandonedLockMs)
            QFile::remove(lockPath());
    }
    if (!held)
        PWARN(lcSpeech) << "⚠️ The cache lock " << lockPath() << " is held too long; going on without it";
    refresh(); // entries dropped while loading make the index due for writing
    struct Finish {
        TTSCacheService &cache;
        ~Finish()
        {
            if (cache.m_entriesChanged)
                cache.saveMetadata();
            // Once the index no longer names them.
            for (const QString &file : std::as_const(cache.m_filesToDelete))
                cache.removeOwnFile(file);
            cache.m_filesToDelete.clear();
            cache.m_entriesChanged = false;
            cache.saveStatistics();
        }
    } finish{*this};
    return change();
}

TTSCacheService::TTSCacheService(QString directory, Clock &clock, qint64 maxCacheSizeBytes)
    : m_directory(QDir::cleanPath(QDir(directory).absolutePath()))
    , m_clock(clock)
    , m_maxCacheSizeBytes(maxCacheSizeBytes)
{
    m_worker.setMaxThreadCount(1);
    m_worker.start([this] { start(); });
}

TTSCacheService::~TTSCacheService()
{
    // Pending operations still save their files before the state goes away.
    m_worker.waitForDone();
}

bool TTSCacheService::ownsFile(const QString &path) const
{
    return QFileInfo(m_directory).isDir() && Paths::isInside(path, m_directory);
}

QString TTSCacheService::defaultDirectory()
{
    return Paths::applicationSupport() + QStringLiteral("/TTSCache");
}

QString TTSCacheService::metadataPath() const
{
    return m_directory + QStringLiteral("/cache_metadata.json");
}

QString TTSCacheService::statisticsPath() const
{
    return m_directory + QStringLiteral("/cache_statistics.json");
}

QString TTSCacheService::lockPath() const
{
    return m_directory + QStringLiteral("/cache.lock");
}

QString TTSCacheService::audioPathFor(const QString &key) const
{
    return m_directory + u'/' + key + QStringLiteral(".m4a");
}

QString TTSCacheService::speedText(double speed)
{
    // Shortest round-trip digits; a whole number still shows its fraction, so keys made by earlier
    // versions ("1.0") stay valid.
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, speed);
    QString text = QString::fromLatin1(buffer, result.ptr - buffer);
    if (std::isfinite(speed) && !text.contains(u'.') && !text.contains(u'e'))
        text += QStringLiteral(".0");
    return text;
}

QString TTSCacheService::generateCacheKey(const QString &text, const QString &voice, double speed)
{
    const QString combined = text + u'|' + voice + u'|' + speedText(speed);
    return QString::fromLatin1(QCryptographicHash::hash(combined.toUtf8(), QCryptographicHash::Sha256).toHex());
}

// Each operation is queued on the worker first and awaited after: GCC 12 destroys temporaries that
// live inside a co_await expression twice, so none may be created there.

QCoro::Task<std::optional<QString>> TTSCacheService::getCachedAudio(QString text, QString voice, double speed)
{
    auto result = QtConcurrent::run(&m_worker, [this, text, voice, speed] { return lookUp(text, voice, speed); });
    co_return co_await result;
}

QCoro::Task<> TTSCacheService::cacheAudio(QString filePath, QString text, QString voice, double speed)
{
    auto done =
        QtConcurrent::run(&m_worker, [this, filePath, text, voice, speed] { store(filePath, text, voice, speed); });
    co_await done;
}

QCoro::Task<> TTSCacheService::evictOldEntries()
{
    auto done = QtConcurrent::run(&m_worker, [this] { locked([this] { removeExpired(); }); });
    co_await done;
}

void TTSCacheService::removeFile(const QString &path)
{
    const QString cleaned = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    m_worker.start([this, cleaned] {
        locked([&] {
            for (const TTSCacheEntry &entry : std::as_const(m_cacheEntries)) {
                if (entry.audioFilePath == cleaned) {
                    PWARN(lcSpeech) << "⚠️ Removing cache entry " << entry.key << ": its audio would not play";
                    removeEntry(entry.key);
                    return;
                }
            }
        });
    });
}

QCoro::Task<TTSCacheStatistics> TTSCacheService::statistics()
{
    auto result = QtConcurrent::run(&m_worker, [this] {
        refresh();
        return m_statistics;
    });
    co_return co_await result;
}

QCoro::Task<QList<TTSCacheEntry>> TTSCacheService::entries()
{
    auto result = QtConcurrent::run(&m_worker, [this] {
        refresh();
        return m_cacheEntries.values();
    });
    co_return co_await result;
}

void TTSCacheService::start()
{
    Paths::makePrivateTree(m_directory);
    if (!QFileInfo(m_directory).isDir()) {
        loadStatistics();
        return;
    }
    locked([this] {
        loadStatistics();
        sweepUnnamedFiles();
        removeExpired();
    });
}

bool TTSCacheService::isExpired(const TTSCacheEntry &entry) const
{
    return m_clock.now() > entry.createdAt.addSecs(static_cast<qint64>(cacheTTLSeconds));
}

bool TTSCacheService::hasOwnFile(const TTSCacheEntry &entry) const
{
    const QFileInfo file(entry.audioFilePath);
    return file.isFile() && !file.isSymLink() && Paths::isInside(entry.audioFilePath, m_directory);
}

std::optional<QString> TTSCacheService::lookUp(const QString &text, const QString &voice, double speed)
{
    const QString key = generateCacheKey(text, voice, speed);
    return locked([&]() -> std::optional<QString> {
        const auto found = m_cacheEntries.constFind(key);
        bool hit = found != m_cacheEntries.constEnd();
        if (hit && (isExpired(*found) || !hasOwnFile(*found))) {
            removeEntry(key);
            hit = false;
        }
        if (!hit) {
            ++m_statistics.totalMisses;
            ++m_unsavedMisses;
            return std::nullopt;
        }
        // Expiry counts from creation: a hit does not extend an entry's life.
        TTSCacheEntry entry = *found;
        entry.lastAccessedAt = m_clock.now();
        putEntry(entry);
        ++m_statistics.totalHits;
        ++m_unsavedHits;
        return entry.audioFilePath;
    });
}

void TTSCacheService::store(const QString &filePath, const QString &text, const QString &voice, double speed)
{
    const QString key = generateCacheKey(text, voice, speed);
    const QFileInfo source(filePath);
    if (!source.isFile()) {
        PWARN(lcSpeech) << "Error caching audio file: no readable file at " << filePath;
        return;
    }
    const qint64 size = source.size();
    if (!Paths::makePrivateFolder(m_directory)) {
        PWARN(lcSpeech) << "Error caching audio file: cannot create " << m_directory;
        return;
    }

    locked([&] {
        // A replaced entry's bytes are no longer held.
        const auto previous = m_cacheEntries.constFind(key);
        const qint64 replaced = previous != m_cacheEntries.constEnd() ? previous->fileSize : 0;
        if (m_statistics.totalSize - replaced + size > m_maxCacheSizeBytes)
            evictLRUEntries(size - replaced);

        const QString destination = audioPathFor(key);
        // Handing the cache its own file back (a hit that is stored again) must not delete it.
        if (source.canonicalFilePath() != QFileInfo(destination).canonicalFilePath()) {
            // Copied under a name no entry has, then renamed: a crash leaves a stray file the next start
            // removes, never an entry with half a file.
            const QString partial = destination + QStringLiteral(".part");
            QFile::remove(partial);
            QFile input(filePath);
            if (!input.copy(partial)) {
                PWARN(lcSpeech) << "Error caching audio file: " << input.errorString();
                QFile::remove(partial);
                return;
            }
            QFile::setPermissions(partial, privateFile);
            // rename(2) replaces an entry's earlier file in one step: at no moment is it missing.
            if (::rename(QFile::encodeName(partial).constData(), QFile::encodeName(destination).constData()) != 0) {
                PWARN(lcSpeech) << "Error caching audio file: " << qt_error_string(errno);
                QFile::remove(partial);
                return;
            }
        }
        const QDateTime now = m_clock.now();
        putEntry(TTSCacheEntry{key, text, voice, speed, now, now, size, destination});
    });
}

void TTSCacheService::evictLRUEntries(qint64 incomingBytes)
{
    QList<TTSCacheEntry> byAge = m_cacheEntries.values();
    std::stable_sort(byAge.begin(), byAge.end(), [](const TTSCacheEntry &a, const TTSCacheEntry &b) {
        return a.lastAccessedAt < b.lastAccessedAt;
    });
    for (const TTSCacheEntry &entry : std::as_const(byAge)) {
        if (m_statistics.totalSize + incomingBytes <= m_maxCacheSizeBytes)
            break;
        removeEntry(entry.key);
    }
}

void TTSCacheService::removeExpired()
{
    QStringList expired;
    for (const TTSCacheEntry &entry : std::as_const(m_cacheEntries)) {
        if (isExpired(entry))
            expired.append(entry.key);
    }
    for (const QString &key : std::as_const(expired))
        removeEntry(key);
}

void TTSCacheService::removeEntry(QString key)
{
    // By value: callers pass the key of the very entry erased below.
    const auto found = m_cacheEntries.constFind(key);
    if (found == m_cacheEntries.constEnd())
        return;
    m_filesToDelete.append(found->audioFilePath);
    m_cacheEntries.erase(found);
    m_encodedEntries.remove(key);
    m_entriesChanged = true;
    recount();
}

void TTSCacheService::putEntry(const TTSCacheEntry &entry)
{
    m_cacheEntries.insert(entry.key, entry);
    m_encodedEntries.insert(entry.key, encodeEntry(entry, 1));
    m_filesToDelete.removeAll(entry.audioFilePath);
    m_entriesChanged = true;
    recount();
}

void TTSCacheService::recount()
{
    // Sizes follow the entries actually held, so a lost or edited index cannot leave the size
    // accounting (and with it eviction) off for good.
    m_statistics.totalSize = 0;
    for (const TTSCacheEntry &entry : std::as_const(m_cacheEntries))
        m_statistics.totalSize += entry.fileSize;
    m_statistics.entryCount = m_cacheEntries.size();
}

TTSCacheService::FileStamp TTSCacheService::indexStamp() const
{
    struct stat info {};
    if (::stat(QFile::encodeName(metadataPath()).constData(), &info) != 0)
        return {};
    return {static_cast<qint64>(info.st_ino), static_cast<qint64>(info.st_size),
            static_cast<qint64>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

void TTSCacheService::refresh()
{
    // Another process may have written the index since this one last read or wrote it.
    if (indexStamp() != m_loadedStamp)
        loadMetadata();
}

void TTSCacheService::loadMetadata()
{
    m_loadedStamp = indexStamp();
    QMap<QString, TTSCacheEntry> loaded;
    bool dropped = false;
    QFile file(metadataPath());
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly)) {
            // Unreadable is not damaged: it is left for the user, and this run caches nothing new in it.
            PWARN(lcSpeech) << "⚠️ Error loading cache metadata: " << file.errorString();
            return;
        }
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
        file.close();
        if (parseError.error != QJsonParseError::NoError) {
            moveAsideCorruptIndex(parseError.errorString() + QStringLiteral(" at offset ")
                                  + QString::number(parseError.offset));
        } else if (!document.isObject()) {
            moveAsideCorruptIndex(QStringLiteral("the file does not hold a JSON object"));
        } else {
            const QJsonObject object = document.object();
            for (auto it = object.begin(); it != object.end(); ++it) {
                QString problem;
                std::optional<TTSCacheEntry> entry = decodeEntry(it.key(), it.value(), &problem);
                if (entry) {
                    const QString ownFile = audioPathFor(entry->key);
                    if (!entry->audioFilePath.isEmpty() && entry->audioFilePath != ownFile)
                        problem = QStringLiteral("it names a file that is not the cache's: ") + entry->audioFilePath;
                    entry->audioFilePath = ownFile;
                    if (problem.isEmpty() && !hasOwnFile(*entry))
                        problem = QStringLiteral("its audio file is missing or not a file of the cache");
                }
                if (!problem.isEmpty()) {
                    PWARN(lcSpeech) << "⚠️ Dropped cache entry " << it.key() << ": " << problem;
                    dropped = true;
                    continue;
                }
                loaded.insert(entry->key, *entry);
            }
        }
    }
    m_cacheEntries.clear();
    m_encodedEntries.clear();
    for (const TTSCacheEntry &entry : std::as_const(loaded)) {
        m_cacheEntries.insert(entry.key, entry);
        m_encodedEntries.insert(entry.key, encodeEntry(entry, 1));
    }
    m_entriesChanged = dropped;
    recount();
}

void TTSCacheService::moveAsideCorruptIndex(const QString &reason)
{
    const QString aside = metadataPath() + QStringLiteral(".corrupt-")
                          + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmsszzz"));
    QFile::remove(aside);
    if (QFile::rename(metadataPath(), aside))
        PWARN(lcSpeech) << "⚠️ Error loading cache metadata: " << reason << "; the file was moved to " << aside;
    else
        PWARN(lcSpeech) << "⚠️ Error loading cache metadata: " << reason << "; the file could not be moved aside";
    m_loadedStamp = indexStamp();
}

void TTSCacheService::sweepUnnamedFiles()
{
    const QDir folder(m_directory);
    const QString indexName = QFileInfo(metadataPath()).fileName();
    const QStringList kept{indexName, QFileInfo(statisticsPath()).fileName(), QFileInfo(lockPath()).fileName()};
    for (const QFileInfo &file : folder.entryInfoList(QDir::Files | QDir::Hidden | QDir::System)) {
        const QString name = file.fileName();
        if (kept.contains(name) || name.startsWith(indexName + QStringLiteral(".corrupt-")))
            continue;
        const QString key = name.endsWith(QStringLiteral(".m4a")) ? name.chopped(4) : QString();
        const auto entry = m_cacheEntries.constFind(key);
        if (entry != m_cacheEntries.constEnd() && entry->audioFilePath == file.absoluteFilePath())
            continue;
        PLOG(lcSpeech) << "🔍 Removing a file no cache entry names: " << name;
        if (file.isSymLink())
            QFile::remove(file.absoluteFilePath()); // the link itself, never what it points to
        else
            removeOwnFile(file.absoluteFilePath());
    }
}

void TTSCacheService::removeOwnFile(const QString &path)
{
    const QFileInfo file(path);
    if (!file.exists() && !file.isSymLink())
        return;
    // Only a regular file that really lies in the folder; a link is removed, not followed.
    if (file.isSymLink() ? file.absolutePath() == m_directory : Paths::isInside(path, m_directory))
        QFile::remove(path);
    else
        PWARN(lcSpeech) << "⚠️ Not removing " << path << ": it is outside the cache folder";
}

void TTSCacheService::loadStatistics()
{
    QFile file(statisticsPath());
    m_statistics.totalHits = 0;
    m_statistics.totalMisses = 0;
    if (file.exists()) {
        QJsonParseError parseError;
        QJsonDocument document;
        if (file.open(QIODevice::ReadOnly))
            document = QJsonDocument::fromJson(file.readAll(), &parseError);
        if (!file.isOpen()) {
            PWARN(lcSpeech) << "Error loading cache statistics: " << file.errorString();
        } else if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
            PWARN(lcSpeech) << "Error loading cache statistics: " << parseError.errorString();
        } else {
            const QJsonObject object = document.object();
            m_statistics.totalHits = std::max<qint64>(0, object.value(u"totalHits").toInteger());
            m_statistics.totalMisses = std::max<qint64>(0, object.value(u"totalMisses").toInteger());
        }
    }
    recount();
}

void TTSCacheService::saveMetadata()
{
    QByteArray json;
    if (m_cacheEntries.isEmpty()) {
        json = "{\n}\n";
    } else {
        json = "{\n";
        for (auto it = m_cacheEntries.constBegin(); it != m_cacheEntries.constEnd(); ++it) {
            json += "    " + jsonText(it.key()) + ": " + m_encodedEntries.value(it.key());
            json += std::next(it) != m_cacheEntries.constEnd() ? ",\n" : "\n";
        }
        json += "}\n";
    }
    QString error;
    if (!Paths::makePrivateFolder(m_directory) || !writeWhole(metadataPath(), json, &error))
        PWARN(lcSpeech) << "Error saving cache metadata: " << (error.isEmpty() ? m_directory : error);
    m_loadedStamp = indexStamp();
}

void TTSCacheService::saveStatistics()
{
    if (m_unsavedHits == 0 && m_unsavedMisses == 0 && QFileInfo::exists(statisticsPath())) {
        // Only the sizes may have moved; they are written when the counts next change.
        QFile file(statisticsPath());
        if (file.open(QIODevice::ReadOnly)) {
            const QJsonObject stored = QJsonDocument::fromJson(file.readAll()).object();
            if (stored.value(u"totalSize").toInteger() == m_statistics.totalSize
                && stored.value(u"entryCount").toInteger() == m_statistics.entryCount)
                return;
        }
    }
    // The counts on disk include other processes' hits and misses; this one's are added to them.
    const qint64 hits = m_unsavedHits;
    const qint64 misses = m_unsavedMisses;
    loadStatistics();
    m_statistics.totalHits += hits;
    m_statistics.totalMisses += misses;
    m_unsavedHits = 0;
    m_unsavedMisses = 0;
    const QByteArray json = orderedObject({{QStringLiteral("totalHits"), m_statistics.totalHits},
                                           {QStringLiteral("totalMisses"), m_statistics.totalMisses},
                                           {QStringLiteral("totalSize"), m_statistics.totalSize},
                                           {QStringLiteral("entryCount"), m_statistics.entryCount}},
                                          0)
                            + '\n';
    QString error;
    if (!Paths::makePrivateFolder(m_directory) || !writeWhole(statisticsPath(), json, &error))
        PWARN(lcSpeech) << "Error saving cache statistics: " << (error.isEmpty() ? m_directory : error);
}

} // namespace parlino
