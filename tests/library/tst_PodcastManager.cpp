#include "AwaitTask.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

class PodcastManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void listsNewestFirstWhileTheIndexKeepsInsertionOrder();
    void aDamagedIndexIsReportedAndKept();

private:
    [[nodiscard]] Podcast podcast(const QString &title, int day) const;

    TestEnvironment m_env;
    QString m_mp3;
    QList<Podcast> m_played;
};

void PodcastManagerTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/episode.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Welcome back."), m_mp3));
}

void PodcastManagerTest::init()
{
    QDir(PodcastStorageService::defaultFolder()).removeRecursively();
    m_played.clear();
}

Podcast PodcastManagerTest::podcast(const QString &title, int day) const
{
    Podcast result;
    result.id = QUuid::createUuid();
    result.title = title;
    result.generationDate = QDateTime(QDate(2025, 5, day), QTime(12, 0), Qt::UTC);
    result.audioURL = QUrl::fromLocalFile(m_mp3);
    result.sourceText = QStringLiteral("Source of ") + title;
    result.podcastType = QStringLiteral("Educational");
    return result;
}

void PodcastManagerTest::listsNewestFirstWhileTheIndexKeepsInsertionOrder()
{
    PodcastStorageService storage;
    LogCapture log;
    PodcastManager manager(storage, [this](const Podcast &played) { m_played.append(played); });
    QVERIFY(manager.savedPodcasts().isEmpty());
    QVERIFY(log.contains(QStringLiteral("✅ PodcastManager: Loaded 0 podcasts")));

    const auto titles = [](const QList<Podcast> &podcasts) {
        QStringList result;
        for (const Podcast &listed : podcasts)
            result.append(listed.title);
        return result;
    };
    for (const auto &[title, day] : {std::pair{u"Middle"_qs, 2}, {u"Newest"_qs, 3}, {u"Oldest"_qs, 1}})
        QVERIFY(awaitTask(manager.save(podcast(title, day))).value);
    QCOMPARE(titles(manager.savedPodcasts()), (QStringList{u"Newest"_qs, u"Middle"_qs, u"Oldest"_qs}));
    QCOMPARE(titles(storage.loadAllPodcasts()), (QStringList{u"Middle"_qs, u"Newest"_qs, u"Oldest"_qs}));
    QVERIFY(log.containsInOrder({QStringLiteral("📝 PodcastManager: Saving podcast"),
                                 QStringLiteral("💾 Saving podcast: Middle"),
                                 QStringLiteral("✅ PodcastManager: Podcast saved and added to list")}));

    PodcastManager reloaded(storage, [](const Podcast &) {});
    QCOMPARE(reloaded.savedPodcasts(), manager.savedPodcasts());

    const Podcast middle = manager.savedPodcasts()[1];
    manager.playPodcast(middle);
    QCOMPARE(m_played, QList<Podcast>{middle});
    QVERIFY(log.contains(QStringLiteral("▶️ PodcastManager: Playing podcast: Middle")));

    QVERIFY(awaitTask(manager.deletePodcast(middle.id)).value);
    QCOMPARE(titles(manager.savedPodcasts()), (QStringList{u"Newest"_qs, u"Oldest"_qs}));
    QVERIFY(!QFile::exists(middle.audioURL.toLocalFile()));
}

void PodcastManagerTest::aDamagedIndexIsReportedAndKept()
{
    PodcastStorageService storage;
    QDir().mkpath(storage.folder());
    const QByteArray damaged = "{\"not\": \"a list\"}";
    {
        QFile file(storage.indexPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(damaged);
    }
    LogCapture log;
    PodcastManager manager(storage, [this](const Podcast &played) { m_played.append(played); });
    QVERIFY(manager.savedPodcasts().isEmpty());
    QCOMPARE(log.lines().filter(QStringLiteral("❌ PodcastManager: Failed to load podcasts: ")).size(), 1);

    QVERIFY(awaitTask(manager.save(podcast(QStringLiteral("New"), 9))).error);
    QVERIFY(manager.savedPodcasts().isEmpty());
    QFile file(storage.indexPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), damaged);
}

QTEST_GUILESS_MAIN(PodcastManagerTest)
#include "tst_PodcastManager.moc"
