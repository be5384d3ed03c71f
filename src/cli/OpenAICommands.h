#pragma once

#include <QStringList>

namespace parlino {

class OpenAIClient;
class TTSCacheService;

// Command-line access to speech and summaries through the same client, key lookup, cache and
// OPENAI_BASE_URL as the app (the caller hands them in). `arguments` are those after the subcommand word. A
// QCoreApplication must exist; each runs its own event loop until done and needs no display. Exit codes: 0 success, 1
// the request failed (the error's description on standard error), 2 bad usage.
//
//   parlino synthesize [--voice NAME] [--speed RATE] [--output FILE] [TEXT | -]
//     writes the MP3 to FILE (default: a new file in the current folder) and prints its path.
//   parlino summarize [--length short|medium|long] [TEXT | -]
//     prints the summary.
// Without TEXT, or with "-", the text is read from standard input.
int runSynthesizeCommand(OpenAIClient &client, const TTSCacheService &cache, const QStringList &arguments);
int runSummarizeCommand(OpenAIClient &client, const QStringList &arguments);

} // namespace parlino
