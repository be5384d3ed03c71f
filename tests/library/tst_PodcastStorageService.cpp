#include "FileBytes.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/LibraryError.h"
#include "library/PodcastStorageService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

class PodcastStorageServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void firstRunCreatesTheFolderAndTheIndexKeepsItsForm();
    void deletingRemovesRecordAndFileAndIgnoresUnknownIds();
    void aFailedWriteOrADamagedIndexLeavesTheIndexAsItWas();

private:
    [[nodiscard]] Podcast podcast(const QString &title) const;

    TestEnvironment m_env;
    QString m_mp3;
};

void PodcastStorageServiceTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/episode.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Welcome to the show."), m_mp3));
}

Podcast PodcastStorageServiceTest::podcast(const QString &title) const
{
    return {QUuid::createUuid(),
            title,
            QStringLiteral("Two sentences. About the show."),
            QDateTime(QDate(2025, 1, 31), QTime(14, 5), Qt::UTC),
            1.75,
            QUrl::fromLocalFile(m_mp3),
            QStringLiteral("The source."),
            QStringLiteral("Deep Dive"),
            4};
}

void PodcastStorageServiceTest::firstRunCreatesTheFolderAndTheIndexKeepsItsForm()
{
    PodcastStorageService storage;
    QCOMPARE(storage.folder(), m_env.dataHome() + QStringLiteral("/Parlino/Podcasts"));
    LogCapture log;
    QVERIFY(storage.loadAllPodcasts().isEmpty());
    QVERIFY(log.contains(QStringLiteral("ℹ️ No podcasts file found, returning empty array")));
    QVERIFY(!QDir(storage.folder()).exists());

    const Podcast first = storage.savePodcast(podcast(QStringLiteral("First")));
    const Podcast second = storage.savePodcast(podcast(QStringLiteral("Second")));
    QVERIFY(log.containsInOrder({u"💾 Saving podcast: First"_qs, u"✅ Podcast saved successfully"_qs}));
    const QString id = first.id.toString(QUuid::WithoutBraces).toUpper();
    QCOMPARE(first.audioURL, QUrl::fromLocalFile(storage.folder() + u'/' + id + QStringLiteral(".mp3")));
    QCOMPARE(readBytes(first.audioURL.toLocalFile()), readBytes(m_mp3));

    const QByteArray index = readBytes(storage.indexPath());
    QVERIFY2(index.contains("\n        \"title\": \"First\""), index.constData());
    const QJsonObject written = QJsonDocument::fromJson(index).array()[0].toObject();
    QCOMPARE(written.value(u"generationDate").toString(), QStringLiteral("2025-01-31T14:05:00Z"));
    QCOMPARE(written.value(u"podcastType").toString(), QStringLiteral("Deep Dive"));
    QCOMPARE(written.value(u"id").toString(), id);
    QCOMPARE(storage.loadAllPodcasts(), (QList<Podcast>{first, second}));
    QVERIFY(log.contains(QStringLiteral("✅ Loaded 2 podcasts from storage")));

    const QByteArray handWritten = R"([{"id": "0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F", "title": "Old",
        "summary": "S.", "generationDate": "2024-12-01T08:30:15.250Z", "duration": 312.5,
        "audioURL": "file:///tmp/Old%20One.mp3", "sourceText": "T", "podcastType": "Quick Summary", "wordCount": 700}])";
    QVERIFY(writeBytes(storage.indexPath(), handWritten));
    const QList<Podcast> loaded = storage.loadAllPodcasts();
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded[0].generationDate, QDateTime(QDate(2024, 12, 1), QTime(8, 30, 15, 250), Qt::UTC));
    // The file is the library's own "<ID>.mp3", whatever the index names.
    QCOMPARE(loaded[0].audioURL.toLocalFile(), storage.audioPathFor(loaded[0].id));
    QVERIFY(loaded[0].audioURL.toLocalFile().endsWith(u"/0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F.mp3"));
    QCOMPARE(loaded[0].podcastType, QStringLiteral("Quick Summary"));
    QCOMPARE(loaded[0].wordCount, 700);
}

void PodcastStorageServiceTest::deletingRemovesRecordAndFileAndIgnoresUnknownIds()
{
    PodcastStorageService storage(m_env.root() + QStringLiteral("/delete"));
    const Podcast first = storage.savePodcast(podcast(QStringLiteral("First")));
    const Podcast second = storage.savePodcast(podcast(QStringLiteral("Second")));
    const QByteArray before = readBytes(storage.indexPath());

    LogCapture log;
    const QUuid unknown = QUuid::createUuid();
    storage.deletePodcast(unknown);
    QVERIFY(
        log.contains(QStringLiteral("⚠️ Podcast not found: ") + unknown.toString(QUuid::WithoutBraces).toUpper()));
    QCOMPARE(readBytes(storage.indexPath()), before);

    storage.deletePodcast(second.id);
    QVERIFY(!QFile::exists(second.audioURL.toLocalFile()));
    QVERIFY(QFile::exists(first.audioURL.toLocalFile()));
    // A podcast whose MP3 was removed by hand still loses its record.
    QVERIFY(QFile::remove(first.audioURL.toLocalFile()));
    storage.deletePodcast(first.id);
    QVERIFY(storage.loadAllPodcasts().isEmpty());
}

void PodcastStorageServiceTest::aFailedWriteOrADamagedIndexLeavesTheIndexAsItWas()
{
    PodcastStorageService storage(m_env.root() + QStringLiteral("/failures"));
    const Podcast kept = storage.savePodcast(podcast(QStringLiteral("Kept")));
    const QByteArray before = readBytes(storage.indexPath());
    Podcast large = podcast(QStringLiteral("Large"));
    large.sourceText = QString(300 * 1024, u'x');
    {
        FileSizeLimit limit(200 * 1024);
        QVERIFY(limit.active());
        QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.savePodcast(large));
    }
    QCOMPARE(readBytes(storage.indexPath()), before);
    QCOMPARE(QDir(storage.folder()).entryList(QDir::Files).size(), 2);

    const QByteArray damaged = R"([{"id": "0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F", "title": )";
    QVERIFY(writeBytes(storage.indexPath(), damaged));
    QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.savePodcast(podcast(QStringLiteral("New"))));
    QVERIFY_THROWS_EXCEPTION(LibraryError, storage.deletePodcast(kept.id));
    QCOMPARE(readBytes(storage.indexPath()), damaged);
    QCOMPARE(QDir(storage.folder()).entryList(QDir::Files).size(), 2);
}

QTEST_GUILESS_MAIN(PodcastStorageServiceTest)
#include "tst_PodcastStorageService.moc"
