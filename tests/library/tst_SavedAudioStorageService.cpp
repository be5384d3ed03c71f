#include "FileBytes.h"
#include "TestEnvironment.h"
#include "library/LibraryError.h"
#include "library/SavedAudioStorageService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

class SavedAudioStorageServiceTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void readsAHandWrittenIndexAndWritesTheSameForm();
    void savingTwiceKeepsTwoCopiesAndUpdateAndRemoveChangeOnlyTheirItem();
    void aFailedWriteOrADamagedIndexLeavesTheIndexAsItWas();

private:
    [[nodiscard]] SavedAudio item(const QString &title) const;

    TestEnvironment m_env;
    QString m_mp3;
};

void SavedAudioStorageServiceTest::initTestCase()
{
    m_mp3 = m_env.root() + QStringLiteral("/speech.mp3");
    QVERIFY(makeSpeechMp3(QStringLiteral("Keep this for later."), m_mp3));
}

SavedAudio SavedAudioStorageServiceTest::item(const QString &title) const
{
    return {QUuid::createUuid(),
            title,
            QUrl::fromLocalFile(m_mp3),
            QStringLiteral("Keep this for later."),
            QDateTime(QDate(2025, 1, 31), QTime(14, 5, 30), Qt::UTC),
            std::nullopt,
            2.5,
            4};
}

void SavedAudioStorageServiceTest::readsAHandWrittenIndexAndWritesTheSameForm()
{
    SavedAudioStorageService storage(m_env.root() + QStringLiteral("/form"));
    QCOMPARE(SavedAudioStorageService::defaultFolder(), m_env.dataHome() + QStringLiteral("/Parlino/SavedAudio"));
    QVERIFY(storage.loadAll().isEmpty());

    // 760025130.5 s after 1 January 2001 is 2025-01-31 14:05:30.5 UTC.
    const QByteArray handWritten = R"([{"id":"0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F","title":"Notes",)"
                                   R"("audioURL":"file:///tmp/My%20Audio.mp3","sourceText":"Hello there",)"
                                   R"("createdDate":760025130.5,"duration":65.9,"wordCount":2,"notes":"mine"}])";
    QVERIFY(writeBytes(storage.indexPath(), handWritten));
    const QList<SavedAudio> loaded = storage.loadAll();
    QCOMPARE(loaded.size(), 1);
    QCOMPARE(loaded[0].id, QUuid(QStringLiteral("{0e7c6f1a-1b2c-4d3e-8f40-5a6b7c8d9e0f}")));
    // The file is the library's own "<ID>.mp3", whatever the index names.
    QCOMPARE(loaded[0].audioURL.toLocalFile(),
             storage.folder() + QStringLiteral("/0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F.mp3"));
    QCOMPARE(loaded[0].createdDate, QDateTime(QDate(2025, 1, 31), QTime(14, 5, 30, 500), Qt::UTC));
    QCOMPARE(loaded[0].notes, std::optional<QString>(QStringLiteral("mine")));
    QCOMPARE(loaded[0].formattedDuration(), QStringLiteral("1:05"));

    const SavedAudio stored = storage.save(item(QStringLiteral("Second")));
    const QByteArray index = readBytes(storage.indexPath());
    QVERIFY2(!index.contains('\n') && !index.contains(": "), index.constData());
    const QJsonObject written = QJsonDocument::fromJson(index).array()[1].toObject();
    const QString id = stored.id.toString(QUuid::WithoutBraces).toUpper();
    QCOMPARE(written.value(u"id").toString(), id);
    QCOMPARE(written.value(u"createdDate").toDouble(), 760025130.0);
    QVERIFY(!written.contains(u"notes"));
    QCOMPARE(written.value(u"audioURL").toString(),
             QUrl::fromLocalFile(storage.folder() + u'/' + id + QStringLiteral(".mp3")).toString());
    QCOMPARE(storage.loadAll(), (QList<SavedAudio>{loaded[0], stored}));
}

void SavedAudioStorageServiceTest::savingTwiceKeepsTwoCopiesAndUpdateAndRemoveChangeOnlyTheirItem()
{
    SavedAudioStorageService storage(m_env.root() + QStringLiteral("/changes"));
    const SavedAudio first = storage.save(item(QStringLiteral("Same")));
    const SavedAudio second = storage.save(item(QStringLiteral("Same")));
    QVERIFY(first.audioURL != second.audioURL);
    QCOMPARE(readBytes(first.audioURL.toLocalFile()), readBytes(m_mp3));
    QCOMPARE(readBytes(second.audioURL.toLocalFile()), readBytes(m_mp3));

    SavedAudio renamed = second;
    renamed.title = QStringLiteral("Renamed");
    renamed.notes = QStringLiteral("a note");
    storage.update(renamed);
    QCOMPARE(storage.loadAll(), (QList<SavedAudio>{first, renamed}));

    const QByteArray before = readBytes(storage.indexPath());
    storage.remove(QUuid::createUuid());
    QCOMPARE(readBytes(storage.indexPath()), before);
    storage.remove(first.id);
    QCOMPARE(storage.loadAll(), QList<SavedAudio>{renamed});
    QVERIFY(!QFile::exists(first.audioURL.toLocalFile()));
    QVERIFY(QFile::exists(renamed.audioURL.toLocalFile()));

    // An index edited to name a file elsewhere cannot make the library delete it.
    const QString outside = m_env.root() + QStringLiteral("/outside.mp3");
    QVERIFY(QFile::copy(m_mp3, outside));
    QJsonArray edited = QJsonDocument::fromJson(readBytes(storage.indexPath())).array();
    QJsonObject record = edited[0].toObject();
    record.insert(u"audioURL"_qs, QUrl::fromLocalFile(outside).toString());
    edited[0] = record;
    QVERIFY(writeBytes(storage.indexPath(), QJsonDocument(edited).toJson()));
    storage.remove(renamed.id);
    QVERIFY(QFile::exists(outside));
    QVERIFY(!QFile::exists(renamed.audioURL.toLocalFile()));

    // At start-up the folder is made private and what no item names (a crash's half-saved copy, a
    // left-over index draft) is removed; the items' files stay.
    const SavedAudio third = storage.save(item(QStringLiteral("Third")));
    QVERIFY(writeBytes(storage.folder() + QStringLiteral("/half-saved.mp3"), "ID3"));
    QVERIFY(writeBytes(storage.indexPath() + QStringLiteral(".aBcDeF"), "["));
    QVERIFY(QFile::link(outside, storage.folder() + QStringLiteral("/link.mp3")));
    QFile::setPermissions(storage.folder(), QFileDevice::Permissions(0x7755));
    storage.tidyFolder();
    QCOMPARE(QDir(storage.folder()).entryList(QDir::Files | QDir::System),
             (QStringList{third.id.toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".mp3"),
                          QStringLiteral("saved_audio.json")}));
    QVERIFY(QFile::exists(outside));
    QCOMPARE(QFileInfo(storage.folder()).permissions() & 0x7077,
             QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

void SavedAudioStorageServiceTest::aFailedWriteOrADamagedIndexLeavesTheIndexAsItWas()
{
    SavedAudioStorageService storage(m_env.root() + QStringLiteral("/failures"));
    const SavedAudio kept = storage.save(item(QStringLiteral("Kept")));
    const QByteArray before = readBytes(storage.indexPath());
    SavedAudio large = item(QStringLiteral("Large"));
    large.sourceText = QString(300 * 1024, u'x');
    {
        FileSizeLimit limit(200 * 1024);
        QVERIFY(limit.active());
        QVERIFY_THROWS_EXCEPTION(LibraryError, (void)storage.save(large));
    }
    QCOMPARE(readBytes(storage.indexPath()), before);
    QCOMPARE(QDir(storage.folder()).entryList(QDir::Files).size(), 2); // the index and the kept MP3

    // Broken JSON and an entry of the wrong shape alike stop every change before it touches a file.
    for (const QByteArray &damaged : {QByteArray(R"([{"id":"0E7C6F1A-1B2C-4D3E-8F40-5A6B7C8D9E0F","title":"Cut)"),
                                      QByteArray(R"([{"id":"not a uuid"}])")}) {
        QVERIFY(writeBytes(storage.indexPath(), damaged));
        try {
            (void)storage.save(item(QStringLiteral("New")));
            QFAIL("a save over a damaged index succeeded");
        } catch (const LibraryError &error) {
            QVERIFY2(error.description().contains(storage.indexPath()) || error.description().contains(u"\"id\""),
                     qPrintable(error.description()));
        }
        QVERIFY_THROWS_EXCEPTION(LibraryError, storage.remove(kept.id));
        QCOMPARE(readBytes(storage.indexPath()), damaged);
        QCOMPARE(QDir(storage.folder()).entryList(QDir::Files).size(), 2);
    }
}

QTEST_GUILESS_MAIN(SavedAudioStorageServiceTest)
#include "tst_SavedAudioStorageService.moc"
