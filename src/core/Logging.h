#pragma once

#include <QDebug>
#include <QLoggingCategory>

// One category per subsystem, so a single subsystem's trace can be switched with QT_LOGGING_RULES,
// e.g. QT_LOGGING_RULES="parlino.speech.info=false".
Q_DECLARE_LOGGING_CATEGORY(lcApp)
Q_DECLARE_LOGGING_CATEGORY(lcBackend)
Q_DECLARE_LOGGING_CATEGORY(lcSpeech)
Q_DECLARE_LOGGING_CATEGORY(lcPlayback)
Q_DECLARE_LOGGING_CATEGORY(lcAi)
Q_DECLARE_LOGGING_CATEGORY(lcInput)
Q_DECLARE_LOGGING_CATEGORY(lcLibrary)
Q_DECLARE_LOGGING_CATEGORY(lcUsage)
Q_DECLARE_LOGGING_CATEGORY(lcUi)
Q_DECLARE_LOGGING_CATEGORY(lcPlatform)
// Diagnostics for finding a fault (who queried a permission and from where, clipboard previews): off
// unless QT_LOGGING_RULES="parlino.diagnostics.info=true" turns them on, so an idle app writes nothing
// and a copied secret never reaches the journal.
Q_DECLARE_LOGGING_CATEGORY(lcDiagnostics)

// The app's console lines are plain sentences: no quotes around strings, no spaces between parts.
//   PLOG(lcApp) << "✅ Set download location: " << path;
#define PLOG(category) qCInfo(category).noquote().nospace()
#define PWARN(category) qCWarning(category).noquote().nospace()

namespace parlino {

// "true" or "false", as log lines print flags.
[[nodiscard]] inline QString boolText(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// Prints the app's lines as they are, unless the user chose a pattern with QT_MESSAGE_PATTERN.
void installDefaultMessagePattern();

} // namespace parlino
