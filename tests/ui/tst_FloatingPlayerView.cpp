// Runs inside the headless desktop: a real X server, window manager and windows.
#include "FileBytes.h"
#include "LogCapture.h"
#include "OpenAITestServer.h"
#include "PlaybackFixtures.h"
#include "TestEnvironment.h"
#include "ai/OpenAIClient.h"
#include "app/AppState.h"
#include "app/LibraryActions.h"
#include "app/PodcastService.h"
#include "app/UserNotifier.h"
#include "backend/ModelSettings.h"
#include "backend/OpenAIConnection.h"
#include "core/Defaults.h"
#include "library/AudioExportService.h"
#include "library/PodcastManager.h"
#include "library/PodcastStorageService.h"
#include "library/SaveFileDialog.h"
#include "library/SavedAudioManager.h"
#include "library/SavedAudioStorageService.h"
#include "platform/linux/X11WindowHints.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "speech/SpeechEndpointProvider.h"
#include "speech/SpeechStream.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "ui/FloatingPlayerView.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/SnapSlider.h"
#include "usage/UsageTracker.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProcess>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include <memory>

using namespace parlino;

namespace {

// Where the desktop notifications would go.
class RecordingNotifier final : public UserNotifier {
public:
    QList<QStringList> notices;
    void notify(const QString &title, const QString &body) override { notices.append({title, body}); }
};

// Chooses a file in the save dialog as a user would, once the dialog is open.
class AnsweringSaveDialog final : public SaveFileDialog {
public:
    std::optional<QString> answer;
    void askForSaveLocation(const QString &, const QString &, Completion done) override
    {
        QTimer::singleShot(0, [done = std::move(done), chosen = answer] { done(chosen); });
    }
};

// The library behind the player's buttons: real storage in the test's data folder, titles and
// podcasts from the local OpenAI server.
struct LibraryRig {
    explicit LibraryRig(AppState &state, AudioPlayerManager &player, Defaults &defaults, const QString &dataHome)
        : cache(dataHome + QStringLiteral("/TTSCache"))
        , models(defaults)
        , speech(cache, models)
        , client(connection, speech, models)
        , savedAudio(savedStorage, [&player](const QString &path) { player.play(QUrl::fromLocalFile(path)); })
        , podcasts(podcastStorage, [&player](const Podcast &podcast) { player.play(podcast.audioURL); })
        , podcastService(client, podcasts, state, &LibraryRig::measure, Clock::system())
        , exporter([this](QString context) { return client.generateAudioTitle(std::move(context)); },
                   [&state] { return state.downloadLocation(); }, dialog, Clock::system())
        , actions(
              state, player, savedAudio, podcastService, exporter,
              [this](QString context) { return client.generateAudioTitle(std::move(context)); }, notifier,
              Clock::system())
    {
        speech.addProvider(std::make_unique<SpeechEndpointProvider>(connection, models));
        // As the app wires it: the export's own notice goes to the desktop.
        QObject::connect(&exporter, &AudioExportService::notificationRequested, &exporter,
                         [this](const QString &title, const QString &body) { notifier.notify(title, body); });
    }

    static QCoro::Task<double> measure(QString path)
    {
        SpeechStream stream;
        stream.append(test::readBytes(path));
        stream.finish();
        co_return stream.arrivedSeconds();
    }

    test::OpenAITestServer server;
    TTSCacheService cache;
    OpenAIConnection connection{QStringLiteral("chat-key"), server.baseUrlString()};
    ModelSettings models;
    SpeechSynthesizer speech;
    OpenAIClient client;
    SavedAudioStorageService savedStorage;
    SavedAudioManager savedAudio;
    PodcastStorageService podcastStorage;
    PodcastManager podcasts;
    PodcastService podcastService;
    AnsweringSaveDialog dialog;
    AudioExportService exporter;
    RecordingNotifier notifier;
    LibraryActions actions;
};

} // namespace

class FloatingPlayerViewTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void formatsTimesAsMinutesAndSeconds();
    void showsOverAnotherWindowWithTitleTimesAndControls();
    void dragStaysOnScreenWithTheOverhang();
    void resizeHandleKeepsTheLimits();
    void controlsDriveThePlayer();
    void closeButtonStopsAndHides();
    void libraryButtonsKeepThePlayingAudio();
    void showsTheEstimatedCostOfTheReading();

private:
    [[nodiscard]] bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr);
    [[nodiscard]] bool xdotool(const QStringList &arguments) { return run(QStringLiteral("xdotool"), arguments); }
    [[nodiscard]] bool dragWithPointer(QPoint from, QPoint to);
    [[nodiscard]] QRect windowFrame() const { return m_controller->window()->geometry(); }
    [[nodiscard]] bool playAndWait(const QString &file);
    [[nodiscard]] QToolButton *button(const QString &accessibleName) const;
    template <typename T> T *child(const char *name) const
    {
        return m_controller->window()->findChild<T *>(QLatin1String(name));
    }

    test::TestEnvironment m_env;
    QTemporaryDir m_dir;
    QString m_speech;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<AppState> m_appState;
    std::unique_ptr<UsageTracker> m_tracker;
    std::unique_ptr<MpvAudioEngine> m_engine;
    std::unique_ptr<AudioPlayerManager> m_player;
    std::unique_ptr<FloatingPlayerWindowController> m_controller;
    std::unique_ptr<QPlainTextEdit> m_otherWindow;
    std::unique_ptr<LibraryRig> m_library;
};

bool FloatingPlayerViewTest::run(const QString &program, const QStringList &arguments, QByteArray *output)
{
    // Keeps this process's event loop turning while the tool talks to the X server.
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(5000))
        return false;
    for (int i = 0; i < 500 && process.state() != QProcess::NotRunning; ++i)
        QTest::qWait(10);
    QTest::qWait(50);
    if (output)
        *output = process.readAllStandardOutput();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool FloatingPlayerViewTest::dragWithPointer(QPoint from, QPoint to)
{
    const auto at = [](QPoint p) { return QStringList{QString::number(p.x()), QString::number(p.y())}; };
    if (!xdotool(QStringList{QStringLiteral("mousemove")} + at(from))
        || !xdotool({QStringLiteral("mousedown"), QStringLiteral("1")}))
        return false;
    constexpr int steps = 8;
    for (int i = 1; i <= steps; ++i) {
        const QPoint p = from + (to - from) * i / steps;
        if (!xdotool(QStringList{QStringLiteral("mousemove")} + at(p)))
            return false;
    }
    return xdotool({QStringLiteral("mouseup"), QStringLiteral("1")});
}

bool FloatingPlayerViewTest::playAndWait(const QString &file)
{
    QSignalSpy ready(m_player.get(), &AudioPlayerManager::itemReady);
    m_player->play(QUrl::fromLocalFile(file));
    return ready.wait(5000);
}

QToolButton *FloatingPlayerViewTest::button(const QString &accessibleName) const
{
    for (QToolButton *candidate : m_controller->window()->findChildren<QToolButton *>())
        if (candidate->accessibleName() == accessibleName)
            return candidate;
    return nullptr;
}

void FloatingPlayerViewTest::initTestCase()
{
    QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run inside scripts/desktop-rig");
    QVERIFY(m_dir.isValid());
    m_speech = m_dir.filePath(QStringLiteral("listening.mp3"));
    QVERIFY(test::makeTimedSpeechMp3(
                QStringLiteral("Listening is an art. It asks for patience, attention and a quiet place to sit. "
                               "This recording is long enough to show the player at work."),
                m_speech)
            > 5);

    m_defaults = std::make_unique<Defaults>(m_env.defaultsFile());
    m_appState = std::make_unique<AppState>(*m_defaults);
    m_tracker = std::make_unique<UsageTracker>(*m_defaults);
    m_engine = std::make_unique<MpvAudioEngine>(QStringLiteral("null"));
    m_player = std::make_unique<AudioPlayerManager>(*m_engine, *m_tracker, *m_defaults, Clock::system());
    m_appState->mirrorPlayer(*m_player);
    m_controller =
        std::make_unique<FloatingPlayerWindowController>(*m_appState, *m_player, &X11WindowHints::placeOnAllDesktops);
    m_controller->setContentView(new FloatingPlayerView(*m_appState, *m_player, *m_controller));

    // Someone else's window under the player: a text editor filling most of the screen.
    m_otherWindow = std::make_unique<QPlainTextEdit>();
    m_otherWindow->setWindowTitle(QStringLiteral("Article"));
    m_otherWindow->setPlainText(QStringLiteral("The quiet art of listening.\n\n").repeated(40));
    m_otherWindow->setGeometry(140, 100, 1000, 620);
    m_otherWindow->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_otherWindow.get()));
}

void FloatingPlayerViewTest::formatsTimesAsMinutesAndSeconds()
{
    QCOMPARE(FloatingPlayerView::formatTime(0), QStringLiteral("0:00"));
    QCOMPARE(FloatingPlayerView::formatTime(7.9), QStringLiteral("0:07"));
    QCOMPARE(FloatingPlayerView::formatTime(65), QStringLiteral("1:05"));
    QCOMPARE(FloatingPlayerView::formatTime(750.2), QStringLiteral("12:30"));
    QCOMPARE(FloatingPlayerView::formatTime(-3), QStringLiteral("0:00"));
    QCOMPARE(FloatingPlayerView::formatTime(std::nan("")), QStringLiteral("0:00"));
}

void FloatingPlayerViewTest::showsOverAnotherWindowWithTitleTimesAndControls()
{
    // What the command line does: play a file and name it.
    m_appState->setCurrentPlayingTitle(QStringLiteral("The Quiet Art of Listening"));
    QVERIFY(playAndWait(m_speech));
    QTRY_VERIFY(m_controller->isShown());
    QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
    QTRY_VERIFY_WITH_TIMEOUT(m_appState->currentTime() >= 1.0, 5000);
    m_player->togglePlayPause(); // a still picture
    QTest::qWait(300);

    QCOMPARE(child<QLabel>("titleLabel")->toolTip(), QStringLiteral("The Quiet Art of Listening"));
    QCOMPARE(child<QLabel>("elapsedLabel")->text(), FloatingPlayerView::formatTime(m_appState->currentTime()));
    QCOMPARE(child<QLabel>("totalLabel")->text(), FloatingPlayerView::formatTime(m_player->duration()));
    QCOMPARE(child<QLabel>("speedValueLabel")->text(), QStringLiteral("1x"));
    QCOMPARE(child<QToolButton>("playPauseButton")->toolTip(), QStringLiteral("Play/Pause (Space)"));
    QCOMPARE(child<QToolButton>("skipBackButton")->toolTip(), QStringLiteral("Skip back 15 seconds"));
    QCOMPARE(child<QToolButton>("skipForwardButton")->toolTip(), QStringLiteral("Skip forward 30 seconds"));

    // On every desktop.
    QByteArray xprop;
    QVERIFY(run(QStringLiteral("xprop"),
                {QStringLiteral("-id"), QString::number(m_controller->window()->winId()),
                 QStringLiteral("_NET_WM_STATE"), QStringLiteral("_NET_WM_DESKTOP")},
                &xprop));
    QVERIFY2(xprop.contains("_NET_WM_STATE_STICKY") || xprop.contains("4294967295"), xprop.constData());
    QVERIFY2(xprop.contains("_NET_WM_STATE_ABOVE"), xprop.constData());

    // The screen shows the player, not the editor, where the player is.
    const QString shot = m_dir.filePath(QStringLiteral("floating-player.png"));
    QVERIFY(run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), shot}));
    const QImage screen(shot);
    QCOMPARE(screen.size(), QSize(1280, 800));
    const QImage player = m_controller->window()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    const QRect frame = windowFrame();
    QVERIFY(frame.intersects(m_otherWindow->geometry()));
    int same = 0;
    int total = 0;
    for (int y = 0; y < frame.height(); y += 3) {
        for (int x = 0; x < frame.width(); x += 3) {
            ++total;
            const QColor a = screen.pixelColor(frame.x() + x, frame.y() + y);
            const QColor b = player.pixelColor(x, y);
            if (std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue()) < 24)
                ++same;
        }
    }
    QCOMPARE_GT(same, total * 9 / 10);
    qInfo() << "screenshot:" << shot;
    if (const QByteArray docs = qgetenv("PARLINO_UPDATE_SCREENSHOTS"); !docs.isEmpty()) {
        const QString target = test::sourceDir() + QStringLiteral("/../docs/images/floating-player.png");
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile::remove(target);
        QVERIFY(QFile::copy(shot, target));
    }
}

void FloatingPlayerViewTest::dragStaysOnScreenWithTheOverhang()
{
    QVERIFY(m_controller->isShown());
    const QRect area = m_controller->window()->screen()->availableGeometry();
    QLabel *title = child<QLabel>("statusLabel");
    const QPoint grab = title->mapToGlobal(QPoint(5, title->height() / 2));

    // Far to the right and up: stops with 20 points past the right and top edges.
    QVERIFY(dragWithPointer(grab, QPoint(1279, 0)));
    QTRY_COMPARE(windowFrame().x(), area.x() + area.width() - windowFrame().width() + 20);
    QCOMPARE(windowFrame().y(), std::max(area.y() - 20, windowFrame().y()));

    // Far to the left and down: no overhang there.
    const QPoint again = title->mapToGlobal(QPoint(5, title->height() / 2));
    QVERIFY(dragWithPointer(again, QPoint(0, 799)));
    QTRY_COMPARE(windowFrame().x(), area.x());
    QTRY_COMPARE(windowFrame().y(), area.y() + area.height() - windowFrame().height());
}

void FloatingPlayerViewTest::resizeHandleKeepsTheLimits()
{
    // Start from the middle of the screen.
    m_controller->show();
    QTest::qWait(200);
    const QPoint topLeft = windowFrame().topLeft();
    QWidget *grip = m_controller->window()->findChild<QWidget *>(QStringLiteral("resizeGrip"));
    QVERIFY(grip);

    // Shrinking far stops at 200 × 180, with the top edge where it was.
    QVERIFY(dragWithPointer(grip->mapToGlobal(grip->rect().center()),
                            grip->mapToGlobal(grip->rect().center()) - QPoint(300, 300)));
    QTRY_COMPARE(windowFrame().size(), QSize(200, 180));
    QCOMPARE(windowFrame().topLeft(), topLeft);
    QCOMPARE(m_appState->floatingPlayerSize(), QSizeF(200, 180));

    // Growing far stops at 500 wide; the height follows the pointer up to its limit.
    const QPoint from = grip->mapToGlobal(grip->rect().center());
    QVERIFY(dragWithPointer(from, from + QPoint(420, 250)));
    QTRY_COMPARE(windowFrame().width(), 500);
    QCOMPARE(windowFrame().height(), 430);
    QCOMPARE(windowFrame().topLeft(), topLeft);
    QCOMPARE(m_appState->floatingPlayerSize(), QSizeF(500, 430));
}

void FloatingPlayerViewTest::controlsDriveThePlayer()
{
    QVERIFY(m_player->hasItem());
    if (m_player->isPlaying())
        m_player->togglePlayPause();
    m_player->skip(-100);
    QTest::qWait(200);

    QTest::mouseClick(child<QToolButton>("skipForwardButton"), Qt::LeftButton);
    QCOMPARE(m_engine->position(), m_player->duration()); // shorter than 30 s: clamped at the end
    QTest::mouseClick(child<QToolButton>("skipBackButton"), Qt::LeftButton);
    QCOMPARE_LT(std::abs(m_engine->position() - std::max(0.0, m_player->duration() - 15)), 0.01);

    QTest::mouseClick(child<QToolButton>("playPauseButton"), Qt::LeftButton);
    QVERIFY(m_player->isPlaying());

    // The speed slider rests on the listed speeds; a step goes to the next one.
    auto *slider = child<SnapSlider>("speedSlider");
    slider->setFocus();
    QTest::keyClick(slider, Qt::Key_Right);
    QCOMPARE(m_player->playbackRate(), 1.25F);
    QCOMPARE(m_appState->currentSpeed(), PlaybackSpeed::x1_25);
    QCOMPARE(child<QLabel>("speedValueLabel")->text(), QStringLiteral("1.25x"));
    QCOMPARE(m_engine->rate(), 1.25);

    // While a request is prepared its progress line shows.
    m_appState->setProcessingMessage(QStringLiteral("Generating audio..."));
    m_appState->setIsProcessing(true);
    QVERIFY(child<QLabel>("processingLabel")->isVisible());
    QCOMPARE(child<QLabel>("processingLabel")->text(), QStringLiteral("Generating audio..."));
    m_appState->setIsProcessing(false);
    QVERIFY(!child<QLabel>("processingLabel")->isVisible());

    // When the offline voice reads instead of the chosen one, a line says so.
    QVERIFY(!child<QLabel>("speechNoticeLabel")->isVisible());
    m_appState->setSpeechNotice(QStringLiteral("No connection to OpenAI — reading with the offline voice"));
    QVERIFY(child<QLabel>("speechNoticeLabel")->isVisible());
    QCOMPARE(child<QLabel>("speechNoticeLabel")->accessibleName(), m_appState->speechNotice());
    m_appState->setSpeechNotice(QString());
    QVERIFY(!child<QLabel>("speechNoticeLabel")->isVisible());
}

void FloatingPlayerViewTest::closeButtonStopsAndHides()
{
    test::LogCapture log;
    QVERIFY(m_player->isPlaying());
    m_appState->setPendingOnboardingAudioURL(QStringLiteral("/tmp/onboarding.mp3"));
    QTest::mouseClick(child<QToolButton>("closeButton"), Qt::LeftButton);
    QVERIFY(!m_player->isPlaying());
    QVERIFY(!m_appState->pendingOnboardingAudioURL());
    QVERIFY(m_appState->showFloatingPlayer()); // left as it was
    QTRY_VERIFY(!m_controller->window()->isVisible());
    QVERIFY(log.containsInOrder(
        {QStringLiteral("❌ Close button pressed"), QStringLiteral("   - Stopping audio playback"),
         QStringLiteral("   - Clearing pending onboarding audio"), QStringLiteral("   - Hiding floating player"),
         QStringLiteral("✅ Close button handled successfully")}));

    // Playing the next file brings the player back although the flag never changed.
    QVERIFY(playAndWait(m_speech));
    QTRY_VERIFY(m_controller->isShown());
}

QTEST_MAIN(FloatingPlayerViewTest)
void FloatingPlayerViewTest::libraryButtonsKeepThePlayingAudio()
{
    m_library = std::make_unique<LibraryRig>(*m_appState, *m_player, *m_defaults, m_env.dataHome());
    auto *view = m_controller->window()->findChild<FloatingPlayerView *>();
    QVERIFY(view);
    view->setLibraryActions(m_library->actions);
    QToolButton *podcast = button(QStringLiteral("Generate an AI podcast from this content"));
    QToolButton *save = button(QStringLiteral("Save audio to library"));
    QToolButton *download = button(QStringLiteral("Download MP3 file"));
    QVERIFY(podcast && save && download);
    QList<QStringList> &notices = m_library->notifier.notices;

    const QString text = QStringLiteral("Listening is an art. It asks for patience, attention and a quiet place.");
    m_appState->setCurrentPlayingTitle(QStringLiteral("The Quiet Art of Listening"));
    m_appState->setCurrentPlayingContext(text);
    QVERIFY(playAndWait(m_speech));
    QTRY_VERIFY(m_controller->isShown());
    QVERIFY(save->isEnabled() && download->isEnabled() && podcast->isEnabled());
    QCOMPARE(save->text(), QStringLiteral("Save"));

    // Saved twice: two items, each with its own copy of the audio.
    QTest::mouseClick(save, Qt::LeftButton);
    QTRY_COMPARE(m_library->savedAudio.savedAudioList().size(), 1);
    QTRY_VERIFY(save->isEnabled());
    QTest::mouseClick(save, Qt::LeftButton);
    QTRY_COMPARE(m_library->savedAudio.savedAudioList().size(), 2);
    const QList<SavedAudio> saved = m_library->savedAudio.savedAudioList();
    QVERIFY(saved[0].audioURL != saved[1].audioURL);
    for (const SavedAudio &item : saved) {
        QCOMPARE(item.title, QStringLiteral("The Quiet Art of Listening"));
        QCOMPARE(item.sourceText, text);
        QCOMPARE(test::readBytes(item.audioURL.toLocalFile()), test::readBytes(m_speech));
    }
    QCOMPARE(notices.last(), (QStringList{QStringLiteral("Saved to Library"),
                                          QStringLiteral("'The Quiet Art of Listening' has been saved to your "
                                                         "library. Access it in the Library tab.")}));

    // Downloaded twice into the chosen folder, named by the chat model's title.
    const QString downloads = m_dir.filePath(QStringLiteral("Downloads"));
    QVERIFY(QDir().mkpath(downloads));
    m_appState->setDownloadLocation(downloads);
    m_library->server.setChatContent(QStringLiteral("Listening Notes"));
    QTest::mouseClick(download, Qt::LeftButton);
    QTRY_VERIFY(QFileInfo::exists(downloads + QStringLiteral("/Listening Notes.mp3")));
    QTRY_VERIFY(download->isEnabled());
    const qsizetype noticesBefore = notices.size();
    QTest::mouseClick(download, Qt::LeftButton);
    QTRY_VERIFY(QFileInfo::exists(downloads + QStringLiteral("/Listening Notes_1.mp3")));
    QCOMPARE(test::readBytes(downloads + QStringLiteral("/Listening Notes_1.mp3")), test::readBytes(m_speech));
    // One notice for one download: the export's.
    QTRY_VERIFY(download->isEnabled());
    QCOMPARE(notices.size(), noticesBefore + 1);
    QCOMPARE(notices.last(),
             (QStringList{QStringLiteral("Audio Downloaded"), QStringLiteral("Saved as Listening Notes_1.mp3")}));

    // A reading that still arrives has nothing to keep yet; once whole, its bytes are what is kept.
    // Shorter than the file played before, so keeping that file instead would show.
    const QByteArray whole = test::readBytes(m_speech);
    const QByteArray mp3 = whole.left(whole.size() * 2 / 3);
    auto stream = std::make_shared<SpeechStream>();
    m_player->playStream(stream);
    stream->append(mp3.left(mp3.size() / 2));
    QTRY_VERIFY(!download->isEnabled());
    QVERIFY(!save->isEnabled());
    QVERIFY(download->toolTip().contains(QStringLiteral("whole reading has arrived")));
    stream->append(mp3.mid(mp3.size() / 2));
    stream->finish();
    QTRY_VERIFY(download->isEnabled());
    QCOMPARE(download->toolTip(), QStringLiteral("Download MP3 file"));
    QTest::mouseClick(download, Qt::LeftButton);
    QTRY_VERIFY(QFileInfo::exists(downloads + QStringLiteral("/Listening Notes_2.mp3")));
    QCOMPARE(test::readBytes(downloads + QStringLiteral("/Listening Notes_2.mp3")), mp3);

    // The podcast is made from the playing text, stored, and announced.
    m_library->server.setChatContent(
        QStringLiteral(R"({"title": "Why We Listen", "summary": "Patience and attention."})"));
    QTest::mouseClick(podcast, Qt::LeftButton);
    QCOMPARE(podcast->text(), QStringLiteral("Generating..."));
    QVERIFY(!podcast->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(m_library->podcasts.savedPodcasts().size(), 1, 30000);
    QTRY_COMPARE(podcast->text(), QStringLiteral("Generate Podcast"));
    QCOMPARE(m_library->podcasts.savedPodcasts().first().sourceText, text);
    QCOMPARE(notices.last(),
             (QStringList{QStringLiteral("Podcast Generated!"),
                          QStringLiteral("'Why We Listen' has been created and is now playing. Find it in the "
                                         "Podcasts tab.")}));
    m_player->stop(false);
}

// The playing text priced for the model that reads it, to the cent; hidden while nothing plays.
void FloatingPlayerViewTest::showsTheEstimatedCostOfTheReading()
{
    auto *view = m_controller->window()->findChild<FloatingPlayerView *>();
    QVERIFY(view);
    auto *cost = child<QLabel>("costLabel");
    QString model = QStringLiteral("tts-1-hd");
    view->setCostEstimate([&model] { return model; });
    m_appState->setCurrentPlayingContext(QString(2000, u'a'));
    QVERIFY(!cost->isHidden());
    QCOMPARE(cost->text(), QStringLiteral("Estimated cost: $0.06"));
    QCOMPARE(cost->accessibleName(), QStringLiteral("Estimated cost of this reading: $0.06"));
    QCOMPARE(cost->toolTip(), QStringLiteral("2000 characters read with tts-1-hd at 3 cents per 1000 characters"));

    model = QStringLiteral("tts-1");
    m_appState->setCurrentPlayingContext(QString(100, u'b'));
    QCOMPARE(cost->text(), QStringLiteral("Estimated cost: less than $0.01"));
    model = QStringLiteral("espeak-ng");
    m_appState->setCurrentPlayingContext(QString(5000, u'c'));
    QCOMPARE(cost->text(), QStringLiteral("Estimated cost: $0.00"));

    m_appState->setCurrentPlayingContext(QString());
    QVERIFY(cost->isHidden());
    view->setCostEstimate([] { return QStringLiteral("tts-1"); }); // `model` ends with this function
}

#include "tst_FloatingPlayerView.moc"
