#pragma once

#include <QObject>
#include <QString>

namespace parlino {

class AIQuestionService;
class AppState;
class PermissionManager;

// What the floating player's question button and the question shortcut do, one behaviour for both:
// start listening (after the permissions alert when the microphone or a recognizer is missing), send
// once a question was heard, cancel while nothing was heard yet, and wait while the answer is made.
class QuestionActions final : public QObject {
    Q_OBJECT
public:
    QuestionActions(AppState &state, AIQuestionService &questions, PermissionManager &permissions,
                    QObject *parent = nullptr);
    ~QuestionActions() override;

    void handleQuestionButton();
    // Escape: drops the question being listened for and resumes; nothing otherwise.
    void cancel();

    // "Send Question" once something was heard, "Stop Listening" while listening, "Responding..."
    // while the answer is made, else "Ask Question".
    [[nodiscard]] static QString buttonLabel(const AppState &state);

private:
    AppState &m_state;
    AIQuestionService &m_questions;
    PermissionManager &m_permissions;
};

} // namespace parlino
