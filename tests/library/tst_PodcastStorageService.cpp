#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/LibraryError.h"
#include "library/PodcastStorageService.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using namespace parlino;
using namespace parlino::test;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

class PodcastStorageServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void firstRunCreatesTheFolderAndTheIndexKeepsItsForm();
    void deletingRemovesRecordAndFileAndIgnoresUnknownIds();
    void aDamagedIndexAndAFailedWriteLeaveTheIndexAsItWas();

private:
    [[nodiscard]] Podcast podcast(const QString &title) const;

    TestEnvironment m_env;
    QString m_mp3;
    QString m_folder;
};

void PodcastStorageServiceTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/episode.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Welcome to the show."), m_mp3));
}

void PodcastStorageServiceTest::init()
{
    m_folder = PodcastStorageService::defaultFolder();
    QDir(m_folder).removeRecursively();
}

Podcast PodcastStorageServiceTest::podcast(const QString &title) const
{
    Podcast result;
    result.id = QUuid::createUuid();
    result.title = title;
    result.summary = QStringLiteral("Two sentences. About the show.");
    result.generationDate = QDateTime(QDate(2025, 1, 31), QTime(14, 5), Qt::UTC);
    result.duration = 1.75;
    result.audioURL = QUrl::fromLocalFile(m_mp3);
    result.sourceText = QStringLiteral("The source.");
    result.podcastType = QStringLiteral("Deep Dive");
    result.wordCount = 4;
    return result;
}

void PodcastStorageServiceTest::firstRunCreatesTheFolderAndTheIndexKeepsItsForm()
{
    QCOMPARE(m_folder, m_env.dataHome() + QStringLiteral("/Parlino/Podcasts"));
    PodcastStorageService storage;
    LogCapture log;
    QVERIFY(storage.loadAllPodcasts().isEmpty());
    QVERIFY(log.contains(QStringLiteral("ℹ️ No podcasts file found, returning empty array")));
    QVERIFY(!QDir(m_folder).exists());

    const Podcast first = storage.savePodcast(podcast(QStringLiteral("First")));
    const Podcast second = storage.savePodcast(podcast(QStringLiteral("Second")));
    QVERIFY(log.containsInOrder(
        {QStringLiteral("💾 Saving podcast: First"), QStringLiteral("✅ Podcast saved successfully")}));
    const QString firstFile =
        m_folder + u'/' + first.id.toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".mp3");
    QCOMPARE(first.audioURL, QUrl::fromLocalFile(firstFile));
    QCOMPARE(readAll(firstFile), readAll(m_mp3));
    QVERIFY(QFile::exists(m_mp3));

    const QByteArray index = readAll(storage.indexPath());
    QVERIFY2(index.contains("\n        \"title\": \"First\""), index.constData());
    const QJsonObject written = QJsonDocument::fromJson(index).array()[0].toObject();
    QCOMPARE(written.value(u"generationDate").toString(), QStringLiteral("2025-01-31T14:05:00Z"));
    QCOMPARE(written.value(u"podcastType").toString(), QStringLiteral("Deep Dive"));
    QCOMPARE(written.value(u"id").toString(), first.id.toString(QUuid::WithoutBraces).toUpper());
    QCOMPARE(storage.loadAllPodcasts(), (QList<Podcast>{first, second}));
    QVERIFY(log.contains(QStringLiteral("✅ Loaded 2 podcasts from storage")));

    // A hand-written index in the same form, fractional seconds and all.
    writeAll(storage.indexPath(),
             R"([{"id": "0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F", "title": "Old", "summary": "S.",
                  "generationDate": "2024-12-01T08:30:15.250Z", "duration": 312.5,
                  "audioURL": "file:///tmp/Old%20One.mp3", "sourceText": "T", "podcastType": "Quick Summary",
                  "wordCount": 700}])");
    const QList<Podcast> loaded = storage.loadAllPodcasts();
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded[0].generationDate, QDateTime(QDate(2024, 12, 1), QTime(8, 30, 15, 250), Qt::UTC));
    QCOMPARE(loaded[0].audioURL.toLocalFile(), QStringLiteral("/tmp/Old One.mp3"));
    QCOMPARE(loaded[0].podcastType, QStringLiteral("Quick Summary"));
    QCOMPARE(loaded[0].wordCount, 700);
}

void PodcastStorageServiceTest::deletingRemovesRecordAndFileAndIgnoresUnknownIds()
{
    PodcastStorageService storage;
    const Podcast first = storage.savePodcast(podcast(QStringLiteral("First")));
    const Podcast second = storage.savePodcast(podcast(QStringLiteral("Second")));
    const QByteArray before = readAll(storage.indexPath());

    LogCapture log;
    const QUuid unknown = QUuid::createUuid();
    storage.deletePodcast(unknown);
    QVERIFY(
        log.contains(QStringLiteral("⚠️ Podcast not found: ") + unknown.toString(QUuid::WithoutBraces).toUpper()));
    QCOMPARE(readAll(storage.indexPath()), before);

    storage.deletePodcast(second.id);
    QVERIFY(!QFile::exists(second.audioURL.toLocalFile()));
    QVERIFY(QFile::exists(first.audioURL.toLocalFile()));

    // A podcast whose MP3 was removed by hand still loses its record.
    QVERIFY(QFile::remove(first.audioURL.toLocalFile()));
    storage.deletePodcast(first.id);
    QVERIFY(log.contains(QStringLiteral("✅ Podcast deleted successfully")));
    QVERIFY(storage.loadAllPodcasts().isEmpty());
}

void PodcastStorageServiceTest::aDamagedIndexAndAFailedWriteLeaveTheIndexAsItWas()
{
    PodcastStorageService storage;
    const QByteArray damaged = "[{\"id\": \"0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F\", \"title\": ";
    writeAll(storage.indexPath(), damaged);
    QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.savePodcast(podcast(QStringLiteral("New"))));
    QVERIFY_THROWS_EXCEPTION(LibraryError, storage.deletePodcast(QUuid::createUuid()));
    QCOMPARE(readAll(storage.indexPath()), damaged);
    QCOMPARE(QDir(m_folder).entryList(QDir::Files), QStringList{QStringLiteral("podcasts.json")});

    QVERIFY(QFile::remove(storage.indexPath()));
    const Podcast kept = storage.savePodcast(podcast(QStringLiteral("Kept")));
    const QByteArray before = readAll(storage.indexPath());
    // A file-size limit makes the write of a large index fail halfway, even for root.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit small = old;
    small.rlim_cur = 200 * 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
    Podcast large = podcast(QStringLiteral("Large"));
    large.sourceText = QString(300 * 1024, u'x');
    bool failed = false;
    try {
        (void)storage.savePodcast(large);
    } catch (const LibraryError &) {
        failed = true;
    }
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &old), 0);
    QVERIFY(failed);
    QCOMPARE(readAll(storage.indexPath()), before);
    QCOMPARE(storage.loadAllPodcasts(), QList<Podcast>{kept});
    QCOMPARE(QDir(m_folder).entryList(QDir::Files).size(), 2);
}

QTEST_GUILESS_MAIN(PodcastStorageServiceTest)
#include "tst_PodcastStorageService.moc"
