#include "AwaitTask.h"
#include "FileBytes.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"

#include <QSignalSpy>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

class SavedAudioManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void listsNewestFirstAndPlaysOnlyFilesThatExist();
    void aDamagedIndexIsReportedAndKept();

private:
    [[nodiscard]] SavedAudio item(const QString &title, int hour) const
    {
        return {QUuid::createUuid(),
                title,
                QUrl::fromLocalFile(m_mp3),
                QStringLiteral("Saved for later."),
                QDateTime(QDate(2025, 3, 1), QTime(hour, 0), Qt::UTC),
                std::nullopt,
                1.5,
                3};
    }

    TestEnvironment m_env;
    QString m_mp3;
    QStringList m_played;
};

void SavedAudioManagerTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/speech.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Saved for later."), m_mp3));
}

void SavedAudioManagerTest::listsNewestFirstAndPlaysOnlyFilesThatExist()
{
    SavedAudioStorageService storage(m_env.root() + QStringLiteral("/list"));
    for (const auto &[title, hour] : {std::pair{u"Middle"_qs, 10}, {u"Oldest"_qs, 9}, {u"Newest"_qs, 12}})
        (void)storage.save(item(title, hour));

    LogCapture log;
    SavedAudioManager manager(storage, [this](const QString &path) { m_played.append(path); });
    const auto titles = [&] {
        QStringList result;
        for (const SavedAudio &audio : manager.savedAudioList())
            result.append(audio.title);
        return result;
    };
    QCOMPARE(titles(), (QStringList{u"Newest"_qs, u"Middle"_qs, u"Oldest"_qs}));
    QVERIFY(log.contains(QStringLiteral("✅ Loaded 3 saved audio items")));

    QSignalSpy saved(&manager, &SavedAudioManager::audioSaved);
    const auto saving = awaitTask(manager.save(item(QStringLiteral("Second"), 11)));
    QVERIFY(saving.value);
    QCOMPARE(saved.size(), 1);
    QCOMPARE(titles(), (QStringList{u"Newest"_qs, u"Second"_qs, u"Middle"_qs, u"Oldest"_qs}));
    SavedAudio renamed = *saving.value;
    renamed.title = QStringLiteral("Renamed");
    QVERIFY(awaitTask(manager.update(renamed)).value);
    QCOMPARE(titles(), (QStringList{u"Newest"_qs, u"Renamed"_qs, u"Middle"_qs, u"Oldest"_qs}));

    QVERIFY(manager.play(renamed));
    QCOMPARE(m_played, QStringList{renamed.audioURL.toLocalFile()});
    QVERIFY(log.contains(QStringLiteral("▶️ Playing saved audio: Renamed")));
    // An item whose MP3 was removed by hand stays listed but cannot be played.
    const SavedAudio oldest = manager.savedAudioList().last();
    QVERIFY(QFile::remove(oldest.audioURL.toLocalFile()));
    QVERIFY(!manager.play(oldest));
    QCOMPARE(m_played.size(), 1);
    QVERIFY(log.contains(QStringLiteral("❌ Audio file not found at: ") + oldest.audioURL.toLocalFile()));

    QVERIFY(awaitTask(manager.remove(oldest.id)).value);
    QCOMPARE(titles(), (QStringList{u"Newest"_qs, u"Renamed"_qs, u"Middle"_qs}));
    QCOMPARE(SavedAudioManager(storage, {}).savedAudioList(), manager.savedAudioList());
}

void SavedAudioManagerTest::aDamagedIndexIsReportedAndKept()
{
    SavedAudioStorageService storage(m_env.root() + QStringLiteral("/damaged"));
    const QByteArray damaged = "[{\"title\": \"half";
    QVERIFY(writeBytes(storage.indexPath(), damaged));
    LogCapture log;
    SavedAudioManager manager(storage, {});
    QVERIFY(manager.savedAudioList().isEmpty());
    QCOMPARE(log.lines().filter(QStringLiteral("❌ Error loading saved audio: ")).size(), 1);
    QCOMPARE(readBytes(storage.indexPath()), damaged);

    QVERIFY(awaitTask(manager.save(item(QStringLiteral("Lost?"), 8))).error);
    QVERIFY(manager.savedAudioList().isEmpty());
    QCOMPARE(readBytes(storage.indexPath()), damaged);
}

QTEST_GUILESS_MAIN(SavedAudioManagerTest)
#include "tst_SavedAudioManager.moc"
