#pragma once

#include <QString>

namespace parlino {

// The voice questions' error alert, behind an interface so tests can see what it said.
class QuestionAlerts {
public:
    virtual ~QuestionAlerts() = default;

    // "Question Error" with message as its text and one button, "OK". Must not block the caller.
    virtual void showQuestionError(const QString &message) = 0;
};

} // namespace parlino
