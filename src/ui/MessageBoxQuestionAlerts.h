#pragma once

#include "app/QuestionAlerts.h"

namespace parlino {

// The voice questions' error alert as a message box that does not block: the question's end (the
// reading coming back) goes on while it is shown.
class MessageBoxQuestionAlerts final : public QuestionAlerts {
public:
    void showQuestionError(const QString &message) override;
};

} // namespace parlino
