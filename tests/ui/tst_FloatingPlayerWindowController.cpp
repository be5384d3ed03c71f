#include "LogCapture.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "app/AppState.h"
#include "core/Defaults.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "ui/FloatingPlayerWindowController.h"
#include "usage/UsageTracker.h"

#include <QApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

using namespace parlino;

namespace {

// Content that records the keys that reach it.
class KeyRecorder final : public QWidget {
public:
    QList<int> keys;

protected:
    void keyPressEvent(QKeyEvent *event) override
    {
        if (event->key() != Qt::Key_Control && event->key() != Qt::Key_Shift)
            keys << event->key();
    }
};

} // namespace

class FloatingPlayerWindowControllerTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void resizeKeepsLimitsAndTopEdge();
    void moveAllowsOverhangOnlyRightAndTop();
    void showsAndHidesByTheStateFlags();
    void keepOpenHoldsTheWindowAfterPlayback();
    void spaceAndEscapeOnlyWhilePlaying();
    void opensBesideTheOnboardingWindow();

private:
    void makeController(QSizeF size = QSizeF(280, 380));
    [[nodiscard]] QRect area() const { return QGuiApplication::primaryScreen()->availableGeometry(); }

    test::TestEnvironment m_env;
    std::optional<test::QuietLog> m_quiet;
    QTemporaryDir m_dir;
    QString m_speech;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<UsageTracker> m_tracker;
    std::unique_ptr<MpvAudioEngine> m_engine;
    std::unique_ptr<AudioPlayerManager> m_player;
    std::unique_ptr<FloatingPlayerWindowController> m_controller;
    KeyRecorder *m_content = nullptr;
    int m_counter = 0;
};

void FloatingPlayerWindowControllerTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_speech = m_dir.filePath(QStringLiteral("speech.mp3"));
    QVERIFY(test::makeTimedSpeechMp3(QStringLiteral("Space pauses me and Escape stops me, but only while I play."),
                                     m_speech)
            > 2);
}

void FloatingPlayerWindowControllerTest::init()
{
    m_quiet.emplace();
    m_defaults = std::make_unique<Defaults>(m_env.configHome() + QStringLiteral("/c%1.conf").arg(++m_counter));
    m_appState = std::make_unique<AppState>(*m_defaults);
    m_tracker = std::make_unique<UsageTracker>(*m_defaults);
    m_engine = std::make_unique<MpvAudioEngine>(QStringLiteral("null"));
    m_player = std::make_unique<AudioPlayerManager>(*m_engine, *m_tracker, *m_defaults, Clock::system());
    m_appState->mirrorPlayer(*m_player);
}

void FloatingPlayerWindowControllerTest::cleanup()
{
    m_controller.reset();
    m_player.reset();
    m_engine.reset();
    m_tracker.reset();
    m_appState.reset();
    m_defaults.reset();
    m_quiet.reset();
}

void FloatingPlayerWindowControllerTest::makeController(QSizeF size)
{
    m_appState->setFloatingPlayerSize(size);
    m_controller = std::make_unique<FloatingPlayerWindowController>(*m_appState, *m_player);
    m_content = new KeyRecorder;
    m_content->setFocusPolicy(Qt::StrongFocus);
    m_controller->setContentView(m_content);
}

void FloatingPlayerWindowControllerTest::resizeKeepsLimitsAndTopEdge()
{
    makeController(QSizeF(480, 300));
    QCOMPARE(m_controller->window()->size(), QSize(480, 300));
    const int top = m_controller->window()->geometry().top();
    m_controller->resize(QSize(50, -200));
    QCOMPARE(m_controller->window()->size(), QSize(500, 180));
    QCOMPARE(m_controller->window()->geometry().top(), top);
    QCOMPARE(m_appState->floatingPlayerSize(), QSizeF(500, 180));
    m_controller->resize(QSize(-1000, 1000));
    QCOMPARE(m_controller->window()->size(), QSize(200, 600));

    // A stored size outside the limits is brought inside them.
    cleanup();
    init();
    makeController(QSizeF(5000, 10));
    QCOMPARE(m_controller->window()->size(), QSize(500, 180));
}

void FloatingPlayerWindowControllerTest::moveAllowsOverhangOnlyRightAndTop()
{
    makeController();
    test::LogCapture log;
    m_controller->show();
    QVERIFY(log.contains(QStringLiteral("📍 Positioned floating player at CENTER:")));
    const QRect start = m_controller->window()->geometry();
    QCOMPARE(start.center().x(), area().center().x());

    m_controller->move(QPoint(5000, -5000));
    QCOMPARE(m_controller->window()->x(), area().x() + area().width() - start.width() + 20);
    QCOMPARE(m_controller->window()->y(), area().y() - 20);
    m_controller->move(QPoint(-5000, 5000));
    QCOMPARE(m_controller->window()->x(), area().x());
    QCOMPARE(m_controller->window()->y(), area().y() + area().height() - start.height());
    m_controller->move(QPoint(30, -40));
    QCOMPARE(m_controller->window()->pos(),
             QPoint(area().x() + 30, area().y() + area().height() - start.height() - 40));
}

void FloatingPlayerWindowControllerTest::showsAndHidesByTheStateFlags()
{
    makeController();
    QWidget *window = m_controller->window();
    QVERIFY(!window->isVisible());

    m_appState->setShowFloatingPlayer(true);
    QTRY_VERIFY(m_controller->isShown());

    // Playing holds the window open although it is no longer requested.
    test::LogCapture log;
    m_appState->setIsPlaying(true);
    m_appState->setShowFloatingPlayer(false);
    QTRY_VERIFY(log.contains(QStringLiteral("📱 FloatingPlayer: Keeping window visible (audio is playing)")));
    QVERIFY(m_controller->isShown());

    // Playback ending alone changes nothing; the next change of a flag hides it (with the slide).
    m_appState->setIsPlaying(false);
    QTest::qWait(50);
    QVERIFY(m_controller->isShown());
    m_appState->setShowFloatingPlayer(true);
    m_appState->setShowFloatingPlayer(false); // a flip within one turn is no change at all
    QTest::qWait(50);
    QVERIFY(m_controller->isShown());
    m_appState->setKeepFloatingPlayerOpen(true);
    m_appState->setKeepFloatingPlayerOpen(false);
    m_appState->setShowFloatingPlayer(true);
    QTest::qWait(20);
    m_appState->setShowFloatingPlayer(false);
    QTRY_VERIFY(
        log.contains(QStringLiteral("📱 FloatingPlayer state changed: showFloatingPlayer=false, calling hide()")));
    QTRY_VERIFY(!window->isVisible());

    // Hidden directly (the close button) with the flag still set: only a flag change or a new file shows it.
    m_appState->setShowFloatingPlayer(true);
    QTRY_VERIFY(m_controller->isShown());
    m_controller->hide();
    QTRY_VERIFY(!window->isVisible());
    m_appState->setIsPlaying(true);
    QTest::qWait(50);
    QVERIFY(!window->isVisible());
    QSignalSpy ready(m_player.get(), &AudioPlayerManager::itemReady);
    m_player->play(QUrl::fromLocalFile(m_speech));
    QVERIFY(ready.wait(5000));
    QTRY_VERIFY(m_controller->isShown());
    QCOMPARE(window->windowOpacity(), 1.0);
}

void FloatingPlayerWindowControllerTest::keepOpenHoldsTheWindowAfterPlayback()
{
    makeController();
    m_appState->setKeepFloatingPlayerOpen(true);
    m_appState->setShowFloatingPlayer(true);
    QTRY_VERIFY(m_controller->isShown());
    m_appState->setShowFloatingPlayer(false);
    QTest::qWait(300);
    QVERIFY(m_controller->isShown());

    m_appState->setKeepFloatingPlayerOpen(false);
    QTRY_VERIFY(!m_controller->window()->isVisible());
}

void FloatingPlayerWindowControllerTest::spaceAndEscapeOnlyWhilePlaying()
{
    makeController();
    QSignalSpy ready(m_player.get(), &AudioPlayerManager::itemReady);
    m_player->play(QUrl::fromLocalFile(m_speech));
    QVERIFY(ready.wait(5000));
    QVERIFY(m_appState->isPlaying());

    // With a modifier held the keys belong to the window's content.
    QTest::keyClick(m_content, Qt::Key_Space, Qt::ControlModifier);
    QTest::keyClick(m_content, Qt::Key_Escape, Qt::ShiftModifier);
    QVERIFY(m_player->isPlaying());
    QCOMPARE(m_content->keys, (QList<int>{Qt::Key_Space, Qt::Key_Escape}));

    QTest::keyClick(m_content, Qt::Key_Space);
    QVERIFY(!m_player->isPlaying());
    QCOMPARE(m_content->keys.size(), 2); // consumed

    // Paused: Space and Escape pass through untouched.
    QTest::keyClick(m_content, Qt::Key_Space);
    QTest::keyClick(m_content, Qt::Key_Escape);
    QVERIFY(!m_player->isPlaying());
    QVERIFY(m_player->hasItem());
    QCOMPARE(m_content->keys.size(), 4);

    // Playing again: Escape stops.
    m_player->togglePlayPause();
    QTest::keyClick(m_content, Qt::Key_Escape);
    QVERIFY(!m_player->hasItem());
    QCOMPARE(m_content->keys.size(), 4);

    // Keys of other windows are never taken.
    m_player->play(QUrl::fromLocalFile(m_speech));
    QVERIFY(ready.wait(5000));
    KeyRecorder other;
    QTest::keyClick(&other, Qt::Key_Space);
    QVERIFY(m_player->isPlaying());
    QCOMPARE(other.keys, QList<int>{Qt::Key_Space});
}

void FloatingPlayerWindowControllerTest::opensBesideTheOnboardingWindow()
{
    makeController();
    QWidget onboarding;
    onboarding.setGeometry(60, 80, 300, 400);
    onboarding.show();
    QVERIFY(QTest::qWaitForWindowExposed(&onboarding));
    m_controller->setOnboardingWindow(&onboarding);
    m_appState->setIsOnboardingMode(true);

    m_controller->show();
    const QRect frame = onboarding.frameGeometry();
    QCOMPARE(m_controller->window()->x(), frame.x() + frame.width() + 20);
    QCOMPARE(m_controller->window()->y(), frame.y() + frame.height() / 2 - m_controller->window()->height() / 2);

    // Outside onboarding it opens in the middle again.
    m_appState->setIsOnboardingMode(false);
    m_controller->show();
    QCOMPARE(m_controller->window()->geometry().center().x(), area().center().x());
}

QTEST_MAIN(FloatingPlayerWindowControllerTest)
#include "tst_FloatingPlayerWindowController.moc"
