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
#include <QSaveFile>
#include <QTimeZone>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>
#include <qcoro/qcorofuture.h>

#include <algorithm>
#include <charconv>
#include <cmath>

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

std::optional<TTSCacheEntry> decodeEntry(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const auto createdAt = parseIsoDate(object.value(u"createdAt"));
    const auto lastAccessedAt = parseIsoDate(object.value(u"lastAccessedAt"));
    const QUrl url(object.value(u"audioFileURL").toString());
    if (!object.value(u"key").isString() || !object.value(u"text").isString() || !object.value(u"voice").isString()
        || !object.value(u"speed").isDouble() || !object.value(u"fileSize").isDouble() || !createdAt || !lastAccessedAt
        || !url.isLocalFile())
        return std::nullopt;
    TTSCacheEntry entry;
    entry.key = object.value(u"key").toString();
    entry.text = object.value(u"text").toString();
    entry.voice = object.value(u"voice").toString();
    entry.speed = object.value(u"speed").toDouble();
    entry.createdAt = *createdAt;
    entry.lastAccessedAt = *lastAccessedAt;
    entry.fileSize = object.value(u"fileSize").toInteger();
    entry.audioFilePath = url.toLocalFile();
    return entry;
}

// Writes the whole file or nothing: a full disk leaves the previous version in place.
bool writeWhole(const QString &path, const QByteArray &data, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}

} // namespace

TTSCacheService::TTSCacheService(QString directory, Clock &clock, qint64 maxCacheSizeBytes)
    : m_directory(std::move(directory))
    , m_clock(clock)
    , m_maxCacheSizeBytes(maxCacheSizeBytes)
{
    m_worker.setMaxThreadCount(1);
    m_worker.start([this] {
        loadMetadata();
        loadStatistics();
        removeExpired();
    });
}

TTSCacheService::~TTSCacheService()
{
    // Pending operations still save their files before the state goes away.
    m_worker.waitForDone();
}

bool TTSCacheService::ownsFile(const QString &path) const
{
    const QString folder = QDir(m_directory).absolutePath() + u'/';
    return QFileInfo(path).absoluteFilePath().startsWith(folder);
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
    auto done = QtConcurrent::run(&m_worker, [this] { removeExpired(); });
    co_await done;
}

QCoro::Task<TTSCacheStatistics> TTSCacheService::statistics()
{
    auto result = QtConcurrent::run(&m_worker, [this] { return m_statistics; });
    co_return co_await result;
}

QCoro::Task<QList<TTSCacheEntry>> TTSCacheService::entries()
{
    auto result = QtConcurrent::run(&m_worker, [this] { return m_cacheEntries.values(); });
    co_return co_await result;
}

bool TTSCacheService::isExpired(const TTSCacheEntry &entry) const
{
    return m_clock.now() > entry.createdAt.addSecs(static_cast<qint64>(cacheTTLSeconds));
}

std::optional<QString> TTSCacheService::lookUp(const QString &text, const QString &voice, double speed)
{
    const QString key = generateCacheKey(text, voice, speed);
    const auto found = m_cacheEntries.constFind(key);
    bool hit = found != m_cacheEntries.constEnd();
    if (hit && (isExpired(*found) || !QFileInfo::exists(found->audioFilePath))) {
        removeEntry(key);
        hit = false;
    }
    if (!hit) {
        ++m_statistics.totalMisses;
        saveStatistics();
        return std::nullopt;
    }

    // Expiry counts from creation: a hit does not extend an entry's life.
    TTSCacheEntry entry = *found;
    entry.lastAccessedAt = m_clock.now();
    putEntry(entry);
    ++m_statistics.totalHits;
    saveMetadata();
    saveStatistics();
    return entry.audioFilePath;
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

    if (m_statistics.totalSize + size > m_maxCacheSizeBytes)
        evictLRUEntries(size);

    if (!QDir().mkpath(m_directory)) {
        PWARN(lcSpeech) << "Error caching audio file: cannot create " << m_directory;
        return;
    }
    const QString destination = audioPathFor(key);
    // Handing the cache its own file back (a hit that is stored again) must not delete it.
    if (source.canonicalFilePath() != QFileInfo(destination).canonicalFilePath()) {
        const QString partial = destination + QStringLiteral(".part");
        QFile::remove(partial);
        QFile input(filePath);
        if (!input.copy(partial)) {
            PWARN(lcSpeech) << "Error caching audio file: " << input.errorString();
            QFile::remove(partial);
            return;
        }
        QFile::remove(destination);
        QFile copied(partial);
        if (!copied.rename(destination)) {
            PWARN(lcSpeech) << "Error caching audio file: " << copied.errorString();
            QFile::remove(partial);
            return;
        }
    }

    // A replaced entry's bytes are no longer held.
    if (const auto previous = m_cacheEntries.constFind(key); previous != m_cacheEntries.constEnd())
        m_statistics.totalSize -= previous->fileSize;

    const QDateTime now = m_clock.now();
    putEntry(TTSCacheEntry{key, text, voice, speed, now, now, size, destination});
    m_statistics.totalSize += size;
    m_statistics.entryCount = m_cacheEntries.size();
    saveMetadata();
    saveStatistics();
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
    saveMetadata();
}

void TTSCacheService::removeEntry(const QString &key)
{
    const auto found = m_cacheEntries.constFind(key);
    if (found == m_cacheEntries.constEnd())
        return;
    QFile::remove(found->audioFilePath);
    m_statistics.totalSize -= found->fileSize;
    m_cacheEntries.erase(found);
    m_encodedEntries.remove(key);
    m_statistics.entryCount = m_cacheEntries.size();
    saveMetadata();
    saveStatistics();
}

void TTSCacheService::putEntry(const TTSCacheEntry &entry)
{
    m_cacheEntries.insert(entry.key, entry);
    m_encodedEntries.insert(entry.key, encodeEntry(entry, 1));
}

void TTSCacheService::loadMetadata()
{
    QFile file(metadataPath());
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly)) {
        PWARN(lcSpeech) << "Error loading cache metadata: " << file.errorString();
        return;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        PWARN(lcSpeech) << "Error loading cache metadata: " << parseError.errorString() << " at offset "
                        << parseError.offset;
        return;
    }
    if (!document.isObject()) {
        PWARN(lcSpeech) << "Error loading cache metadata: the file does not hold a JSON object";
        return;
    }
    QMap<QString, TTSCacheEntry> loaded;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const auto entry = decodeEntry(it.value());
        if (!entry) {
            PWARN(lcSpeech) << "Error loading cache metadata: entry " << it.key() << " is not a valid cache entry";
            return;
        }
        loaded.insert(it.key(), *entry);
    }
    m_cacheEntries.clear();
    m_encodedEntries.clear();
    for (const TTSCacheEntry &entry : std::as_const(loaded))
        putEntry(entry);
}

void TTSCacheService::loadStatistics()
{
    QFile file(statisticsPath());
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
            m_statistics.totalHits = object.value(u"totalHits").toInteger();
            m_statistics.totalMisses = object.value(u"totalMisses").toInteger();
        }
    }
    // Sizes follow the entries actually held, so a lost or edited metadata file cannot leave the
    // size accounting (and with it eviction) off for good.
    m_statistics.totalSize = 0;
    for (const TTSCacheEntry &entry : std::as_const(m_cacheEntries))
        m_statistics.totalSize += entry.fileSize;
    m_statistics.entryCount = m_cacheEntries.size();
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
    if (!QDir().mkpath(m_directory) || !writeWhole(metadataPath(), json, &error))
        PWARN(lcSpeech) << "Error saving cache metadata: " << (error.isEmpty() ? m_directory : error);
}

void TTSCacheService::saveStatistics()
{
    const QByteArray json = orderedObject({{QStringLiteral("totalHits"), m_statistics.totalHits},
                                           {QStringLiteral("totalMisses"), m_statistics.totalMisses},
                                           {QStringLiteral("totalSize"), m_statistics.totalSize},
                                           {QStringLiteral("entryCount"), m_statistics.entryCount}},
                                          0)
                            + '\n';
    QString error;
    if (!QDir().mkpath(m_directory) || !writeWhole(statisticsPath(), json, &error))
        PWARN(lcSpeech) << "Error saving cache statistics: " << (error.isEmpty() ? m_directory : error);
}

} // namespace parlino
