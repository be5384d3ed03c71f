#pragma once

#include "speech/TextChunker.h"

#include <QStringList>

namespace parlino {

class OfflineSpeechProvider;
class OpenAIClient;
class SpeechSynthesizer;

// Command-line access to speech and summaries through the same client, key lookup, cache and
// OPENAI_BASE_URL as the app (the caller hands them in). `arguments` are those after the subcommand word. A
// QCoreApplication must exist; each runs its own event loop until done and needs no display. Exit codes: 0 success, 1
// the request failed (the error's description on standard error), 2 bad usage.
//
//   parlino synthesize [--provider NAME] [--voice NAME] [--speed RATE] [--output FILE] [TEXT | -]
//     writes the MP3 to FILE (default: a new file in the current folder) and prints its path. The
//     provider is one of the synthesizer's ("openai-speech", "openai-realtime", "offline"; default: as
//     the settings and the key decide); when the offline voice reads, --voice also takes one of its
//     voices ("de", "en-us+f3"); `offline` is that voice.
//   parlino summarize [--length short|medium|long] [TEXT | -]
//     prints the summary.
// Without TEXT, or with "-", the text is read from standard input.
// maxTextLength: a longer text is refused (exit 2) before any request.
int runSynthesizeCommand(SpeechSynthesizer &speech, OfflineSpeechProvider &offline, const QStringList &arguments,
                         qint64 maxTextLength = defaultMaxTextLength);
int runSummarizeCommand(OpenAIClient &client, const QStringList &arguments,
                        qint64 maxTextLength = defaultMaxTextLength);

} // namespace parlino
