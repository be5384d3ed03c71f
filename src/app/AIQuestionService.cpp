#include "app/AIQuestionService.h"

#include "ai/AIMessage.h"
#include "ai/OpenAIClient.h"
#include "ai/SpeechRecognitionService.h"
#include "app/AppState.h"
#include "app/QuestionAlerts.h"
#include "app/SpeechUsage.h"
#include "core/Clock.h"
#include "core/Error.h"
#include "core/Logging.h"
#include "playback/AudioEngine.h"
#include "playback/AudioPlayerManager.h"
#include "speech/SpeechStream.h"
#include "speech/TextChunker.h"
#include "usage/SpeechPrices.h"
#include "usage/UsageTrackingService.h"

#include <qcoro/qcorosignal.h>

namespace parlino {

namespace {

QString describe(const std::exception &error)
{
    if (const auto *own = dynamic_cast<const Error *>(&error))
        return own->description();
    return QString::fromLocal8Bit(error.what());
}

AIMessage turn(MessageRole role, const QString &content)
{
    AIMessage message;
    message.role = role;
    message.content = content;
    return message;
}

} // namespace

AIQuestionService::AIQuestionService(AppState &state, AudioPlayerManager &player, OpenAIClient &client,
                                     SpeechRecognitionService &recognition, QuestionAlerts &alerts, Clock &clock,
                                     QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_player(player)
    , m_client(client)
    , m_recognition(recognition)
    , m_alerts(alerts)
    , m_clock(clock)
{
    connect(&m_recognition, &SpeechRecognitionService::transcriptionReceived, this, [this](const QString &text) {
        if (!m_state.isListeningForQuestion())
            return;
        PLOG(lcAi) << "📝 Transcription: " << text;
        // A later reading replaces the earlier one: engines revise what they heard.
        m_state.setCurrentQuestion(text);
        if (!text.isEmpty())
            m_state.setIsReadyToSendQuestion(true);
    });
    connect(&m_recognition, &SpeechRecognitionService::speechHeard, this, [this] {
        if (m_state.isListeningForQuestion())
            m_state.setIsReadyToSendQuestion(true);
    });
    connect(&m_recognition, &SpeechRecognitionService::levelChanged, this, [this](float amplitude) {
        if (m_state.isListeningForQuestion())
            m_state.setQuestionAudioAmplitude(amplitude);
    });
    connect(&m_recognition, &SpeechRecognitionService::recognitionFailed, this, [this](const QString &description) {
        if (!m_state.isListeningForQuestion())
            return;
        PLOG(lcAi) << "❌ Speech recognition error: " << description;
        m_state.setIsListeningForQuestion(false);
        m_state.setIsReadyToSendQuestion(false);
        showError(QStringLiteral("Could not start speech recognition: ") + description);
        resumePlayback();
    });
}

AIQuestionService::~AIQuestionService() = default;

void AIQuestionService::enableUsageTracking(UsageTrackingService &usage)
{
    m_usage = &usage;
}

bool AIQuestionService::isBusy() const
{
    return m_state.isListeningForQuestion() || m_state.isReadyToSendQuestion() || m_state.isAnsweringQuestion();
}

void AIQuestionService::startListening()
{
    if (isBusy()) {
        PLOG(lcAi) << "ℹ️ A question is already under way";
        return;
    }
    PLOG(lcAi) << "🎤 Starting to listen for question...";

    m_wasPlaying = m_player.isPlaying();
    // The engine's own position: the published one lags by up to half a second.
    m_savedPlaybackPosition = m_player.hasItem() ? m_player.engine().position() : m_player.currentTime();
    m_savedAudioURL = m_player.currentURL();
    // The answer may replace the reading in the player; its file must still be there to resume.
    m_player.setAsideCurrentFile();
    m_savedStream = m_player.currentStream();
    m_savedRate = m_player.playbackRate();
    m_savedContext = m_state.currentPlayingContext();
    m_answerPlaying = false;
    PLOG(lcAi) << "💾 Saved state - wasPlaying: " << boolText(m_wasPlaying) << ", position: " << m_savedPlaybackPosition
               << ", hasURL: " << boolText(m_savedAudioURL.has_value() || m_savedStream != nullptr);

    if (m_wasPlaying)
        m_player.togglePlayPause();

    m_state.setIsListeningForQuestion(true);
    m_state.setIsReadyToSendQuestion(false);
    m_state.setCurrentQuestion(QString());
    try {
        m_recognition.startListening();
    } catch (const std::exception &error) {
        PLOG(lcAi) << "❌ Speech recognition error: " << describe(error);
        m_state.setIsListeningForQuestion(false);
        showError(QStringLiteral("Could not start speech recognition: ") + describe(error));
        resumePlayback();
    }
}

void AIQuestionService::stopListening()
{
    PLOG(lcAi) << "🛑 Stopping listening...";
    m_recognition.stopListening();
    m_state.setIsListeningForQuestion(false);
    m_state.setIsReadyToSendQuestion(false);
    resumePlayback();
}

QCoro::Task<> AIQuestionService::sendQuestion()
{
    PLOG(lcAi) << "📤 Sending question...";
    m_state.setIsListeningForQuestion(false);
    m_state.setIsReadyToSendQuestion(false);
    // The answer is being prepared from here on: the button waits instead of starting anew.
    m_state.setIsAnsweringQuestion(true);
    QString question;
    try {
        QCoro::Task<QString> hearing = m_recognition.finishListening();
        question = co_await hearing;
    } catch (const std::exception &error) {
        PLOG(lcAi) << "❌ Error answering question: " << describe(error);
        m_state.setIsAnsweringQuestion(false);
        showError(QStringLiteral("Could not answer question: ") + describe(error));
        resumePlayback();
        co_return;
    }
    if (!question.isEmpty())
        m_state.setCurrentQuestion(question);
    if (question.trimmed().isEmpty()) {
        PLOG(lcAi) << "🔇 Nothing was asked";
        m_state.setIsAnsweringQuestion(false);
        resumePlayback();
        co_return;
    }
    QCoro::Task<> answering = answerQuestion(question);
    co_await answering;
}

QCoro::Task<> AIQuestionService::answerQuestion(QString question)
{
    PLOG(lcAi) << "💭 Answering question: " << question;
    m_state.setIsAnsweringQuestion(true);
    try {
        QCoro::Task<QString> asking = m_client.answerQuestion(question, m_savedContext, m_state.conversationHistory());
        const QString answer = co_await asking;
        PLOG(lcAi) << "✅ Answer received: " << answer;
        QList<AIMessage> history = m_state.conversationHistory();
        history.append(turn(MessageRole::user, question));
        history.append(turn(MessageRole::assistant, answer));
        m_state.setConversationHistory(history);

        QCoro::Task<> speaking = playAnswerAudio(answer);
        co_await speaking;
        recordUsage(question, answer);
    } catch (const std::exception &error) {
        PLOG(lcAi) << "❌ Error answering question: " << describe(error);
        showError(QStringLiteral("Could not answer question: ") + describe(error));
    }
    m_state.setIsAnsweringQuestion(false);
    resumePlayback();
}

QCoro::Task<> AIQuestionService::playAnswerAudio(QString answer)
{
    PLOG(lcAi) << "🔊 Playing answer audio...";
    // The reading stays open while the answer plays, so it can be reloaded where it stopped.
    if (m_savedStream)
        m_player.releaseStream();
    auto stream = std::make_shared<SpeechStream>();
    // Always at normal speed, whatever the reading's speed: in the request and in the player.
    m_player.playStream(stream, 1.0F);
    m_answerPlaying = true;
    auto ended = std::make_shared<bool>(false);
    const auto end = [this, ended] {
        if (*ended)
            return;
        *ended = true;
        Q_EMIT answerAudioEnded();
    };
    const QList<QMetaObject::Connection> watching{
        connect(&m_player.engine(), &AudioEngine::finished, this, end),
        connect(&m_player.engine(), &AudioEngine::loadFailed, this, end),
        connect(&m_player, &AudioPlayerManager::isPlayingChanged, this,
                [this, end] {
                    // Stopped by the listener: nothing more of the answer will be heard.
                    if (!m_player.hasItem())
                        end();
                }),
    };
    const auto unwatch = [watching] {
        for (const auto &connection : watching)
            disconnect(connection);
    };
    try {
        QCoro::Task<> synthesizing = m_client.streamSpeech(answer, m_state.selectedVoice(), 1.0, stream);
        co_await synthesizing;
        if (!*ended) {
            auto endOfAnswer = qCoro(this, &AIQuestionService::answerAudioEnded);
            co_await endOfAnswer;
        }
    } catch (...) {
        unwatch();
        throw;
    }
    unwatch();
    PLOG(lcAi) << "✅ Answer audio finished";
}

void AIQuestionService::resumePlayback()
{
    PLOG(lcAi) << "▶️ Resuming original playback at " << m_savedPlaybackPosition << "s";
    m_state.setQuestionAudioAmplitude(0);
    m_state.setCurrentPlayingContext(m_savedContext);
    if (!m_wasPlaying || (!m_savedAudioURL && !m_savedStream)) {
        // Asked while paused: the reading is not reloaded. A reading the answer replaced is no longer
        // played by anyone, so what is still to arrive of it is not asked for.
        if (m_savedStream && m_answerPlaying)
            m_savedStream->cancel();
        m_savedStream.reset();
        m_player.dropSetAsideFile();
        Q_EMIT resumed();
        return;
    }
    const double position = m_savedPlaybackPosition;
    if (m_savedStream) {
        m_player.releaseStream();
        m_player.playStream(m_savedStream, m_savedRate);
    } else {
        m_player.play(*m_savedAudioURL, m_savedRate);
    }
    m_savedStream.reset();
    m_clock.singleShot(kResumeSeekDelay, this, [this, position] {
        m_player.seek(position);
        PLOG(lcAi) << "✅ Resumed at " << position << "s";
        Q_EMIT resumed();
    });
}

void AIQuestionService::showError(const QString &message)
{
    m_alerts.showQuestionError(message);
}

void AIQuestionService::recordUsage(const QString &question, const QString &answer)
{
    if (!m_usage)
        return;
    const TTSVoice voice = m_state.selectedVoice();
    TTSUsageLog log = speechUsageLog(m_client, answer, voice, QStringLiteral("question"), QStringLiteral("question"));
    log.daysInPeriod = m_usage->getDaysInCurrentPeriod();
    log.metadata =
        QMap<QString, QString>{{QStringLiteral("question_length"), QString::number(characterCount(question))},
                               {QStringLiteral("answer_length"), QString::number(characterCount(answer))}};
    m_usage->addUsageLog(log, UsageEventType::qaInteraction);
    PLOG(lcUsage) << "📊 Tracked Q&A: " << log.characterCount << " chars | Question: " << question
                  << " | Provider: " << log.provider;
}

} // namespace parlino
