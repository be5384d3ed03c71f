#include "AwaitTask.h"
#include "LogCapture.h"
#include "TestEnvironment.h"
#include "backend/ModelSettings.h"
#include "core/Defaults.h"
#include "core/Paths.h"
#include "core/SettingsKeys.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "usage/UsageTracker.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <cstdio>

using namespace parlino;
using namespace parlino::test;

namespace {

constexpr QFileDevice::Permissions ownerOnlyFolder =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
constexpr QFileDevice::Permissions ownerOnlyFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

// Owner, group and other bits, without Qt's "this user" copies.
QFileDevice::Permissions modeOf(const QString &path)
{
    return QFileInfo(path).permissions() & QFileDevice::Permissions(0x7077);
}

// Stands for the app and the command line at work: stores speech in the cache and saves and removes
// library items as fast as it can, until it is killed. Prints "writing" once the first round is done.
int writeUntilKilled(const QString &mp3)
{
    TTSCacheService cache(TTSCacheService::defaultDirectory(), Clock::system(), 6 * QFileInfo(mp3).size());
    SavedAudioStorageService savedAudio;
    PodcastStorageService podcasts;
    for (int round = 0;; ++round) {
        const QString text = QStringLiteral("Reading %1").arg(round % 11);
        QCoro::Task<> storing = cache.cacheAudio(mp3, text, QStringLiteral("alloy"), 1.0);
        (void)awaitTask(std::move(storing));
        (void)awaitTask(
            cache.getCachedAudio(QStringLiteral("Reading %1").arg(round % 7), QStringLiteral("alloy"), 1.0));

        const SavedAudio item{QUuid::createUuid(),
                              text,
                              QUrl::fromLocalFile(mp3),
                              text,
                              QDateTime::currentDateTimeUtc(),
                              std::nullopt,
                              1.0,
                              2};
        savedAudio.save(item);
        const Podcast podcast{QUuid::createUuid(),
                              text,
                              QStringLiteral("S."),
                              QDateTime::currentDateTimeUtc(),
                              1.0,
                              QUrl::fromLocalFile(mp3),
                              text,
                              QStringLiteral("Quick Summary"),
                              2};
        podcasts.savePodcast(podcast);
        if (const QList<SavedAudio> items = savedAudio.loadAll(); items.size() > 4)
            savedAudio.remove(items.first().id);
        if (const QList<Podcast> stored = podcasts.loadAllPodcasts(); stored.size() > 4)
            podcasts.deletePodcast(stored.first().id);
        if (round == 0) {
            std::fputs("writing\n", stdout);
            std::fflush(stdout);
        }
    }
}

} // namespace

class TestPrivateStorage final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    QString m_mp3;

    // The folder holds exactly its index files and these audio files, each a whole copy of the speech.
    void expectOnly(const QString &folder, QStringList names, const QStringList &audioFiles)
    {
        for (const QString &file : audioFiles) {
            QCOMPARE(QFileInfo(file).size(), QFileInfo(m_mp3).size());
            names.append(QFileInfo(file).fileName());
        }
        names.sort();
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System), names);
    }

    // What a start finds: indexes that read, every entry's file there whole, no file that nothing names.
    void checkAsAStartFindsIt()
    {
        LogCapture log;
        QStringList files;
        {
            TTSCacheService cache;
            const auto entries = awaitTask(cache.entries());
            QVERIFY(entries.value);
            for (const TTSCacheEntry &entry : *entries.value)
                files.append(entry.audioFilePath);
        }
        expectOnly(TTSCacheService::defaultDirectory(), {u"cache_metadata.json"_qs, u"cache_statistics.json"_qs},
                   files);
        QVERIFY(log.lines().filter(QStringLiteral("Error loading cache metadata")).isEmpty());

        SavedAudioStorageService savedAudioStorage;
        SavedAudioManager savedAudio(savedAudioStorage, {});
        QVERIFY2(savedAudio.loadError().isEmpty(), qPrintable(savedAudio.loadError()));
        files.clear();
        for (const SavedAudio &item : savedAudio.savedAudioList())
            files.append(item.audioURL.toLocalFile());
        expectOnly(savedAudioStorage.folder(), {u"saved_audio.json"_qs}, files);

        PodcastStorageService podcastStorage;
        PodcastManager podcasts(podcastStorage, {});
        QVERIFY2(podcasts.loadError().isEmpty(), qPrintable(podcasts.loadError()));
        files.clear();
        for (const Podcast &podcast : podcasts.savedPodcasts())
            files.append(podcast.audioURL.toLocalFile());
        expectOnly(podcastStorage.folder(), {u"podcasts.json"_qs}, files);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_env.root() + QStringLiteral("/runtime")));
        m_mp3 = m_env.root() + QStringLiteral("/speech.mp3");
        QVERIFY(makeSpeechMp3(QStringLiteral("Kept safe through a crash."), m_mp3));
    }

    void aWriterKilledAtAnyMomentLeavesNothingBroken()
    {
        for (int kill = 0; kill < 20; ++kill) {
            QProcess writer;
            writer.setProgram(QCoreApplication::applicationFilePath());
            writer.setArguments({QStringLiteral("--write-until-killed"), m_mp3});
            writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            writer.start();
            QVERIFY(writer.waitForReadyRead(20000));
            QCOMPARE(writer.readLine(), QByteArray("writing\n"));
            // Somewhere in a round: copying, renaming, writing an index, deleting.
            QTest::qWait(static_cast<int>(QRandomGenerator::global()->bounded(5, 150)));
            writer.kill(); // SIGKILL: no clean-up of any kind
            QVERIFY(writer.waitForFinished(5000));
            checkAsAStartFindsIt();
            if (QTest::currentTestFailed())
                return;
        }
    }

    void aSessionLeavesOnlyPrivateFilesAndNoTemporaryAudio()
    {
        // Earlier versions left the folders open to everyone; a start closes them.
        const QString cacheFolder = TTSCacheService::defaultDirectory();
        QFile::setPermissions(cacheFolder, QFileDevice::Permissions(0x7755));
        QFile::setPermissions(cacheFolder + QStringLiteral("/cache_metadata.json"), QFileDevice::Permissions(0x6644));
        QFile::remove(m_env.defaultsFile());

        Defaults defaults(m_env.defaultsFile());
        defaults.set(SettingsKeys::offlineVoice, QStringLiteral("en-us"));
        defaults.synchronize();
        ModelSettings models(defaults);
        TTSCacheService cache;
        SpeechSynthesizer speech(cache, models, [] { return false; });
        speech.addProvider(std::make_unique<OfflineSpeechProvider>(defaults));
        UsageTracker tracker(defaults);
        MpvAudioEngine engine(QStringLiteral("null"));
        AudioPlayerManager player(engine, tracker, defaults, Clock::system());
        SavedAudioStorageService savedAudioStorage;
        SavedAudioManager savedAudio(savedAudioStorage,
                                     [&](const QString &path) { player.play(QUrl::fromLocalFile(path)); });

        const auto reading =
            awaitTask(speech.generateSpeech(QStringLiteral("A private reading."), TTSVoice::alloy, 1.0));
        QVERIFY2(reading.value, qPrintable(reading.error.value_or(QString())));
        const QString temporary = *reading.value;
        QVERIFY2(temporary.startsWith(m_env.root() + QStringLiteral("/runtime/parlino/")), qPrintable(temporary));
        QCOMPARE(modeOf(temporary), ownerOnlyFile);
        QSignalSpy ready(&player, &AudioPlayerManager::itemReady);
        player.playTemporaryFile(temporary);
        QVERIFY(ready.wait(5000));
        SavedAudio item{QUuid::createUuid(),
                        QStringLiteral("Private"),
                        QUrl::fromLocalFile(temporary),
                        QStringLiteral("A private reading."),
                        QDateTime::currentDateTimeUtc(),
                        std::nullopt,
                        1.0,
                        3};
        const auto saved = awaitTask(savedAudio.save(item));
        QVERIFY(saved.value);

        // The reading ends as the saved copy replaces it: its temporary file goes.
        QVERIFY(savedAudio.play(*saved.value));
        QVERIFY(ready.wait(5000));
        QVERIFY(!QFile::exists(temporary));
        QCOMPARE(QDir(Paths::temporary()).entryList(QDir::Files), QStringList());

        // A start removes what processes that are gone left, and keeps what a running one still uses.
        const QString running = Paths::newTemporaryFile(QStringLiteral(".mp3"));
        const QString gone = Paths::temporary() + QStringLiteral("/parlino-2147483647-LEFT.mp3");
        const QString unnamed = Paths::temporary() + QStringLiteral("/stray.mp3");
        for (const QString &file : {running, gone, unnamed})
            QVERIFY(QFile::copy(m_mp3, file));
        Paths::removeTemporaryLeftovers();
        QCOMPARE(QDir(Paths::temporary()).entryList(QDir::Files), QStringList{QFileInfo(running).fileName()});

        const auto stats = awaitTask(cache.statistics());
        QVERIFY(stats.value && stats.value->entryCount >= 1);
        const QFileInfo settingsFolder(QFileInfo(m_env.defaultsFile()).absolutePath());
        for (const QString &folder :
             {settingsFolder.absoluteFilePath(), cacheFolder, savedAudioStorage.folder(), Paths::temporary()})
            QVERIFY2(modeOf(folder) == ownerOnlyFolder, qPrintable(folder));
        QStringList files{m_env.defaultsFile()};
        for (const QString &folder : {cacheFolder, savedAudioStorage.folder()}) {
            for (const QFileInfo &file : QDir(folder).entryInfoList(QDir::Files))
                files.append(file.absoluteFilePath());
        }
        QVERIFY(files.size() >= 5);
        for (const QString &file : std::as_const(files))
            QVERIFY2(modeOf(file) == ownerOnlyFile, qPrintable(file));
    }
};

int main(int argc, char **argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--write-until-killed") == 0) {
        QCoreApplication app(argc, argv);
        return writeUntilKilled(QString::fromLocal8Bit(argv[2]));
    }
    QCoreApplication app(argc, argv);
    TestPrivateStorage test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_PrivateStorage.moc"
