#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "playback/AudioFileType.h"
#include "playback/MpvAudioEngine.h"
#include "speech/SpeechStream.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace parlino;

class MpvAudioEngineTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void loadsPausedAndPlaysToTheEnd();
    void keepsTheVoicePitchAtDoubleRate();
    void replacedFileReportsNothing();
    void unreadableFilesFailToLoad_data();
    void unreadableFilesFailToLoad();
    void audioIsKnownByContentNotName();
    void playsAudioWhileItArrives();
    void stopWhileWaitingForAudio();

private:
    test::TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString m_speech;
    double m_speechSeconds = 0;
};

void MpvAudioEngineTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_speech = m_dir.filePath(QStringLiteral("speech.mp3"));
    m_speechSeconds = test::makeTimedSpeechMp3(QStringLiteral("The engine reads this sentence aloud."), m_speech);
    QVERIFY(m_speechSeconds > 1.0);
}

void MpvAudioEngineTest::loadsPausedAndPlaysToTheEnd()
{
    MpvAudioEngine engine(QStringLiteral("null"));
    QVERIFY(engine.isValid());
    QSignalSpy loaded(&engine, &AudioEngine::loaded);
    QSignalSpy finished(&engine, &AudioEngine::finished);

    // Opening the output ahead plays its silence elsewhere: this engine reports only its own file.
    engine.warmUpOutput();
    QTRY_VERIFY_WITH_TIMEOUT(engine.findChildren<MpvAudioEngine *>().isEmpty(), 5000);
    QCOMPARE(loaded.count(), 0);
    QCOMPARE(finished.count(), 0);

    engine.load(m_speech);
    QVERIFY(loaded.wait(5000));
    QVERIFY(engine.isPaused());
    QCOMPARE_LT(std::abs(engine.duration() - m_speechSeconds), 0.2);

    // Nothing moves while paused.
    QTest::qWait(300);
    QCOMPARE_LT(engine.position(), 0.05);

    engine.setRate(3.0);
    engine.play();
    QVERIFY(finished.wait(10000));
    QCOMPARE(finished.count(), 1);
    QVERIFY(engine.isPaused()); // kept loaded at its end
    QCOMPARE_GT(engine.position(), engine.duration() - 0.3);
    QCOMPARE(loaded.count(), 1);

    // The file is still there: back to the start and through once more.
    engine.seek(0);
    QCOMPARE(engine.position(), 0.0);
    engine.play();
    QVERIFY(finished.wait(10000));
    QCOMPARE(finished.count(), 2);
}

void MpvAudioEngineTest::keepsTheVoicePitchAtDoubleRate()
{
    const QString tone = m_dir.filePath(QStringLiteral("tone.mp3"));
    QVERIFY(test::makeToneMp3(440.0, 3.0, tone));
    const QString recording = m_dir.filePath(QStringLiteral("played.wav"));
    {
        // Record what reaches the audio output instead of discarding it.
        MpvAudioEngine engine(QStringLiteral("pcm"), {{"ao-pcm-file", recording.toUtf8()}, {"audio-channels", "mono"}});
        QVERIFY(engine.isValid());
        QSignalSpy loaded(&engine, &AudioEngine::loaded);
        QSignalSpy finished(&engine, &AudioEngine::finished);
        // The rate goes in before loading: audio decoded ahead while paused would otherwise play at 1×.
        engine.setRate(2.0);
        engine.load(tone);
        QVERIFY(loaded.wait(5000));
        engine.play();
        QVERIFY(finished.wait(10000));
        engine.unload();
    }
    const test::WavAnalysis played = test::analyseWav(recording);
    QVERIFY(played.valid);
    // Twice as fast: about half as long, at the same pitch (a plain resampler would give 880 Hz).
    QCOMPARE_GT(played.seconds, 1.2);
    QCOMPARE_LT(played.seconds, 1.9);
    QCOMPARE_GT(played.dominantFrequency, 420.0);
    QCOMPARE_LT(played.dominantFrequency, 460.0);
}

void MpvAudioEngineTest::replacedFileReportsNothing()
{
    const QString longer = m_dir.filePath(QStringLiteral("longer.mp3"));
    const double longerSeconds = test::makeTimedSpeechMp3(
        QStringLiteral("A second and somewhat longer sentence, so that the two files differ in length."), longer);
    QVERIFY(longerSeconds > m_speechSeconds + 1);

    MpvAudioEngine engine(QStringLiteral("null"));
    QSignalSpy loaded(&engine, &AudioEngine::loaded);
    QSignalSpy failed(&engine, &AudioEngine::loadFailed);
    engine.load(QStringLiteral("/nonexistent/first.mp3"));
    engine.load(m_speech);
    engine.load(longer);
    QVERIFY(loaded.wait(5000));
    QTest::qWait(300);
    QCOMPARE(loaded.count(), 1);
    QCOMPARE(failed.count(), 0);
    QCOMPARE_LT(std::abs(engine.duration() - longerSeconds), 0.2);

    engine.unload();
    QTest::qWait(200);
    QCOMPARE(engine.duration(), 0.0);
    QCOMPARE(engine.position(), 0.0);
}

void MpvAudioEngineTest::audioIsKnownByContentNotName()
{
    const auto write = [this](const QString &name, const QByteArray &content) {
        QFile file(m_dir.filePath(name));
        file.open(QIODevice::WriteOnly);
        file.write(content);
        return file.fileName();
    };
    QFile speech(m_speech);
    QVERIFY(speech.open(QIODevice::ReadOnly));
    QVERIFY(isAudioFile(m_speech));
    QVERIFY(isAudioFile(write(QStringLiteral("speech-without-extension"), speech.readAll())));
    QVERIFY(!isAudioFile(write(QStringLiteral("list.mp3"), "#EXTM3U\n" + m_speech.toUtf8() + "\n")));
    QVERIFY(!isAudioFile(write(QStringLiteral("notes.mp3"), "just some words\n")));
    QVERIFY(!isAudioFile(m_dir.filePath(QStringLiteral("missing.mp3"))));
}

void MpvAudioEngineTest::unreadableFilesFailToLoad_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("not audio") << QByteArray("this is a text file, not an MP3\n").repeated(40);
    // A played file never leads the engine to the files it names, even when they are real audio.
    QTest::newRow("playlist") << QByteArray("#EXTM3U\n#EXTINF:3,Speech\n" + m_speech.toUtf8() + "\n");
    QTest::newRow("pls playlist") << QByteArray("[playlist]\nFile1=" + m_speech.toUtf8() + "\nNumberOfEntries=1\n");
}

void MpvAudioEngineTest::unreadableFilesFailToLoad()
{
    QFETCH(QByteArray, content);
    const QString path = m_dir.filePath(QStringLiteral("broken-%1.mp3").arg(QLatin1String(QTest::currentDataTag())));
    if (!content.isEmpty()) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    MpvAudioEngine engine(QStringLiteral("null"));
    QSignalSpy loaded(&engine, &AudioEngine::loaded);
    QSignalSpy failed(&engine, &AudioEngine::loadFailed);
    engine.load(path);
    QVERIFY(failed.wait(5000));
    QVERIFY(!failed.first().first().toString().isEmpty());
    QCOMPARE(loaded.count(), 0);
    QCOMPARE(engine.duration(), 0.0);

    // The engine is still usable afterwards.
    engine.load(m_speech);
    QVERIFY(loaded.wait(5000));
}

void MpvAudioEngineTest::playsAudioWhileItArrives()
{
    // Two files joined, as a long text's chunks are, delivered in uneven pieces over about a second.
    const QString second = m_dir.filePath(QStringLiteral("second.mp3"));
    const double secondSeconds = test::makeTimedSpeechMp3(QStringLiteral("And a second chunk follows it."), second);
    QVERIFY(secondSeconds > 1.0);
    QByteArray audio;
    for (const QString &path : {m_speech, second}) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        audio += file.readAll();
    }
    const QString recording = m_dir.filePath(QStringLiteral("streamed.wav"));
    {
        MpvAudioEngine engine(QStringLiteral("pcm"), {{"ao-pcm-file", recording.toUtf8()}, {"audio-channels", "mono"}});
        auto stream = std::make_shared<SpeechStream>();
        QSignalSpy loaded(&engine, &AudioEngine::loaded);
        QSignalSpy finished(&engine, &AudioEngine::finished);
        QSignalSpy durations(&engine, &AudioEngine::durationChanged);

        // The audio arrives in pieces, a little faster than it plays, as a speech answer streams in.
        qsizetype sent = 0;
        QTimer feeder;
        QObject::connect(&feeder, &QTimer::timeout, &feeder, [&] {
            const qsizetype piece = std::min<qsizetype>(audio.size() - sent, 600 + sent % 1000);
            stream->append(audio.mid(sent, piece));
            sent += piece;
            if (sent >= audio.size()) {
                feeder.stop();
                stream->finish();
            }
        });
        // Loading needs only the first few kilobytes.
        sent = 4096;
        stream->append(audio.left(sent));
        engine.loadStream(stream);
        QVERIFY(loaded.wait(5000));
        feeder.start(80);
        engine.play();

        // Sound starts before the last piece is there; the player never runs ahead of what arrived.
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 0.1, 5000);
        QVERIFY(!stream->isClosed());
        QCOMPARE_LE(engine.position(), stream->arrivedSeconds() + 0.1);

        QVERIFY(finished.wait(20000));
        QVERIFY(stream->isClosed());
        // The duration grew with the audio and ends at the whole length.
        QCOMPARE_GT(durations.size(), 2);
        QCOMPARE_LT(durations.first().first().toDouble(), durations.last().first().toDouble());
        QCOMPARE_LT(std::abs(engine.duration() - (m_speechSeconds + secondSeconds)), 0.3);
        engine.unload();
    }
    // Everything that arrived was heard, both chunks.
    const test::WavAnalysis played = test::analyseWav(recording);
    QVERIFY(played.valid);
    QCOMPARE_LT(std::abs(played.seconds - (m_speechSeconds + secondSeconds)), 0.4);
}

void MpvAudioEngineTest::stopWhileWaitingForAudio()
{
    // The decoder waits for audio that never comes; unloading and closing the engine still return.
    QFile file(m_speech);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray all = file.readAll();
    const QByteArray start = all.left(all.size() / 2);
    auto stream = std::make_shared<SpeechStream>();
    stream->append(start);
    {
        MpvAudioEngine engine(QStringLiteral("null"));
        QSignalSpy loaded(&engine, &AudioEngine::loaded);
        engine.loadStream(stream);
        QVERIFY(loaded.wait(5000));
        engine.play();
        QTest::qWait(500);
        engine.unload();
        // A new file plays as usual after the abandoned stream.
        QSignalSpy finished(&engine, &AudioEngine::finished);
        engine.load(m_speech);
        QVERIFY(loaded.wait(5000));
        engine.setRate(3.0);
        engine.play();
        QVERIFY(finished.wait(10000));
        engine.loadStream(stream);
        QTest::qWait(300);
    }
    QVERIFY(!stream->isClosed());
}

QTEST_GUILESS_MAIN(MpvAudioEngineTest)
#include "tst_MpvAudioEngine.moc"
