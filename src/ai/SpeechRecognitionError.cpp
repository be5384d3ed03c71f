#include "ai/SpeechRecognitionError.h"

namespace parlino {

SpeechRecognitionError::SpeechRecognitionError(Kind kind, QString description)
    : Error(std::move(description))
    , m_kind(kind)
{
}

SpeechRecognitionError SpeechRecognitionError::alreadyListening()
{
    return {Kind::alreadyListening, QStringLiteral("Already listening for speech.")};
}

SpeechRecognitionError SpeechRecognitionError::recognizerUnavailable()
{
    return {Kind::recognizerUnavailable, QStringLiteral("Speech recognizer is not available.")};
}

SpeechRecognitionError SpeechRecognitionError::microphoneNotAuthorized()
{
    return {Kind::microphoneNotAuthorized,
            QStringLiteral("Microphone access not authorized. Please enable it in System Settings.")};
}

SpeechRecognitionError SpeechRecognitionError::speechNotAuthorized()
{
    return {Kind::speechNotAuthorized,
            QStringLiteral("Speech recognition not authorized. Please enable it in System Settings.")};
}

SpeechRecognitionError SpeechRecognitionError::recognitionFailed(const QString &underlying)
{
    return {Kind::recognitionFailed, QStringLiteral("Recognition error: ") + underlying};
}

} // namespace parlino
