#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <memory>
#include <optional>

namespace parlino {

class AppState;
class AudioPlayerManager;
class Clock;
class OpenAIClient;
class QuestionAlerts;
class SpeechRecognitionService;
class SpeechStream;
class UsageTrackingService;

// A spoken question about what is playing: pauses the reading and remembers where it was, listens,
// sends the question with the text being read (and the conversation so far) to the chat model, speaks
// the answer at normal speed in the chosen voice, then reloads the reading and returns to where it
// stopped, at the speed it had. Every failure ends in the same return, after a "Question Error" alert.
// Lives on the main thread.
//
// Idle → listening → ready (speech heard) → answering → speaking → resuming → idle; cancelling while
// listening or ready goes straight to resuming.
class AIQuestionService final : public QObject {
    Q_OBJECT
public:
    // After reloading the reading, the seek to the remembered position waits this long.
    static constexpr std::chrono::milliseconds kResumeSeekDelay{500};

    AIQuestionService(AppState &state, AudioPlayerManager &player, OpenAIClient &client,
                      SpeechRecognitionService &recognition, QuestionAlerts &alerts, Clock &clock,
                      QObject *parent = nullptr);
    ~AIQuestionService() override;

    // Each answer is logged in the usage account from then on.
    void enableUsageTracking(UsageTrackingService &usage);

    // Pauses what plays and listens. Ignored while a question is already under way.
    void startListening();
    // Drops the question and resumes.
    void stopListening();
    // Ends listening and answers what was heard; with nothing heard it only resumes.
    QCoro::Task<> sendQuestion();

    [[nodiscard]] bool isBusy() const;

Q_SIGNALS:
    // The reading was given back (reloaded or left as it was): the question is over.
    void resumed();
    // The answer's audio has been heard to its end (or could not play).
    void answerAudioEnded();

private:
    QCoro::Task<> answerQuestion(QString question);
    QCoro::Task<> playAnswerAudio(QString answer);
    void resumePlayback();
    void showError(const QString &message);
    void recordUsage(const QString &question, const QString &answer);

    AppState &m_state;
    AudioPlayerManager &m_player;
    OpenAIClient &m_client;
    SpeechRecognitionService &m_recognition;
    QuestionAlerts &m_alerts;
    Clock &m_clock;
    UsageTrackingService *m_usage = nullptr;

    // What played when listening began.
    double m_savedPlaybackPosition = 0;
    bool m_wasPlaying = false;
    std::optional<QUrl> m_savedAudioURL;
    std::shared_ptr<SpeechStream> m_savedStream;
    float m_savedRate = 1.0F;
    QString m_savedContext;
    bool m_answerPlaying = false;
};

} // namespace parlino
