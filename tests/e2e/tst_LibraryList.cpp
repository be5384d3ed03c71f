// The library as the command line lists it: the real executable reads the index files the library
// services wrote into the test's data folder.
#include "AppProcess.h"
#include "TestEnvironment.h"
#include "library/Podcast.h"
#include "library/PodcastStorageService.h"
#include "library/SavedAudio.h"
#include "library/SavedAudioStorageService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

using namespace parlino;

class LibraryListTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listsSavedAudioAndPodcastsNewestFirst();

private:
    struct Run {
        int exitCode = -1;
        QString out;
    };
    [[nodiscard]] static Run list(const QStringList &arguments);

    test::TestEnvironment m_env;
};

LibraryListTest::Run LibraryListTest::list(const QStringList &arguments)
{
    QProcess process;
    process.start(test::AppProcess::executable(), QStringList{QStringLiteral("library")} + arguments);
    if (!process.waitForFinished(30000))
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput())};
}

void LibraryListTest::listsSavedAudioAndPodcastsNewestFirst()
{
    Run empty = list({QStringLiteral("list")});
    QCOMPARE(empty.exitCode, 0);
    QCOMPARE(empty.out, QStringLiteral("Saved audio (0)\nPodcasts (0)\n"));
    QCOMPARE(list({QStringLiteral("show")}).exitCode, 2);
    QCOMPARE(list({QStringLiteral("list"), QStringLiteral("--xml")}).exitCode, 2);

    QTemporaryDir dir;
    const QString mp3 = dir.filePath(QStringLiteral("speech.mp3"));
    QVERIFY(test::makeSpeechMp3(QStringLiteral("Tides follow the moon."), mp3));
    SavedAudioStorageService saved;
    const QDateTime start(QDate(2026, 3, 1), QTime(9, 0), Qt::UTC);
    for (int i = 0; i < 2; ++i) {
        SavedAudio item;
        item.id = QUuid::createUuid();
        item.title = i == 0 ? QStringLiteral("Older reading") : QStringLiteral("Newer reading");
        item.audioURL = QUrl::fromLocalFile(mp3);
        item.sourceText = QStringLiteral("Tides follow the moon.");
        item.createdDate = start.addDays(i);
        item.duration = 65;
        (void)saved.save(item);
    }
    PodcastStorageService podcasts;
    Podcast podcast;
    podcast.id = QUuid::createUuid();
    podcast.title = QStringLiteral("Tides Explained");
    podcast.generationDate = start;
    podcast.duration = 125;
    podcast.audioURL = QUrl::fromLocalFile(mp3);
    podcast.podcastType = QStringLiteral("Deep Dive");
    (void)podcasts.savePodcast(podcast);

    const Run text = list({QStringLiteral("list")});
    QCOMPARE(text.exitCode, 0);
    const QStringList lines = text.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines[0], QStringLiteral("Saved audio (2)"));
    QVERIFY2(lines[1].contains(QStringLiteral("1:05  Newer reading  ") + saved.folder()), qPrintable(lines[1]));
    QVERIFY2(lines[2].contains(QStringLiteral("Older reading")), qPrintable(lines[2]));
    QCOMPARE(lines[3], QStringLiteral("Podcasts (1)"));
    QVERIFY2(lines[4].contains(QStringLiteral("2:05  Tides Explained [Deep Dive]  ") + podcasts.folder()),
             qPrintable(lines[4]));

    const Run json = list({QStringLiteral("list"), QStringLiteral("--json")});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject root = QJsonDocument::fromJson(json.out.toUtf8()).object();
    const QJsonArray savedItems = root.value(u"savedAudio").toArray();
    QCOMPARE(savedItems.size(), 2);
    QCOMPARE(SavedAudio::fromJson(savedItems[0].toObject()).title, QStringLiteral("Newer reading"));
    const QJsonArray podcastItems = root.value(u"podcasts").toArray();
    QCOMPARE(podcastItems.size(), 1);
    QCOMPARE(Podcast::fromJson(podcastItems[0].toObject()).podcastType, QStringLiteral("Deep Dive"));
}

QTEST_GUILESS_MAIN(LibraryListTest)
#include "tst_LibraryList.moc"
