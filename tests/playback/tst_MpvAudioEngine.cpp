#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "playback/MpvAudioEngine.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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

void MpvAudioEngineTest::unreadableFilesFailToLoad_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("not audio") << QByteArray("this is a text file, not an MP3\n").repeated(40);
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

QTEST_GUILESS_MAIN(MpvAudioEngineTest)
#include "tst_MpvAudioEngine.moc"
