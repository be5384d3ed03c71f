#include "core/Logging.h"

Q_LOGGING_CATEGORY(lcApp, "parlino.app", QtInfoMsg)
Q_LOGGING_CATEGORY(lcBackend, "parlino.backend", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSpeech, "parlino.speech", QtInfoMsg)
Q_LOGGING_CATEGORY(lcPlayback, "parlino.playback", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAi, "parlino.ai", QtInfoMsg)
Q_LOGGING_CATEGORY(lcInput, "parlino.input", QtInfoMsg)
Q_LOGGING_CATEGORY(lcLibrary, "parlino.library", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUsage, "parlino.usage", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUi, "parlino.ui", QtInfoMsg)
Q_LOGGING_CATEGORY(lcPlatform, "parlino.platform", QtInfoMsg)
Q_LOGGING_CATEGORY(lcDiagnostics, "parlino.diagnostics", QtWarningMsg)

namespace parlino {

void installDefaultMessagePattern()
{
    if (qEnvironmentVariableIsEmpty("QT_MESSAGE_PATTERN"))
        qSetMessagePattern(QStringLiteral("%{message}"));
}

} // namespace parlino
