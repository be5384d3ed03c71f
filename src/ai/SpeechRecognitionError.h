#pragma once

#include "core/Error.h"

namespace parlino {

// Why listening for a question could not start or broke off; description() is the text the user sees.
class SpeechRecognitionError final : public Error {
public:
    enum class Kind {
        alreadyListening,
        recognizerUnavailable,
        microphoneNotAuthorized,
        speechNotAuthorized,
        recognitionFailed
    };

    [[nodiscard]] static SpeechRecognitionError alreadyListening();
    [[nodiscard]] static SpeechRecognitionError recognizerUnavailable();
    [[nodiscard]] static SpeechRecognitionError microphoneNotAuthorized();
    [[nodiscard]] static SpeechRecognitionError speechNotAuthorized();
    // "Recognition error: " + what went wrong underneath.
    [[nodiscard]] static SpeechRecognitionError recognitionFailed(const QString &underlying);

    [[nodiscard]] Kind kind() const noexcept { return m_kind; }

private:
    SpeechRecognitionError(Kind kind, QString description);

    Kind m_kind;
};

} // namespace parlino
