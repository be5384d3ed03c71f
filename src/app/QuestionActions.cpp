#include "app/QuestionActions.h"

#include "app/AIQuestionService.h"
#include "app/AppState.h"
#include "app/PermissionManager.h"
#include "core/Logging.h"

namespace parlino {

QuestionActions::QuestionActions(AppState &state, AIQuestionService &questions, PermissionManager &permissions,
                                 QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_questions(questions)
    , m_permissions(permissions)
{
}

QuestionActions::~QuestionActions() = default;

QString QuestionActions::buttonLabel(const AppState &state)
{
    if (state.isReadyToSendQuestion())
        return QStringLiteral("Send Question");
    if (state.isListeningForQuestion())
        return QStringLiteral("Stop Listening");
    if (state.isAnsweringQuestion())
        return QStringLiteral("Responding...");
    return QStringLiteral("Ask Question");
}

void QuestionActions::handleQuestionButton()
{
    PLOG(lcUi) << "❓ handleQuestionButton called - listening: " << boolText(m_state.isListeningForQuestion())
               << ", ready: " << boolText(m_state.isReadyToSendQuestion())
               << ", answering: " << boolText(m_state.isAnsweringQuestion())
               << ", context length: " << m_state.currentPlayingContext().size();
    if (m_state.isReadyToSendQuestion()) {
        PLOG(lcUi) << "📤 Sending question";
        m_questions.sendQuestion();
        return;
    }
    if (m_state.isListeningForQuestion()) {
        PLOG(lcUi) << "🛑 Stopping question listening";
        m_questions.stopListening();
        return;
    }
    if (m_state.isAnsweringQuestion())
        return;

    m_permissions.checkMicrophonePermission();
    m_permissions.checkSpeechRecognitionPermission();
    if (m_permissions.microphoneGranted() && m_permissions.speechRecognitionGranted()) {
        PLOG(lcUi) << "🎤 Starting question listening";
        m_questions.startListening();
        return;
    }
    PLOG(lcUi) << "⚠️ Q&A permissions not granted, showing alert";
    m_permissions.showQAPermissionsAlert([this] {
        if (m_permissions.microphoneGranted() && m_permissions.speechRecognitionGranted()) {
            PLOG(lcUi) << "✅ Permissions granted, starting listening";
            m_questions.startListening();
        } else {
            PLOG(lcUi) << "❌ Permissions denied";
        }
    });
}

void QuestionActions::cancel()
{
    if (m_state.isListeningForQuestion() || m_state.isReadyToSendQuestion())
        m_questions.stopListening();
}

} // namespace parlino
