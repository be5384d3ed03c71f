#include "TestEnvironment.h"
#include "library/LibraryError.h"
#include "library/SavedAudioStorageService.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QTimeZone>

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

class SavedAudioStorageServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void readsAHandWrittenIndexAndWritesTheSameForm();
    void savingTwiceKeepsTwoCopiesAndUpdateAndRemoveChangeOnlyTheirItem();
    void aDamagedIndexIsNeverReplaced();
    void aFailedWriteLeavesTheIndexWhole();

private:
    [[nodiscard]] SavedAudio item(const QString &title) const;

    TestEnvironment m_env;
    QString m_mp3;
    QString m_folder;
};

void SavedAudioStorageServiceTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/speech.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Keep this for later."), m_mp3));
}

void SavedAudioStorageServiceTest::init()
{
    m_folder = SavedAudioStorageService::defaultFolder();
    QDir(m_folder).removeRecursively();
}

SavedAudio SavedAudioStorageServiceTest::item(const QString &title) const
{
    SavedAudio audio;
    audio.id = QUuid::createUuid();
    audio.title = title;
    audio.audioURL = QUrl::fromLocalFile(m_mp3);
    audio.sourceText = QStringLiteral("Keep this for later.");
    audio.createdDate = QDateTime(QDate(2025, 1, 31), QTime(14, 5, 30), Qt::UTC);
    audio.duration = 2.5;
    audio.wordCount = 4;
    return audio;
}

void SavedAudioStorageServiceTest::readsAHandWrittenIndexAndWritesTheSameForm()
{
    QCOMPARE(SavedAudioStorageService::defaultFolder(), m_env.dataHome() + QStringLiteral("/Parlino/SavedAudio"));
    SavedAudioStorageService storage;
    QVERIFY(storage.loadAll().isEmpty());

    // 760025130.5 s after 1 January 2001 is 2025-01-31 14:05:30.5 UTC.
    writeAll(storage.indexPath(),
             R"([{"id":"0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F","title":"Notes","audioURL":"file:///tmp/My%20Audio.mp3",)"
             R"("sourceText":"Hello there","createdDate":760025130.5,"duration":65.9,"wordCount":2,"notes":"mine"}])");
    const QList<SavedAudio> loaded = storage.loadAll();
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded[0].id, QUuid(QStringLiteral("{0e7c6f1a-1b2c-4d3e-8f40-5a6b7c8d9e0f}")));
    QCOMPARE(loaded[0].audioURL.toLocalFile(), QStringLiteral("/tmp/My Audio.mp3"));
    QCOMPARE(loaded[0].createdDate, QDateTime(QDate(2025, 1, 31), QTime(14, 5, 30, 500), Qt::UTC));
    QCOMPARE(loaded[0].notes, std::optional<QString>(QStringLiteral("mine")));
    QCOMPARE(loaded[0].formattedDuration(), QStringLiteral("1:05"));

    const SavedAudio stored = storage.save(item(QStringLiteral("Second")));
    const QByteArray index = readAll(storage.indexPath());
    QVERIFY2(!index.contains('\n') && !index.contains(": "), index.constData());
    const QJsonArray array = QJsonDocument::fromJson(index).array();
    QCOMPARE(array.size(), 2);
    const QJsonObject written = array[1].toObject();
    QCOMPARE(written.value(u"createdDate").toDouble(), 760025130.0);
    QCOMPARE(written.value(u"id").toString(), stored.id.toString(QUuid::WithoutBraces).toUpper());
    QVERIFY(!written.contains(u"notes"));
    QCOMPARE(
        written.value(u"audioURL").toString(),
        QUrl::fromLocalFile(m_folder + u'/' + written.value(u"id").toString() + QStringLiteral(".mp3")).toString());
    QCOMPARE(storage.loadAll(), (QList<SavedAudio>{loaded[0], stored}));
}

void SavedAudioStorageServiceTest::savingTwiceKeepsTwoCopiesAndUpdateAndRemoveChangeOnlyTheirItem()
{
    SavedAudioStorageService storage;
    const SavedAudio first = storage.save(item(QStringLiteral("First")));
    const SavedAudio second = storage.save(item(QStringLiteral("First")));
    QVERIFY(first.id != second.id);
    QVERIFY(first.audioURL != second.audioURL);
    QCOMPARE(readAll(first.audioURL.toLocalFile()), readAll(m_mp3));
    QCOMPARE(readAll(second.audioURL.toLocalFile()), readAll(m_mp3));

    SavedAudio renamed = second;
    renamed.title = QStringLiteral("Renamed");
    renamed.notes = QStringLiteral("a note");
    storage.update(renamed);
    QCOMPARE(storage.loadAll(), (QList<SavedAudio>{first, renamed}));

    const QByteArray before = readAll(storage.indexPath());
    storage.remove(QUuid::createUuid());
    QCOMPARE(readAll(storage.indexPath()), before);

    storage.remove(first.id);
    QCOMPARE(storage.loadAll(), QList<SavedAudio>{renamed});
    QVERIFY(!QFile::exists(first.audioURL.toLocalFile()));
    QVERIFY(QFile::exists(renamed.audioURL.toLocalFile()));
}

void SavedAudioStorageServiceTest::aDamagedIndexIsNeverReplaced()
{
    const QByteArray damaged = R"([{"id":"0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F","title":"Cut off)";
    SavedAudioStorageService storage;
    writeAll(storage.indexPath(), damaged);
    QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.loadAll());

    const SavedAudio audio = item(QStringLiteral("New"));
    try {
        (void)storage.save(audio);
        QFAIL("a save over a damaged index succeeded");
    } catch (const LibraryError &error) {
        QVERIFY2(error.description().contains(storage.indexPath()), qPrintable(error.description()));
    }
    QVERIFY_THROWS_EXCEPTION(LibraryError, storage.remove(audio.id));
    QCOMPARE(readAll(storage.indexPath()), damaged);
    QCOMPARE(QDir(m_folder).entryList(QDir::Files), QStringList{QStringLiteral("saved_audio.json")});

    // An entry of the wrong shape is as damaged as broken JSON.
    writeAll(storage.indexPath(), R"([{"id":"not a uuid"}])");
    QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.save(audio));
    QCOMPARE(readAll(storage.indexPath()), QByteArray(R"([{"id":"not a uuid"}])"));
}

void SavedAudioStorageServiceTest::aFailedWriteLeavesTheIndexWhole()
{
    SavedAudioStorageService storage;
    const SavedAudio kept = storage.save(item(QStringLiteral("Kept")));
    const QByteArray before = readAll(storage.indexPath());

    // A file-size limit makes the write of a large index fail halfway, even for root.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &old), 0);
    rlimit small = old;
    small.rlim_cur = 200 * 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
    SavedAudio large = item(QStringLiteral("Large"));
    large.sourceText = QString(300 * 1024, u'x');
    bool failed = false;
    try {
        (void)storage.save(large);
    } catch (const LibraryError &) {
        failed = true;
    }
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &old), 0);

    QVERIFY(failed);
    QCOMPARE(readAll(storage.indexPath()), before);
    QCOMPARE(storage.loadAll(), QList<SavedAudio>{kept});
    QCOMPARE(QDir(m_folder).entryList(QDir::Files).size(), 2); // the index and the kept item's MP3
}

QTEST_GUILESS_MAIN(SavedAudioStorageServiceTest)
#include "tst_SavedAudioStorageService.moc"
