#include "LogCapture.h"
#include "ManualClock.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "core/Paths.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "usage/UsageTracker.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace parlino;
using namespace std::chrono_literals;

namespace {

// A player on the real engine (null audio output) with its own settings, state and tracker.
struct PlayerRig {
    explicit PlayerRig(const QString &defaultsFile, Clock &clock)
        : defaults(defaultsFile)
        , appState(defaults)
        , tracker(defaults)
        , engine(QStringLiteral("null"))
        , player(engine, tracker, defaults, clock)
    {
        appState.mirrorPlayer(player);
    }

    Defaults defaults;
    AppState appState;
    UsageTracker tracker;
    MpvAudioEngine engine;
    AudioPlayerManager player;
};

} // namespace

class AudioPlayerManagerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void playsAndMirrorsIntoAppState();
    void defaultSpeedChoosesTheStartingRate_data();
    void defaultSpeedChoosesTheStartingRate();
    void finishedItemReplaysFromTheStart();
    void resumeNearTheEnd_data();
    void resumeNearTheEnd();
    void pauseAndResumeKeepTheChosenRate();
    void doubleRateAdvancesTwiceAsFastAsWallTime();
    void concatenatedFilePlaysToItsRealEndAndAccountsListening();
    void listeningSessionsFollowTheClock();
    void stopKeepsOrClosesTheFloatingPlayer();
    void skipIsClampedToTheItem();
    void unplayableFilesAreReported_data();
    void unplayableFilesAreReported();

private:
    PlayerRig &rig(Clock &clock = Clock::system());
    [[nodiscard]] bool startAndWaitReady(const QString &file);

    test::TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString m_short; // about 2 s
    double m_shortSeconds = 0;
    QString m_long; // about 13 s, three files joined
    double m_longSeconds = 0;
    ManualClock m_manualClock;
    std::unique_ptr<PlayerRig> m_rig;
    std::unique_ptr<test::LogCapture> m_log;
    int m_defaultsCounter = 0;
};

void AudioPlayerManagerTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_short = m_dir.filePath(QStringLiteral("short.mp3"));
    m_shortSeconds = test::makeTimedSpeechMp3(QStringLiteral("Reading this aloud."), m_short);
    QVERIFY(m_shortSeconds > 0.8);

    const QStringList texts{
        QStringLiteral("The first chunk of a long text, spoken by the speech service, opens the reading slowly."),
        QStringLiteral("The second chunk continues the story exactly where the first one ended, a little later."),
        QStringLiteral("And the third chunk brings the whole of this rather long reading to its quiet close.")};
    QStringList parts;
    for (int i = 0; i < texts.size(); ++i) {
        parts << m_dir.filePath(QStringLiteral("part%1.mp3").arg(i));
        const double seconds = test::makeTimedSpeechMp3(texts[i], parts.last());
        QVERIFY(seconds > 0);
        m_longSeconds += seconds;
    }
    m_long = m_dir.filePath(QStringLiteral("joined.mp3"));
    QVERIFY(test::concatenateFiles(parts, m_long));
    QVERIFY(m_longSeconds > 11);
}

void AudioPlayerManagerTest::init()
{
    m_log = std::make_unique<test::LogCapture>();
}

void AudioPlayerManagerTest::cleanup()
{
    m_rig.reset();
    m_log.reset();
}

PlayerRig &AudioPlayerManagerTest::rig(Clock &clock)
{
    if (!m_rig) {
        const QString file = m_env.configHome() + QStringLiteral("/defaults-%1.conf").arg(++m_defaultsCounter);
        m_rig = std::make_unique<PlayerRig>(file, clock);
    }
    return *m_rig;
}

bool AudioPlayerManagerTest::startAndWaitReady(const QString &file)
{
    QSignalSpy ready(&rig().player, &AudioPlayerManager::itemReady);
    rig().player.play(QUrl::fromLocalFile(file));
    return ready.wait(5000);
}

void AudioPlayerManagerTest::playsAndMirrorsIntoAppState()
{
    PlayerRig &r = rig();
    r.defaults.set(QStringLiteral("defaultSpeed"), 2.0);
    QVERIFY(startAndWaitReady(m_short));

    QVERIFY(r.player.isPlaying());
    QVERIFY(r.appState.isPlaying());
    QVERIFY(r.appState.showFloatingPlayer());
    QCOMPARE(r.appState.currentSpeed(), PlaybackSpeed::x2);
    QCOMPARE(r.player.playbackRate(), 2.0F);
    QCOMPARE(r.engine.rate(), 2.0);
    QCOMPARE_LT(std::abs(r.player.duration() - m_shortSeconds), 0.2);

    // Position updates reach the application state while it plays.
    QTRY_VERIFY_WITH_TIMEOUT(r.appState.currentTime() > 0.3, 3000);
    QCOMPARE(r.appState.totalTime(), r.player.duration());
    QCOMPARE(r.appState.playbackProgress(), r.appState.currentTime() / r.appState.totalTime());

    // The end keeps everything loaded for a replay and the player open.
    QSignalSpy playing(&r.player, &AudioPlayerManager::isPlayingChanged);
    QTRY_VERIFY_WITH_TIMEOUT(!r.player.isPlaying(), 5000);
    QVERIFY(!r.appState.isPlaying());
    QVERIFY(r.player.hasItem());
    QCOMPARE(r.player.currentURL(), QUrl::fromLocalFile(m_short));
    QCOMPARE_GT(r.player.duration(), 0.0);
    QVERIFY(r.appState.showFloatingPlayer());
    QCOMPARE_GT(r.appState.playbackProgress(), 0.9);
    QVERIFY(m_log->containsInOrder(
        {QStringLiteral("🎵 AudioPlayerManager.play() called"), QStringLiteral("   File exists: true"),
         QStringLiteral("   Initial playback speed: 2.0"), QStringLiteral("✅ AVPlayerItem ready to play!"),
         QStringLiteral("▶️ Starting playback at 2.0x speed (from settings)"),
         QStringLiteral("🏁 Playback finished - preserving player for replay"),
         QStringLiteral("✅ Audio ready for replay - player, URL, and duration preserved")}));
}

void AudioPlayerManagerTest::defaultSpeedChoosesTheStartingRate_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<double>("expectedRate");
    QTest::addColumn<PlaybackSpeed>("expectedSpeed");
    // AppState starts at 1.25× here, so an unmatched rate visibly leaves it alone.
    QTest::newRow("absent") << QVariant() << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("zero") << QVariant(0.0) << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("negative") << QVariant(-2.0) << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("not a number") << QVariant(QStringLiteral("fast")) << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("NaN") << QVariant(QStringLiteral("nan")) << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("far too fast") << QVariant(1000.0) << 1.0 << PlaybackSpeed::x1;
    QTest::newRow("a listed speed") << QVariant(1.5) << 1.5 << PlaybackSpeed::x1_5;
    QTest::newRow("between speeds") << QVariant(1.7) << 1.7 << PlaybackSpeed::x1_25;
}

void AudioPlayerManagerTest::defaultSpeedChoosesTheStartingRate()
{
    QFETCH(QVariant, stored);
    QFETCH(double, expectedRate);
    QFETCH(PlaybackSpeed, expectedSpeed);
    PlayerRig &r = rig();
    if (stored.isValid())
        r.defaults.set(QStringLiteral("defaultSpeed"), stored);
    r.appState.setCurrentSpeed(PlaybackSpeed::x1_25);

    QVERIFY(startAndWaitReady(m_short));
    QCOMPARE(r.player.playbackRate(), static_cast<float>(expectedRate));
    QCOMPARE_LT(std::abs(r.engine.rate() - expectedRate), 1e-6);
    QCOMPARE(r.appState.currentSpeed(), expectedRate == 1.7 ? PlaybackSpeed::x1_25 : expectedSpeed);
}

void AudioPlayerManagerTest::finishedItemReplaysFromTheStart()
{
    PlayerRig &r = rig();
    r.defaults.set(QStringLiteral("defaultSpeed"), 3.0);
    QVERIFY(startAndWaitReady(m_short));
    QTRY_VERIFY_WITH_TIMEOUT(!r.player.isPlaying(), 5000);

    r.player.togglePlayPause();
    QVERIFY(m_log->contains(QStringLiteral("🔄 At end of audio - seeking to beginning for replay")));
    QVERIFY(r.player.isPlaying());
    QVERIFY(r.appState.isPlaying());
    QCOMPARE_LT(r.player.currentTime(), 0.5);
    QCOMPARE(r.engine.rate(), 3.0); // the replay keeps the rate
    QTRY_VERIFY_WITH_TIMEOUT(!r.player.isPlaying(), 5000);
    QCOMPARE(m_log->count(QStringLiteral("🏁 Playback finished - preserving player for replay")), 2);
}

void AudioPlayerManagerTest::resumeNearTheEnd_data()
{
    QTest::addColumn<double>("secondsBeforeEnd");
    QTest::addColumn<bool>("restarts");
    QTest::newRow("0.4 s before the end") << 0.4 << true;
    QTest::newRow("0.6 s before the end") << 0.6 << false;
}

void AudioPlayerManagerTest::resumeNearTheEnd()
{
    QFETCH(double, secondsBeforeEnd);
    QFETCH(bool, restarts);
    PlayerRig &r = rig();
    QVERIFY(startAndWaitReady(m_long));
    r.player.togglePlayPause(); // pause
    QVERIFY(!r.player.isPlaying());
    const double target = r.player.duration() - secondsBeforeEnd;
    r.player.skip(target - r.engine.position());
    QTRY_VERIFY(std::abs(r.engine.position() - target) < 0.05);

    r.player.togglePlayPause();
    QVERIFY(r.player.isPlaying());
    QCOMPARE(m_log->contains(QStringLiteral("🔄 At end of audio - seeking to beginning for replay")), restarts);
    if (restarts)
        QCOMPARE_LT(r.engine.position(), 0.5);
    else
        QCOMPARE_GT(r.engine.position(), target - 0.05);
}

void AudioPlayerManagerTest::pauseAndResumeKeepTheChosenRate()
{
    PlayerRig &r = rig();
    QVERIFY(startAndWaitReady(m_long));
    r.player.setSpeed(2.0F);
    QCOMPARE(r.engine.rate(), 2.0);
    QCOMPARE(r.appState.currentSpeed(), PlaybackSpeed::x2);

    r.player.togglePlayPause();
    QVERIFY(m_log->contains(QStringLiteral("⏸️ Paused playback")));
    QVERIFY(!r.appState.isPlaying());

    // A change while paused is stored, does not start playback, and applies on resume.
    r.player.setSpeed(1.5F);
    QVERIFY(!r.player.isPlaying());
    QVERIFY(r.engine.isPaused());
    QVERIFY(m_log->contains(QStringLiteral("   Current player rate: 0.0")));
    r.player.togglePlayPause();
    QVERIFY(r.engine.isPaused() == false);
    QCOMPARE(r.engine.rate(), 1.5);
    QVERIFY(m_log->contains(QStringLiteral("▶️ Resumed playback at 1.5x speed")));

    // Every accepted change is counted for the average speed; nonsense is refused and counts nothing.
    QCOMPARE(r.tracker.playbackSpeedCount(), 2);
    QCOMPARE(r.tracker.playbackSpeedSum(), 3.5);
    r.player.setSpeed(0.0F);
    r.player.setSpeed(std::numeric_limits<float>::quiet_NaN());
    QCOMPARE(r.tracker.playbackSpeedCount(), 2);
    QCOMPARE(r.player.playbackRate(), 1.5F);

    // The settings' default is untouched: the next file starts at it again.
    QVERIFY(!r.defaults.contains(QStringLiteral("defaultSpeed")));
    QVERIFY(startAndWaitReady(m_short));
    QCOMPARE(r.player.playbackRate(), 1.0F);
}

void AudioPlayerManagerTest::doubleRateAdvancesTwiceAsFastAsWallTime()
{
    PlayerRig &r = rig();
    QVERIFY(startAndWaitReady(m_long));
    r.player.setSpeed(2.0F);
    QTRY_VERIFY(r.engine.position() > 0.5); // past the start-up
    const double startPosition = r.engine.position();
    QElapsedTimer wall;
    wall.start();
    QTest::qWait(2000);
    const double advanced = r.engine.position() - startPosition;
    const double ratio = advanced / (static_cast<double>(wall.elapsed()) / 1000.0);
    QCOMPARE_GT(ratio, 1.6);
    QCOMPARE_LT(ratio, 2.4);
}

void AudioPlayerManagerTest::concatenatedFilePlaysToItsRealEndAndAccountsListening()
{
    PlayerRig &r = rig();
    r.defaults.set(QStringLiteral("defaultSpeed"), 3.0);
    QElapsedTimer wall;
    wall.start();
    QVERIFY(startAndWaitReady(m_long));
    QTRY_VERIFY_WITH_TIMEOUT(!r.player.isPlaying(), 15000);
    const double wallSeconds = static_cast<double>(wall.elapsed()) / 1000.0;

    // All three joined files were played, and the duration shown is the whole.
    QCOMPARE_LT(std::abs(r.appState.totalTime() - m_longSeconds), 0.4);
    QCOMPARE_GT(r.appState.currentTime(), m_longSeconds - 0.4);

    // One account after 10 s of position, one at the end; together about the time spent.
    QCOMPARE(m_log->lines().filter(QStringLiteral("📊 Tracked playback session: ")).size(), 2);
    QCOMPARE_GT(r.tracker.totalListeningTime(), wallSeconds * 0.7);
    QCOMPARE_LT(r.tracker.totalListeningTime(), wallSeconds * 1.1);
}

void AudioPlayerManagerTest::listeningSessionsFollowTheClock()
{
    PlayerRig &r = rig(m_manualClock);
    QSignalSpy ready(&r.player, &AudioPlayerManager::itemReady);

    // Exactly one second is not listening.
    r.player.play(QUrl::fromLocalFile(m_long));
    QVERIFY(ready.wait(5000));
    m_manualClock.advance(1000ms);
    r.player.stop();
    QCOMPARE(r.tracker.totalListeningTime(), 0.0);

    r.player.play(QUrl::fromLocalFile(m_long));
    QVERIFY(ready.wait(5000));
    m_manualClock.advance(3000ms);
    // A pause by itself accounts nothing.
    r.player.togglePlayPause();
    QCOMPARE(r.tracker.totalListeningTime(), 0.0);
    // Ten seconds of position since the last account: the stretch so far is counted.
    r.player.skip(10.5);
    QCOMPARE(r.tracker.totalListeningTime(), 3.0);
    QVERIFY(m_log->contains(QStringLiteral("📊 Tracked playback session: 3s")));
    // The rest is counted when it stops.
    m_manualClock.advance(2500ms);
    r.player.stop();
    QCOMPARE(r.tracker.totalListeningTime(), 5.5);

    // Kept in the settings.
    UsageTracker reread(r.defaults);
    QCOMPARE(reread.totalListeningTime(), 5.5);
}

void AudioPlayerManagerTest::stopKeepsOrClosesTheFloatingPlayer()
{
    PlayerRig &r = rig();
    QVERIFY(startAndWaitReady(m_long));
    r.appState.setCurrentPlayingContext(QStringLiteral("The text being read"));
    QTRY_VERIFY(r.appState.currentTime() > 0);

    r.player.stop(false);
    QVERIFY(!r.player.isPlaying());
    QVERIFY(!r.player.hasItem());
    QCOMPARE(r.player.currentTime(), 0.0);
    QCOMPARE(r.player.duration(), 0.0);
    QCOMPARE(r.player.currentURL(), QUrl::fromLocalFile(m_long));
    QVERIFY(!r.appState.isPlaying());
    QCOMPARE(r.appState.currentTime(), 0.0);
    QCOMPARE(r.appState.playbackProgress(), 0.0);
    QCOMPARE(r.appState.totalTime(), 0.0);
    QVERIFY(r.appState.showFloatingPlayer());
    QCOMPARE(r.appState.currentPlayingContext(), QStringLiteral("The text being read"));
    // Nothing is left to resume.
    r.player.togglePlayPause();
    QVERIFY(!r.player.isPlaying());
    QTest::qWait(300);
    QVERIFY(r.engine.isPaused());

    QVERIFY(startAndWaitReady(m_long));
    r.player.stop(true);
    QVERIFY(!r.appState.showFloatingPlayer());
    QVERIFY(r.appState.currentPlayingContext().isEmpty());
    QVERIFY(m_log->contains(QStringLiteral("🔒 Floating player force closed - user must use Super+Shift+R")));
}

void AudioPlayerManagerTest::skipIsClampedToTheItem()
{
    PlayerRig &r = rig();
    QVERIFY(startAndWaitReady(m_long));
    r.player.togglePlayPause();
    r.player.skip(-15);
    QCOMPARE(r.engine.position(), 0.0);
    QCOMPARE(r.appState.currentTime(), 0.0);
    r.player.skip(30);
    QCOMPARE(r.engine.position(), r.player.duration());
    QCOMPARE(r.appState.playbackProgress(), 1.0);
    r.player.skip(-15);
    QCOMPARE_LT(std::abs(r.engine.position() - (r.player.duration() - 15)), 0.01);
}

void AudioPlayerManagerTest::unplayableFilesAreReported_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("missing file") << false;
    QTest::newRow("not audio") << true;
}

void AudioPlayerManagerTest::unplayableFilesAreReported()
{
    QFETCH(bool, exists);
    const QString path = m_dir.filePath(QStringLiteral("broken-%1.mp3").arg(exists));
    if (exists) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray("<html>not audio</html>\n").repeated(50));
    }
    PlayerRig &r = rig();
    QSignalSpy failed(&r.player, &AudioPlayerManager::fileFailedToLoad);
    r.player.play(QUrl::fromLocalFile(path));
    QVERIFY(m_log->contains(exists ? QStringLiteral("   File exists: true") : QStringLiteral("   File exists: false")));
    QTRY_VERIFY_WITH_TIMEOUT(m_log->contains(QStringLiteral("❌ AVPlayerItem FAILED to load")), 5000);
    QVERIFY(!r.appState.showFloatingPlayer());
    QVERIFY(!r.player.isPlaying());
    r.player.togglePlayPause();
    QVERIFY(!r.player.isPlaying());
    QVERIFY(!r.appState.isPlaying());
    QCOMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().toString(), path);

    // The player recovers with the next good file.
    QVERIFY(startAndWaitReady(m_short));
    QVERIFY(r.appState.showFloatingPlayer());

    // A temporary file handed over is the player's: it goes once another item replaces it. Set aside
    // (an answer plays over the reading) it stays, to be resumed; after that it goes as usual.
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_env.root() + QStringLiteral("/runtime")));
    const QString temporary = Paths::newTemporaryFile(QStringLiteral(".mp3"));
    QVERIFY(QFile::copy(m_short, temporary));
    QSignalSpy readyAgain(&r.player, &AudioPlayerManager::itemReady);
    r.player.playTemporaryFile(temporary);
    QVERIFY(readyAgain.wait(5000));
    r.player.setAsideCurrentFile();
    QVERIFY(startAndWaitReady(m_short));
    QVERIFY(QFile::exists(temporary));
    QVERIFY(startAndWaitReady(temporary));
    QVERIFY(startAndWaitReady(m_short));
    QVERIFY(!QFile::exists(temporary));
    QVERIFY(QFile::exists(m_short));
}

QTEST_GUILESS_MAIN(AudioPlayerManagerTest)
#include "tst_AudioPlayerManager.moc"
