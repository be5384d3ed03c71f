#include "AwaitTask.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "TestEnvironment.h"
#include "speech/TTSCacheService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QUrl>

#include <memory>
#include <vector>

using namespace parlino;
using namespace parlino::test;
using namespace std::chrono_literals;

namespace {

constexpr auto day = std::chrono::hours(24);

} // namespace

class TestTTSCacheService final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    ManualClock m_clock;
    QString m_folder;
    int m_fileNumber = 0;

    std::unique_ptr<TTSCacheService> makeCache(qint64 limit = TTSCacheService::defaultMaxCacheSizeBytes)
    {
        return std::make_unique<TTSCacheService>(m_folder, m_clock, limit);
    }

    // A caller's freshly generated file of `size` bytes.
    QString makeFile(qint64 size, char fill = 'a')
    {
        const QString path = m_env.root() + QStringLiteral("/generated-%1.mp3").arg(++m_fileNumber);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            qFatal("cannot write test file");
        file.write(QByteArray(size, fill));
        return path;
    }

    static std::optional<QString> lookUp(TTSCacheService &cache, const QString &text, double speed = 1.0)
    {
        return *awaitTask(cache.getCachedAudio(text, QStringLiteral("alloy"), speed)).value;
    }

    static void store(TTSCacheService &cache, const QString &file, const QString &text, double speed = 1.0)
    {
        QVERIFY(awaitTask(cache.cacheAudio(file, text, QStringLiteral("alloy"), speed)).finished);
    }

    static TTSCacheStatistics statistics(TTSCacheService &cache) { return *awaitTask(cache.statistics()).value; }
    static int entryCount(TTSCacheService &cache) { return static_cast<int>(awaitTask(cache.entries()).value->size()); }

private Q_SLOTS:
    void init()
    {
        m_folder = m_env.dataHome() + QStringLiteral("/TTSCache");
        QDir(m_folder).removeRecursively();
        m_clock.setNow(QDateTime(QDate(2026, 1, 1), QTime(12, 0), QTimeZone::utc()));
    }

    void keysAreSha256OfTextVoiceAndShortestSpeed()
    {
        QCOMPARE(TTSCacheService::generateCacheKey(QStringLiteral("Hello"), QStringLiteral("alloy"), 1.0),
                 QStringLiteral("cfd83bb5b9897e0bfd42eadd7c33c9a38bcb90cc8eda0561414df25129f3c397"));
        QCOMPARE(TTSCacheService::generateCacheKey(QStringLiteral("Grüße"), QStringLiteral("nova"), 1.25),
                 QStringLiteral("eb45febee9d2a46330773411767c54dce2e6f2c16e387624ae89c4bd23c2a8ff"));
        QCOMPARE(TTSCacheService::speedText(1.0), QStringLiteral("1.0"));
        QCOMPARE(TTSCacheService::speedText(3.0), QStringLiteral("3.0"));
        QCOMPARE(TTSCacheService::speedText(0.1), QStringLiteral("0.1"));
        QCOMPARE(TTSCacheService::speedText(1.75), QStringLiteral("1.75"));
    }

    void storesACopyThatSurvivesARestart()
    {
        const QString original = makeFile(1234, 'x');
        {
            auto cache = makeCache();
            QVERIFY(!lookUp(*cache, QStringLiteral("Hello")));
            store(*cache, original, QStringLiteral("Hello"));
            store(*cache, makeFile(10), QStringLiteral("Hello"), 1.5); // another speed, another entry
            const auto hit = lookUp(*cache, QStringLiteral("Hello"));
            QVERIFY(hit);
            QCOMPARE(*hit,
                     m_folder + u'/'
                         + TTSCacheService::generateCacheKey(QStringLiteral("Hello"), QStringLiteral("alloy"), 1.0)
                         + QStringLiteral(".m4a"));
            QFile copy(*hit);
            QVERIFY(copy.open(QIODevice::ReadOnly));
            QCOMPARE(copy.readAll(), QByteArray(1234, 'x'));
            QVERIFY(QFile::exists(original)); // the caller's file is left alone
        }

        auto restarted = makeCache();
        QVERIFY(lookUp(*restarted, QStringLiteral("Hello")));
        QVERIFY(lookUp(*restarted, QStringLiteral("Hello"), 1.5));
        QCOMPARE(statistics(*restarted), (TTSCacheStatistics{3, 1, 1244, 2}));

        // The files on disk: pretty-printed JSON, ISO 8601 dates, file URLs, the record's member order.
        QFile metadataFile(restarted->metadataPath());
        QVERIFY(metadataFile.open(QIODevice::ReadOnly));
        const QByteArray metadata = metadataFile.readAll();
        const QJsonObject entry = QJsonDocument::fromJson(metadata).object().begin()->toObject();
        QCOMPARE(entry.value(u"createdAt").toString(), QStringLiteral("2026-01-01T12:00:00Z"));
        QVERIFY(entry.value(u"audioFileURL").toString().startsWith(QStringLiteral("file:///")));
        QVERIFY(metadata.indexOf("\"key\"") < metadata.indexOf("\"text\""));
        QVERIFY(metadata.indexOf("\"fileSize\"") < metadata.indexOf("\"audioFileURL\""));
        QVERIFY(metadata.contains("\n        \"voice\": \"alloy\""));
        QFile statisticsFile(restarted->statisticsPath());
        QVERIFY(statisticsFile.open(QIODevice::ReadOnly));
        QCOMPARE(statisticsFile.readAll(),
                 QByteArray("{\n    \"totalHits\": 3,\n    \"totalMisses\": 1,\n    \"totalSize\": 1244,\n"
                            "    \"entryCount\": 2\n}\n"));
    }

    void expiryCountsFromCreationNotFromLastHit()
    {
        auto cache = makeCache();
        store(*cache, makeFile(10), QStringLiteral("Old"));
        const QString stored = *lookUp(*cache, QStringLiteral("Old"));

        m_clock.advance(29 * day);
        QVERIFY(lookUp(*cache, QStringLiteral("Old")));
        m_clock.advance(1 * day);
        QVERIFY(lookUp(*cache, QStringLiteral("Old"))); // exactly 30 days: still valid
        m_clock.advance(1s);
        QVERIFY(!lookUp(*cache, QStringLiteral("Old")));
        QVERIFY(!QFile::exists(stored));
        QCOMPARE(statistics(*cache), (TTSCacheStatistics{3, 1, 0, 0}));
    }

    void expiredEntriesAreSweptWhenTheCacheStarts()
    {
        QString stored;
        {
            auto cache = makeCache();
            store(*cache, makeFile(10), QStringLiteral("Old"));
            m_clock.advance(20 * day);
            store(*cache, makeFile(10), QStringLiteral("Newer"));
            stored = *lookUp(*cache, QStringLiteral("Old"));
        }
        m_clock.advance(11 * day);
        auto restarted = makeCache();
        QCOMPARE(entryCount(*restarted), 1);
        QVERIFY(!QFile::exists(stored));
        QVERIFY(lookUp(*restarted, QStringLiteral("Newer")));

        m_clock.advance(20 * day);
        QVERIFY(awaitTask(restarted->evictOldEntries()).finished);
        QCOMPARE(entryCount(*restarted), 0);
    }

    void aFileDeletedByHandIsAMiss()
    {
        auto cache = makeCache();
        store(*cache, makeFile(10), QStringLiteral("Gone"));
        QVERIFY(QFile::remove(*lookUp(*cache, QStringLiteral("Gone"))));
        QVERIFY(!lookUp(*cache, QStringLiteral("Gone")));
        QCOMPARE(entryCount(*cache), 0);
        QCOMPARE(statistics(*cache).totalSize, 0);

        // A file that would not play is dropped when the player says so; other paths change nothing.
        store(*cache, makeFile(10), QStringLiteral("Broken"));
        store(*cache, makeFile(20), QStringLiteral("Fine"));
        const QString broken = *lookUp(*cache, QStringLiteral("Broken"));
        const QString outside = makeFile(5);
        cache->removeFile(outside);
        cache->removeFile(broken);
        QCOMPARE(entryCount(*cache), 1);
        QVERIFY(!QFile::exists(broken));
        QVERIFY(QFile::exists(outside));
        QVERIFY(lookUp(*cache, QStringLiteral("Fine")));
    }

    void evictsLeastRecentlyUsedAtTheByteLimit()
    {
        auto cache = makeCache(1000);
        store(*cache, makeFile(400), QStringLiteral("A"));
        m_clock.advance(1s);
        store(*cache, makeFile(400), QStringLiteral("B"));
        m_clock.advance(1s);
        QVERIFY(lookUp(*cache, QStringLiteral("A"))); // B is now the least recently used
        m_clock.advance(1s);

        store(*cache, makeFile(200), QStringLiteral("C")); // exactly at the limit: nothing goes
        QCOMPARE(statistics(*cache).totalSize, 1000);
        QCOMPARE(entryCount(*cache), 3);

        m_clock.advance(1s);
        store(*cache, makeFile(1), QStringLiteral("D")); // one byte over: B goes, nothing else
        QVERIFY(!lookUp(*cache, QStringLiteral("B")));
        QVERIFY(lookUp(*cache, QStringLiteral("A")));
        QVERIFY(lookUp(*cache, QStringLiteral("C")));
        QCOMPARE(statistics(*cache).totalSize, 601);

        // Larger than the whole limit: everything else goes, the file is kept anyway.
        store(*cache, makeFile(1500), QStringLiteral("Huge"));
        QCOMPARE(entryCount(*cache), 1);
        QCOMPARE(statistics(*cache).totalSize, 1500);
        QCOMPARE(QDir(m_folder).entryList({QStringLiteral("*.m4a")}).size(), 1);
    }

    void replacingAnEntryKeepsTheNewBytesAndTheSizeRight()
    {
        auto cache = makeCache();
        store(*cache, makeFile(300, 'o'), QStringLiteral("Same"));
        store(*cache, makeFile(100, 'n'), QStringLiteral("Same"));
        QFile file(*lookUp(*cache, QStringLiteral("Same")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray(100, 'n'));
        QCOMPARE(statistics(*cache).totalSize, 100);

        // Handing the cache its own file back must not destroy it.
        store(*cache, file.fileName(), QStringLiteral("Same"));
        QCOMPARE(QFileInfo(file.fileName()).size(), 100);
        QCOMPARE(statistics(*cache).totalSize, 100);
    }

    void anIndexEditedToReachOutsideIsNotTrusted()
    {
        {
            auto cache = makeCache();
            store(*cache, makeFile(10), QStringLiteral("Kept"));
            store(*cache, makeFile(11), QStringLiteral("Also kept"));
        }
        const QString outside = makeFile(7, 'o');
        const QString outsideUrl = QUrl::fromLocalFile(outside).toString();
        const auto keyOf = [](const char *text) {
            return TTSCacheService::generateCacheKey(QLatin1String(text), QStringLiteral("alloy"), 1.0);
        };
        const auto record = [&](const QString &key, const QString &url) {
            return QJsonObject{{u"key"_qs, key},
                               {u"text"_qs, u"t"_qs},
                               {u"voice"_qs, u"alloy"_qs},
                               {u"speed"_qs, 1.0},
                               {u"createdAt"_qs, u"2026-01-01T12:00:00Z"_qs},
                               {u"lastAccessedAt"_qs, u"2026-01-01T12:00:00Z"_qs},
                               {u"fileSize"_qs, 7},
                               {u"audioFileURL"_qs, url}};
        };
        QFile metadata(m_folder + QStringLiteral("/cache_metadata.json"));
        QVERIFY(metadata.open(QIODevice::ReadOnly));
        QJsonObject index = QJsonDocument::fromJson(metadata.readAll()).object();
        metadata.close();
        index.insert(keyOf("points out"), record(keyOf("points out"), outsideUrl));
        index.insert(u"../../outside"_qs, record(u"../../outside"_qs, outsideUrl));
        index.insert(outside, record(outside, outsideUrl));
        const QString linked = keyOf("linked");
        QVERIFY(QFile::link(outside, m_folder + u'/' + linked + QStringLiteral(".m4a")));
        index.insert(linked, record(linked, QUrl::fromLocalFile(m_folder + u'/' + linked + u".m4a"_qs).toString()));
        QJsonObject wrongType = record(keyOf("wrong type"), QString());
        wrongType.insert(u"speed"_qs, u"fast"_qs);
        index.insert(keyOf("wrong type"), wrongType);
        index.insert(keyOf("garbage"), 42);
        QVERIFY(metadata.open(QIODevice::WriteOnly | QIODevice::Truncate));
        metadata.write(QJsonDocument(index).toJson());
        metadata.close();
        QFile(m_folder + QStringLiteral("/stray.m4a.part")).open(QIODevice::WriteOnly);

        {
            LogCapture log;
            auto cache = makeCache();
            QCOMPARE(entryCount(*cache), 2);
            QCOMPARE(log.lines().filter(QStringLiteral("Dropped cache entry")).size(), 6);
            QVERIFY(lookUp(*cache, QStringLiteral("Kept")));
            QVERIFY(!lookUp(*cache, QStringLiteral("points out")));
            // Everything expires, and the outside file is still not the cache's to delete.
            m_clock.advance(31 * day);
            QVERIFY(awaitTask(cache->evictOldEntries()).finished);
            QCOMPARE(entryCount(*cache), 0);
        }
        QCOMPARE(QFileInfo(outside).size(), 7);
        QCOMPARE(QDir(m_folder).entryList(QDir::Files | QDir::System),
                 (QStringList{u"cache_metadata.json"_qs, u"cache_statistics.json"_qs}));

        // An index that is not JSON is moved aside for the user, and the cache starts empty beside it.
        init();
        {
            auto cache = makeCache();
            store(*cache, makeFile(10), QStringLiteral("Lost"));
        }
        QVERIFY(metadata.open(QIODevice::WriteOnly | QIODevice::Truncate));
        metadata.write("{\"broken\": ");
        metadata.close();
        LogCapture log;
        auto cache = makeCache();
        QCOMPARE(entryCount(*cache), 0);
        QVERIFY(!lookUp(*cache, QStringLiteral("Lost")));
        QCOMPARE(log.lines().filter(QStringLiteral("Error loading cache metadata: ")).size(), 1);
        const QStringList aside = QDir(m_folder).entryList({QStringLiteral("cache_metadata.json.corrupt-*")});
        QCOMPARE(aside.size(), 1);
        QFile kept(m_folder + u'/' + aside.first());
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), QByteArray("{\"broken\": "));
        QCOMPARE(QDir(m_folder).entryList({QStringLiteral("*.m4a")}).size(), 0);
        store(*cache, makeFile(10), QStringLiteral("Fresh"));
        QVERIFY(lookUp(*makeCache(), QStringLiteral("Fresh")));
    }

    void twoProcessesSharingTheFolderKeepEachOthersEntries()
    {
        // Two caches on one folder stand for the app and the command line: each change re-reads the index
        // under the lock, so interleaved stores all survive.
        auto app = makeCache();
        auto commandLine = makeCache();
        std::vector<QCoro::Task<>> pending;
        for (int i = 0; i < 10; ++i) {
            pending.push_back(app->cacheAudio(makeFile(10), QStringLiteral("App %1").arg(i), u"alloy"_qs, 1.0));
            pending.push_back(
                commandLine->cacheAudio(makeFile(10), QStringLiteral("Command %1").arg(i), u"alloy"_qs, 1.0));
        }
        for (auto &task : pending)
            QVERIFY(awaitTask(std::move(task)).finished);
        QVERIFY(lookUp(*app, QStringLiteral("Command 3")));
        QVERIFY(lookUp(*commandLine, QStringLiteral("App 7")));
        QCOMPARE(statistics(*makeCache()), (TTSCacheStatistics{2, 0, 200, 20}));
    }

    void storeFailuresAreLoggedNotThrown()
    {
        LogCapture log;
        auto cache = makeCache();
        const auto outcome = awaitTask(cache->cacheAudio(m_env.root() + QStringLiteral("/missing.mp3"),
                                                         QStringLiteral("X"), QStringLiteral("alloy"), 1.0));
        QVERIFY(outcome.value && !outcome.error);
        QCOMPARE(log.lines().filter(QStringLiteral("Error caching audio file: ")).size(), 1);
        QCOMPARE(entryCount(*cache), 0);
    }

    void overlappingCallsAreCountedWithoutLoss()
    {
        auto cache = makeCache();
        store(*cache, makeFile(10), QStringLiteral("Shared"));
        std::vector<QCoro::Task<std::optional<QString>>> pending;
        for (int i = 0; i < 25; ++i) {
            pending.push_back(cache->getCachedAudio(QStringLiteral("Shared"), QStringLiteral("alloy"), 1.0));
            pending.push_back(cache->getCachedAudio(QStringLiteral("Absent %1").arg(i), QStringLiteral("alloy"), 1.0));
        }
        int hits = 0;
        for (auto &task : pending)
            hits += awaitTask(std::move(task)).value->has_value() ? 1 : 0;
        QCOMPARE(hits, 25);
        QCOMPARE(statistics(*cache), (TTSCacheStatistics{25, 25, 10, 1}));
    }
};

QTEST_GUILESS_MAIN(TestTTSCacheService)
#include "tst_TTSCacheService.moc"
