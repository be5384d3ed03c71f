#include "LocalOpenAI.h"
#include "OpenAITestServer.h"
#include "PlaybackFixtures.h"
#include "QuestionRig.h"
#include "TestEnvironment.h"
#include "VirtualMicrophone.h"
#include "ai/OpenAITranscriptionRecognizer.h"
#include "ai/SpeechRecognitionService.h"
#include "app/AIQuestionService.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "app/QuestionActions.h"
#include "core/Clock.h"
#include "core/SettingsKeys.h"
#include "platform/linux/LinuxPermissionProbe.h"
#include "platform/linux/X11WindowHints.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "ui/FloatingPlayerView.h"
#include "ui/FloatingPlayerWindowController.h"
#include "ui/MessageBoxPermissionDialogs.h"
#include "ui/MessageBoxQuestionAlerts.h"
#include "usage/UsageTracker.h"

#include <QApplication>
#include <QAudioDevice>
#include <QMediaDevices>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using namespace parlino;
using namespace parlino::test;

namespace {

const QString kReading = QStringLiteral(
    "Listening is an art. It asks for patience, attention and a quiet place to sit. This recording is long "
    "enough to be interrupted by a question and to carry on afterwards where it stopped, at its own speed.");
const QString kHelp = QStringLiteral("Ask a question about what you're listening to (?)");

// The message box on screen whose text is `text`, or null.
QMessageBox *messageBox(const QString &text)
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        auto *box = qobject_cast<QMessageBox *>(widget);
        if (box && box->isVisible() && box->text() == text)
            return box;
    }
    return nullptr;
}

QPushButton *boxButton(QMessageBox *box, const QString &text)
{
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == text)
            return qobject_cast<QPushButton *>(button);
    }
    return nullptr;
}

} // namespace

// The floating player's question button on a real desktop: the reading plays through the real
// player, the question is spoken into a real input device of the rig's sound server.
class TestFloatingPlayerQuestionDesktop final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    QuestionRig m_rig{m_env};
    MessageBoxQuestionAlerts m_alerts;
    std::unique_ptr<AIQuestionService> m_questions;
    LinuxPermissionProbe m_probe;
    MessageBoxPermissionDialogs m_dialogs;
    std::unique_ptr<PermissionManager> m_permissions;
    std::unique_ptr<QuestionActions> m_actions;
    std::unique_ptr<FloatingPlayerWindowController> m_controller;
    FloatingPlayerView *m_view = nullptr;

    QToolButton *questionButton() const { return m_view->findChild<QToolButton *>(QStringLiteral("questionButton")); }
    QProgressBar *levelBar() const { return m_view->findChild<QProgressBar *>(QStringLiteral("questionLevel")); }

    bool startReading()
    {
        QSignalSpy ready(m_rig.player.get(), &AudioPlayerManager::itemReady);
        m_rig.player->play(QUrl::fromLocalFile(m_rig.readingFile));
        m_rig.state->setCurrentPlayingContext(kReading);
        if (!ready.wait(5000))
            return false;
        (void)QTest::qWaitFor([this] { return m_rig.engine->position() >= 1.0; }, 5000);
        return m_rig.player->isPlaying() && m_controller->isShown();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run inside scripts/desktop-rig");
        QVERIFY(m_rig.setUp(kReading));
        m_rig.openAI.server.setTranscription({QStringLiteral("What is this about?"), 0.8, 20});
        m_rig.openAI.server.setChatContent(QStringLiteral("It is about patience."));

        m_questions = std::make_unique<AIQuestionService>(*m_rig.state, *m_rig.player, m_rig.openAI.client,
                                                          *m_rig.recognition, m_alerts, Clock::system());
        m_probe.setSpeechRecognitionCheck([this] { return m_rig.recognition->isSpeechRecognitionAvailable(); });
        m_permissions = std::make_unique<PermissionManager>(m_probe, m_dialogs, *m_rig.state, Clock::system());
        m_actions = std::make_unique<QuestionActions>(*m_rig.state, *m_questions, *m_permissions);
        m_controller = std::make_unique<FloatingPlayerWindowController>(*m_rig.state, *m_rig.player,
                                                                        &X11WindowHints::placeOnAllDesktops);
        m_view = new FloatingPlayerView(*m_rig.state, *m_rig.player, *m_controller);
        m_view->setQuestionActions(*m_actions);
        m_controller->setContentView(m_view);
    }

    void init()
    {
        m_rig.openAI.server.clearRequests();
        m_rig.openAI.server.clearFailures();
        if (!m_rig.microphone.isPluggedIn())
            QVERIFY(m_rig.microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
        QVERIFY(startReading());
    }

    void cleanup() { m_rig.player->stop(); }

    void buttonListensSendsAndTheReadingResumes()
    {
        QToolButton *button = questionButton();
        QVERIFY(button && button->isVisible());
        QCOMPARE(button->text(), QStringLiteral("Ask Question"));
        QCOMPARE(button->accessibleName(), kHelp);
        QCOMPARE(button->toolTip(), kHelp);
        QVERIFY(!levelBar()->isVisible());

        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        QSignalSpy level(levelBar(), &QProgressBar::valueChanged);
        QTest::mouseClick(button, Qt::LeftButton);
        const double stoppedAt = m_rig.engine->position();
        QVERIFY(!m_rig.player->isPlaying());
        QCOMPARE(button->text(), QStringLiteral("Stop Listening"));
        QVERIFY(levelBar()->isVisible());
        QCOMPARE(levelBar()->accessibleName(), QStringLiteral("Microphone level"));

        QVERIFY(m_rig.speak());
        QCOMPARE(button->text(), QStringLiteral("Send Question"));
        QVERIFY(std::any_of(level.cbegin(), level.cend(),
                            [](const QList<QVariant> &arguments) { return arguments.at(0).toInt() > 0; }));
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(button->text(), QStringLiteral("Responding..."));
        QVERIFY(!levelBar()->isVisible());
        QVERIFY(resumed.wait(30000));

        QCOMPARE(button->text(), QStringLiteral("Ask Question"));
        QCOMPARE(m_rig.openAI.server.requests(QStringLiteral("/chat/completions")).size(), 1);
        QCOMPARE(m_rig.openAI.server.requests(QStringLiteral("/audio/speech")).size(), 1);
        QVERIFY(m_rig.player->isPlaying());
        QCOMPARE(m_rig.engine->rate(), 2.0);
        QVERIFY(std::abs(m_rig.engine->position() - stoppedAt) < 0.5);
    }

    void escapeOrTheButtonCancelsBeforeAnythingIsHeard()
    {
        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        QToolButton *button = questionButton();
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(m_rig.state->isListeningForQuestion());
        QTest::keyClick(m_view, Qt::Key_Escape);
        QVERIFY(!m_rig.state->isListeningForQuestion());
        QVERIFY(resumed.wait(5000));
        QVERIFY(m_rig.player->isPlaying());

        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(button->text(), QStringLiteral("Stop Listening"));
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(resumed.wait(5000));
        QCOMPARE(button->text(), QStringLiteral("Ask Question"));
        QVERIFY(m_rig.player->isPlaying());
        QVERIFY(m_rig.openAI.server.requests().isEmpty());
    }

    void failuresShowTheirAlerts()
    {
        // A failed transcription: the "Question Error" alert, and the reading comes back.
        m_rig.openAI.server.setTranscriptionFailure(OpenAITestServer::Failure::error(500, "busy"));
        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        QTest::mouseClick(questionButton(), Qt::LeftButton);
        QVERIFY(m_rig.speak());
        QTest::mouseClick(questionButton(), Qt::LeftButton);
        QVERIFY(resumed.wait(10000));
        QMessageBox *error = nullptr;
        QTRY_VERIFY((error = messageBox(QStringLiteral("Question Error"))) != nullptr);
        QCOMPARE(error->informativeText(),
                 QStringLiteral("Could not answer question: Recognition error: API Error (500): busy"));
        QPushButton *ok = boxButton(error, QStringLiteral("OK"));
        QVERIFY(ok);
        QVERIFY(m_rig.player->isPlaying());
        ok->click();
        QTRY_VERIFY(!messageBox(QStringLiteral("Question Error")));

        // No microphone: the permissions alert, answered "Not Now"; nothing pauses.
        m_rig.microphone.unplug();
        QTRY_VERIFY(QMediaDevices::audioInputs().isEmpty());
        QString informative;
        QStringList buttons;
        QTimer::singleShot(300, this, [&informative, &buttons] {
            QMessageBox *box = messageBox(QStringLiteral("Voice Q&A Permissions"));
            if (!box)
                return;
            informative = box->informativeText();
            for (QAbstractButton *button : box->buttons())
                buttons << button->text();
            if (QPushButton *later = boxButton(box, QStringLiteral("Not Now")))
                later->click();
        });
        QTest::mouseClick(questionButton(), Qt::LeftButton);
        QCOMPARE(informative, QStringLiteral("Parlino needs two things for the Ask Question feature:\n\n"
                                             "• Microphone access - To hear your questions\n"
                                             "• Speech Recognition - To transcribe your voice\n\n"
                                             "Would you like to enable this feature now?"));
        QVERIFY(buttons.contains(QStringLiteral("Open Sound Settings")));
        QVERIFY(!buttons.contains(QStringLiteral("Choose Speech Recognizer")));
        QVERIFY(!m_rig.state->isListeningForQuestion());
        QVERIFY(m_rig.player->isPlaying());
    }
};

QTEST_MAIN(TestFloatingPlayerQuestionDesktop)
#include "tst_FloatingPlayerQuestionDesktop.moc"
