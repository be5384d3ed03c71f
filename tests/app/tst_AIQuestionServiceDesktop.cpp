#include "AwaitTask.h"
#include "FileBytes.h"
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
#include "app/QuestionAlerts.h"
#include "core/Clock.h"
#include "core/SettingsKeys.h"
#include "playback/AudioPlayerManager.h"
#include "playback/MpvAudioEngine.h"
#include "speech/SpeechStream.h"
#include "usage/UsageTracker.h"

#include <QAudioDevice>
#include <QJsonArray>
#include <QMediaDevices>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace parlino;
using namespace parlino::test;

namespace {

const QString kReading = QStringLiteral(
    "Listening is an art. It asks for patience, attention and a quiet place to sit. This recording is long "
    "enough to be interrupted by a question and to carry on afterwards where it stopped, at its own speed.");
const QString kAnswer = QStringLiteral("It is about patience.");

class RecordingQuestionAlerts final : public QuestionAlerts {
public:
    void showQuestionError(const QString &message) override { shown.append(message); }
    QStringList shown;
};

} // namespace

// A question asked while a reading plays through the real player, heard through a real input device
// of the rig's sound server, answered by the local OpenAI stand-in.
class TestAIQuestionServiceDesktop final : public QObject {
    Q_OBJECT

private:
    TestEnvironment m_env;
    QuestionRig m_rig{m_env};
    RecordingQuestionAlerts m_alerts;
    std::unique_ptr<AIQuestionService> m_questions;

    // The reading, playing at the default speed of 2 and past its first second.
    bool startReading(const std::shared_ptr<SpeechStream> &stream = {})
    {
        QSignalSpy ready(m_rig.player.get(), &AudioPlayerManager::itemReady);
        if (stream)
            m_rig.player->playStream(stream);
        else
            m_rig.player->play(QUrl::fromLocalFile(m_rig.readingFile));
        m_rig.state->setCurrentPlayingContext(kReading);
        if (!ready.wait(5000))
            return false;
        (void)QTest::qWaitFor([this] { return m_rig.engine->position() >= 1.0; }, 5000);
        return m_rig.player->isPlaying() && m_rig.engine->position() >= 1.0 && m_rig.engine->rate() == 2.0;
    }

    // Asks the question and waits until the reading was given back.
    bool askAndWait()
    {
        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        m_questions->startListening();
        if (!m_rig.state->isListeningForQuestion() || !m_rig.speak())
            return false;
        m_questions->sendQuestion();
        return resumed.wait(30000);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_rig.setUp(kReading));
        QVERIFY(m_rig.microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());

        m_rig.state->setSelectedVoice(TTSVoice::nova);
        m_questions = std::make_unique<AIQuestionService>(*m_rig.state, *m_rig.player, m_rig.openAI.client,
                                                          *m_rig.recognition, m_alerts, Clock::system());
    }

    void init()
    {
        m_rig.openAI.server.clearRequests();
        m_rig.openAI.server.clearFailures();
        m_rig.openAI.server.setTranscription({QStringLiteral("What is this about?"), 0.8, 20});
        m_rig.openAI.server.setChatContent(kAnswer);
        m_alerts.shown.clear();
        m_rig.state->setConversationHistory({});
        if (!m_rig.microphone.isPluggedIn())
            QVERIFY(m_rig.microphone.plugIn());
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
    }

    void cleanup() { m_rig.player->stop(); }

    void answersAtNormalSpeedAndResumesTheStreamedReading()
    {
        auto reading = std::make_shared<SpeechStream>();
        reading->append(readBytes(m_rig.readingFile)); // still arriving: not finished
        QVERIFY(startReading(reading));

        // What the answer's item played at, seen when it became ready.
        QList<double> answerRates;
        QObject watcher;
        connect(m_rig.player.get(), &AudioPlayerManager::itemReady, &watcher, [this, &answerRates] {
            if (m_rig.state->isAnsweringQuestion())
                answerRates.append(m_rig.engine->rate());
        });
        QSignalSpy levels(m_rig.state.get(), &AppState::questionAudioAmplitudeChanged);

        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        m_questions->startListening();
        QVERIFY(!m_rig.player->isPlaying());
        const double stoppedAt = m_rig.engine->position();
        QVERIFY(m_rig.state->isListeningForQuestion());
        QVERIFY(m_rig.speak());
        QVERIFY(levels.count() > 5);
        m_questions->sendQuestion();
        QVERIFY(resumed.wait(30000));

        // The question went with the prompt and the reading, the answer came back and was spoken at 1.0.
        const auto chats = m_rig.openAI.server.requests(QStringLiteral("/chat/completions"));
        QCOMPARE(chats.size(), 1);
        const QJsonArray messages = chats[0].json.value(u"messages").toArray();
        QCOMPARE(messages.size(), 2);
        QVERIFY(messages[0]
                    .toObject()
                    .value(u"content")
                    .toString()
                    .startsWith(QStringLiteral("You are a helpful learning assistant.")));
        QVERIFY(messages[0].toObject().value(u"content").toString().contains(kReading));
        QCOMPARE(messages[1].toObject().value(u"content").toString(), QStringLiteral("What is this about?"));
        const auto speech = m_rig.openAI.server.requests(QStringLiteral("/audio/speech"));
        QCOMPARE(speech.size(), 1);
        QCOMPARE(speech[0].json.value(u"input").toString(), kAnswer);
        QCOMPARE(speech[0].json.value(u"voice").toString(), QStringLiteral("nova"));
        QCOMPARE(speech[0].json.value(u"speed").toDouble(), 1.0);
        QCOMPARE(answerRates, QList<double>{1.0});
        QCOMPARE(m_rig.state->conversationHistory().size(), 2);
        QCOMPARE(m_rig.state->conversationHistory().at(1).content, kAnswer);

        // The same reading, still open, back at its speed and within half a second of where it stopped.
        QCOMPARE(m_rig.player->currentStream(), reading);
        QVERIFY(!reading->isCancelled());
        QVERIFY(m_rig.player->isPlaying());
        QCOMPARE(m_rig.engine->rate(), 2.0);
        QVERIFY2(std::abs(m_rig.engine->position() - stoppedAt) < 0.5,
                 qPrintable(QStringLiteral("%1 vs %2").arg(m_rig.engine->position()).arg(stoppedAt)));
        QCOMPARE(m_rig.state->currentPlayingContext(), kReading);
        QVERIFY(!m_rig.state->isAnsweringQuestion() && !m_rig.state->isListeningForQuestion());
        reading->finish();

        // A follow-up carries the conversation so far.
        QVERIFY(askAndWait());
        const auto followUp = m_rig.openAI.server.requests(QStringLiteral("/chat/completions"));
        QCOMPARE(followUp.size(), 2);
        QCOMPARE(followUp[1].json.value(u"messages").toArray().size(), 4);
        QCOMPARE(m_rig.state->conversationHistory().size(), 4);
        QVERIFY(m_alerts.shown.isEmpty());
    }

    void nothingSaidOrCancelledResumesWithoutAsking()
    {
        QVERIFY(startReading());
        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);
        m_questions->startListening();
        const double stoppedAt = m_rig.engine->position();
        QTest::qWait(800);
        QVERIFY(!m_rig.state->isReadyToSendQuestion());
        m_questions->sendQuestion();
        QVERIFY(resumed.wait(5000));
        QVERIFY(m_rig.player->isPlaying());
        QCOMPARE(m_rig.player->currentURL(), std::optional<QUrl>(QUrl::fromLocalFile(m_rig.readingFile)));
        QVERIFY(std::abs(m_rig.engine->position() - stoppedAt) < 0.5);

        // Cancelled after speaking: nothing is sent either.
        m_questions->startListening();
        QVERIFY(m_rig.speak());
        m_questions->stopListening();
        QVERIFY(resumed.wait(5000));
        QVERIFY(m_rig.player->isPlaying());
        QVERIFY(m_rig.openAI.server.requests().isEmpty());
        QVERIFY(m_alerts.shown.isEmpty());
    }

    void askingWhilePausedLeavesTheReadingUnloaded()
    {
        QVERIFY(startReading());
        m_rig.player->togglePlayPause();
        QSignalSpy ready(m_rig.player.get(), &AudioPlayerManager::itemReady);
        QVERIFY(askAndWait());
        QCOMPARE(ready.count(), 1); // the answer only
        QTest::qWait(700);
        QVERIFY(!m_rig.player->isPlaying());
        QCOMPARE(ready.count(), 1);
        QCOMPARE(m_rig.openAI.server.requests(QStringLiteral("/chat/completions")).size(), 1);
    }

    void everyFailureShowsTheAlertAndResumes()
    {
        QSignalSpy resumed(m_questions.get(), &AIQuestionService::resumed);

        // The transcription fails.
        m_rig.openAI.server.setTranscriptionFailure(OpenAITestServer::Failure::error(500, "busy"));
        QVERIFY(startReading());
        QVERIFY(askAndWait());
        QCOMPARE(m_alerts.shown,
                 QStringList{QStringLiteral("Could not answer question: Recognition error: API Error (500): busy")});
        QVERIFY(m_rig.player->isPlaying());
        QVERIFY(m_rig.openAI.server.requests(QStringLiteral("/chat/completions")).isEmpty());

        // The chat fails.
        m_rig.openAI.server.clearFailures();
        m_rig.openAI.server.setChatFailure(OpenAITestServer::Failure::error(503, "down"));
        m_alerts.shown.clear();
        QVERIFY(askAndWait());
        QCOMPARE(m_alerts.shown, QStringList{QStringLiteral("Could not answer question: API Error (503): down")});
        QVERIFY(m_rig.player->isPlaying());
        QVERIFY(m_rig.openAI.server.requests(QStringLiteral("/audio/speech")).isEmpty());
        QVERIFY(!m_rig.state->isAnsweringQuestion());

        // No microphone at all.
        m_alerts.shown.clear();
        m_rig.microphone.unplug();
        QTRY_VERIFY(QMediaDevices::audioInputs().isEmpty());
        resumed.clear();
        m_questions->startListening();
        QCOMPARE(m_alerts.shown, QStringList{QStringLiteral("Could not start speech recognition: Microphone access "
                                                            "not authorized. Please enable it in System Settings.")});
        QVERIFY(!m_rig.state->isListeningForQuestion());
        QVERIFY(resumed.wait(5000));
        QVERIFY(m_rig.player->isPlaying());
    }
};

QTEST_GUILESS_MAIN(TestAIQuestionServiceDesktop)
#include "tst_AIQuestionServiceDesktop.moc"
