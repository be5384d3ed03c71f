#include "AwaitTask.h"
#include "FileBytes.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"

#include <QTest>

using namespace parlino;
using namespace parlino::test;

class PodcastManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void listsNewestFirstWhileTheIndexKeepsInsertionOrder();
    void aDamagedIndexIsReportedAndKept();

private:
    [[nodiscard]] Podcast podcast(const QString &title, int day) const
    {
        return {QUuid::createUuid(),
                title,
                {},
                QDateTime(QDate(2025, 5, day), QTime(12, 0), Qt::UTC),
                1.0,
                QUrl::fromLocalFile(m_mp3),
                QStringLiteral("Source of ") + title,
                QStringLiteral("Educational"),
                3};
    }

    TestEnvironment m_env;
    QString m_mp3;
};

void PodcastManagerTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/episode.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Welcome back."), m_mp3));
}

void PodcastManagerTest::listsNewestFirstWhileTheIndexKeepsInsertionOrder()
{
    PodcastStorageService storage(m_env.root() + QStringLiteral("/list"));
    LogCapture log;
    QList<Podcast> played;
    PodcastManager manager(storage, [&](const Podcast &podcast) { played.append(podcast); });
    QVERIFY(log.contains(QStringLiteral("✅ PodcastManager: Loaded 0 podcasts")));

    const auto titles = [](const QList<Podcast> &podcasts) {
        QStringList result;
        for (const Podcast &listed : podcasts)
            result.append(listed.title);
        return result;
    };
    // Started together, as two flows would: neither save may lose the other.
    QCoro::Task<Podcast> first = manager.save(podcast(u"Middle"_qs, 2));
    QCoro::Task<Podcast> second = manager.save(podcast(u"Newest"_qs, 3));
    QVERIFY(awaitTask(std::move(first)).value && awaitTask(std::move(second)).value);
    QVERIFY(awaitTask(manager.save(podcast(u"Oldest"_qs, 1))).value);
    QCOMPARE(titles(manager.savedPodcasts()), (QStringList{u"Newest"_qs, u"Middle"_qs, u"Oldest"_qs}));
    QCOMPARE(titles(storage.loadAllPodcasts()), (QStringList{u"Middle"_qs, u"Newest"_qs, u"Oldest"_qs}));
    QVERIFY(log.containsInOrder({u"📝 PodcastManager: Saving podcast"_qs, u"💾 Saving podcast: Middle"_qs,
                                 u"✅ PodcastManager: Podcast saved and added to list"_qs}));
    QCOMPARE(PodcastManager(storage, {}).savedPodcasts(), manager.savedPodcasts());

    const Podcast middle = manager.savedPodcasts()[1];
    manager.playPodcast(middle);
    QCOMPARE(played, QList<Podcast>{middle});
    QVERIFY(log.contains(QStringLiteral("▶️ PodcastManager: Playing podcast: Middle")));

    QVERIFY(awaitTask(manager.deletePodcast(middle.id)).value);
    QCOMPARE(titles(manager.savedPodcasts()), (QStringList{u"Newest"_qs, u"Oldest"_qs}));
    QVERIFY(!QFile::exists(middle.audioURL.toLocalFile()));
}

void PodcastManagerTest::aDamagedIndexIsReportedAndKept()
{
    PodcastStorageService storage(m_env.root() + QStringLiteral("/damaged"));
    const QByteArray damaged = "{\"not\": \"a list\"}";
    QVERIFY(writeBytes(storage.indexPath(), damaged));
    LogCapture log;
    PodcastManager manager(storage, {});
    QVERIFY(manager.savedPodcasts().isEmpty());
    QCOMPARE(log.lines().filter(QStringLiteral("❌ PodcastManager: Failed to load podcasts: ")).size(), 1);
    QCOMPARE(readBytes(storage.indexPath()), damaged);

    QVERIFY(awaitTask(manager.save(podcast(QStringLiteral("New"), 9))).error);
    QVERIFY(manager.savedPodcasts().isEmpty());
    QCOMPARE(readBytes(storage.indexPath()), damaged);
}

QTEST_GUILESS_MAIN(PodcastManagerTest)
#include "tst_PodcastManager.moc"
