#include "AwaitTask.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>

using namespace parlino;
using namespace parlino::test;

class SavedAudioManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void listsNewestFirstAndPlaysOnlyFilesThatExist();
    void aDamagedIndexIsReportedAndKept();

private:
    [[nodiscard]] SavedAudio item(const QString &title, int day) const;

    TestEnvironment m_env;
    QString m_mp3;
    QStringList m_played;
};

void SavedAudioManagerTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/speech.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Saved for later."), m_mp3));
}

void SavedAudioManagerTest::init()
{
    QDir(SavedAudioStorageService::defaultFolder()).removeRecursively();
    m_played.clear();
}

SavedAudio SavedAudioManagerTest::item(const QString &title, int day) const
{
    SavedAudio audio;
    audio.id = QUuid::createUuid();
    audio.title = title;
    audio.audioURL = QUrl::fromLocalFile(m_mp3);
    audio.sourceText = QStringLiteral("Saved for later.");
    audio.createdDate = QDateTime(QDate(2025, 3, day), QTime(9, 0), Qt::UTC);
    audio.wordCount = 3;
    return audio;
}

void SavedAudioManagerTest::listsNewestFirstAndPlaysOnlyFilesThatExist()
{
    SavedAudioStorageService storage;
    (void)storage.save(item(QStringLiteral("Middle"), 2));
    (void)storage.save(item(QStringLiteral("Oldest"), 1));
    (void)storage.save(item(QStringLiteral("Newest"), 3));

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
    SavedAudio second = item(QStringLiteral("Second"), 2);
    second.createdDate = second.createdDate.addSecs(3600);
    const auto saving = awaitTask(manager.save(second));
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
    QCOMPARE(manager.savedAudioList().size(), 4);

    QVERIFY(awaitTask(manager.remove(oldest.id)).value);
    QCOMPARE(titles(), (QStringList{u"Newest"_qs, u"Renamed"_qs, u"Middle"_qs}));
    SavedAudioManager reloaded(storage, [](const QString &) {});
    QCOMPARE(reloaded.savedAudioList(), manager.savedAudioList());
}

void SavedAudioManagerTest::aDamagedIndexIsReportedAndKept()
{
    SavedAudioStorageService storage;
    QDir().mkpath(storage.folder());
    const QByteArray damaged = "[{\"title\": \"half";
    {
        QFile file(storage.indexPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(damaged);
    }
    LogCapture log;
    SavedAudioManager manager(storage, [this](const QString &path) { m_played.append(path); });
    QVERIFY(manager.savedAudioList().isEmpty());
    QCOMPARE(log.lines().filter(QStringLiteral("❌ Error loading saved audio: ")).size(), 1);

    const auto saving = awaitTask(manager.save(item(QStringLiteral("Lost?"), 4)));
    QVERIFY(saving.error);
    QVERIFY(manager.savedAudioList().isEmpty());
    QFile file(storage.indexPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), damaged);
}

QTEST_GUILESS_MAIN(SavedAudioManagerTest)
#include "tst_SavedAudioManager.moc"
