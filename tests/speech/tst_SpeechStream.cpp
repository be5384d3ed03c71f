#include "PlaybackFixtures.h"
#include "speech/SpeechStream.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace parlino;

class TestSpeechStream final : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QByteArray speech(const QString &text, double *seconds)
    {
        const QString path = m_dir.filePath(QString::number(qHash(text)) + QStringLiteral(".mp3"));
        *seconds = test::makeTimedSpeechMp3(text, path);
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private Q_SLOTS:
    void durationCountsWholeFramesAcrossJoinedFiles()
    {
        double first = 0;
        double second = 0;
        // An ID3 tag between the files, as some servers send one with every answer.
        QByteArray tag("ID3\x03\x00\x00\x00\x00\x00\x0a", 10);
        tag += QByteArray(10, '\0');
        const QByteArray audio = speech(QStringLiteral("The first chunk of a long text."), &first) + tag
                                 + speech(QStringLiteral("The second chunk, which follows it."), &second);
        QVERIFY(first > 1.0 && second > 1.0);

        // Fed in awkward pieces: a frame, a tag header or a frame header is often cut in two.
        SpeechStream stream;
        QSignalSpy grown(&stream, &SpeechStream::grown);
        for (qsizetype at = 0; at < audio.size(); at += 337)
            stream.append(audio.mid(at, 337));
        // Each file carries up to a frame of encoder padding and a header frame.
        QCOMPARE_LT(std::abs(stream.arrivedSeconds() - (first + second)), 0.2);
        QCOMPARE(stream.bytes(), audio);
        QCOMPARE(grown.last().first().toDouble(), stream.arrivedSeconds());
        for (qsizetype i = 1; i < grown.size(); ++i)
            QVERIFY(grown.at(i).first().toDouble() >= grown.at(i - 1).first().toDouble());
    }

    void readerWaitsForBytesAndSeesTheEnd()
    {
        SpeechStream stream;
        stream.append(QByteArrayLiteral("abc"));
        char buffer[16];
        bool cancelled = false;
        QCOMPARE(stream.read(1, buffer, 16, cancelled), 2);
        QCOMPARE(QByteArray(buffer, 2), QByteArrayLiteral("bc"));

        // A reader past the end waits until more arrives, then until the stream closes.
        qint64 got = -2;
        qint64 atEnd = -2;
        std::thread reader([&] {
            got = stream.read(3, buffer, 16, cancelled);
            atEnd = stream.read(5, buffer, 16, cancelled);
        });
        QTest::qWait(50);
        QCOMPARE(got, -2);
        stream.append(QByteArrayLiteral("de"));
        QTest::qWait(50);
        QCOMPARE(got, 2);
        QCOMPARE(atEnd, -2);
        stream.fail(QStringLiteral("API Error (500): down"));
        reader.join();
        QCOMPARE(atEnd, 0);
        QVERIFY(stream.hasFailed());
        QCOMPARE(stream.error(), QStringLiteral("API Error (500): down"));

        // Nothing is added after the end.
        stream.append(QByteArrayLiteral("late"));
        QCOMPARE(stream.size(), 5);
    }

    void cancellingOneReaderWakesOnlyIt()
    {
        SpeechStream stream;
        bool firstCancelled = false;
        bool secondCancelled = false;
        char buffer[4];
        qint64 first = -2;
        qint64 second = -2;
        std::thread a([&] { first = stream.read(0, buffer, 4, firstCancelled); });
        std::thread b([&] { second = stream.read(0, buffer + 2, 2, secondCancelled); });
        QTest::qWait(50);
        stream.cancelReader(firstCancelled);
        a.join();
        QCOMPARE(first, -1);
        QCOMPARE(second, -2);
        stream.append(QByteArrayLiteral("xy"));
        b.join();
        QCOMPARE(second, 2);
        QVERIFY(!stream.isClosed());
    }
};

QTEST_GUILESS_MAIN(TestSpeechStream)
#include "tst_SpeechStream.moc"
