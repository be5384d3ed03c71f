#include "cli/OpenAICommands.h"

#include "ai/OpenAIClient.h"
#include "cli/CommandText.h"
#include "core/Error.h"
#include "speech/OfflineSpeechProvider.h"
#include "speech/SpeechSynthesizer.h"
#include "speech/TTSCacheService.h"
#include "speech/TextChunker.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <functional>

namespace parlino {

namespace {

int usageError(const QString &command, const QString &problem, const QString &usage)
{
    printTo(stderr, QStringLiteral("parlino ") + command + QStringLiteral(": ") + problem);
    printTo(stderr, QStringLiteral("Usage: parlino ") + command + u' ' + usage);
    return exitUsage;
}

// Runs an asynchronous step to its end in a local event loop; any error becomes the exit code 1.
int runToCompletion(const std::function<QCoro::Task<>()> &work)
{
    QEventLoop loop;
    int exitCode = 0;
    auto task = [&]() -> QCoro::Task<> {
        try {
            co_await work();
        } catch (const Error &error) {
            printTo(stderr, error.description());
            exitCode = exitFailure;
        }
        loop.quit();
    };
    auto running = task();
    if (!running.isReady())
        loop.exec();
    return exitCode;
}

// A name in the current folder that no file has yet.
QString newOutputPath()
{
    const QString stem =
        QStringLiteral("parlino-speech-") + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString path = QDir::current().absoluteFilePath(stem + QStringLiteral(".mp3"));
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = QDir::current().absoluteFilePath(stem + u'-' + QString::number(n) + QStringLiteral(".mp3"));
    return path;
}

// Puts the generated file at destination. A file of the cache is copied (the cache owns it); a
// temporary file handed to us is moved.
void deliver(const TTSCacheService &cache, const QString &generated, const QString &destination)
{
    const bool ownedByCache = cache.ownsFile(generated);
    if (QFileInfo::exists(destination) && !QFile::remove(destination))
        throw Error(QStringLiteral("Cannot replace ") + destination);
    if (!ownedByCache && QFile::rename(generated, destination))
        return;
    QFile source(generated);
    if (!source.copy(destination)) {
        const QString reason = source.errorString();
        QFile::remove(destination);
        throw Error(QStringLiteral("Cannot write ") + destination + QStringLiteral(": ") + reason);
    }
    if (!ownedByCache)
        QFile::remove(generated);
}

} // namespace

int runSynthesizeCommand(SpeechSynthesizer &speech, OfflineSpeechProvider &offline, const QStringList &arguments,
                         qint64 maxTextLength)
{
    const QString command = QStringLiteral("synthesize");
    const QString usage = QStringLiteral("[--provider openai-speech|openai-realtime|offline] "
                                         "[--voice alloy|echo|fable|onyx|nova|shimmer|OFFLINE-VOICE] [--speed RATE] "
                                         "[--output FILE] [TEXT | -]");
    QCommandLineParser parser;
    const QCommandLineOption providerOption(QStringLiteral("provider"), QStringLiteral("Speech provider"),
                                            QStringLiteral("NAME"));
    const QCommandLineOption voiceOption(QStringLiteral("voice"), QStringLiteral("Voice"), QStringLiteral("NAME"),
                                         QStringLiteral("alloy"));
    const QCommandLineOption speedOption(QStringLiteral("speed"), QStringLiteral("Speed"), QStringLiteral("RATE"),
                                         QStringLiteral("1.0"));
    const QCommandLineOption outputOption(QStringLiteral("output"), QStringLiteral("Output file"),
                                          QStringLiteral("FILE"));
    parser.addOptions({providerOption, voiceOption, speedOption, outputOption});
    if (!parser.parse(QStringList{QStringLiteral("parlino")} + arguments))
        return usageError(command, parser.errorText(), usage);

    if (parser.isSet(providerOption) && !speech.useProvider(parser.value(providerOption)))
        return usageError(command, QStringLiteral("unknown provider \"") + parser.value(providerOption) + u'"', usage);
    // An OpenAI voice for any provider (the offline voice reads its own); an eSpeak NG voice name only
    // when the offline voice is the one that reads.
    const QString voiceName = parser.value(voiceOption);
    std::optional<TTSVoice> voice = ttsVoiceFromIdentifier(voiceName);
    if (!voice) {
        if (&speech.currentProvider() != &offline)
            return usageError(command, QStringLiteral("unknown voice \"") + voiceName + u'"', usage);
        if (!offline.setVoiceName(voiceName))
            return usageError(command,
                              QStringLiteral("the offline voice has no voice \"") + voiceName
                                  + QStringLiteral("\" (languages such as en-us, de or fr, optionally with +VARIANT)"),
                              usage);
        voice = TTSVoice::alloy;
    }
    bool isNumber = false;
    const double speed = parser.value(speedOption).toDouble(&isNumber);
    // The range the speech endpoint accepts.
    if (!isNumber || speed < 0.25 || speed > 4.0)
        return usageError(command, QStringLiteral("the speed must be a number from 0.25 to 4.0"), usage);

    const QString text = readCommandText(parser.positionalArguments());
    if (text.trimmed().isEmpty())
        return usageError(command, QStringLiteral("no text to read"), usage);
    if (const QString refusal = tooLongToReadMessage(characterCount(text), maxTextLength); !refusal.isEmpty())
        return usageError(command, refusal, usage);
    const QString destination =
        parser.isSet(outputOption) ? QFileInfo(parser.value(outputOption)).absoluteFilePath() : newOutputPath();

    return runToCompletion([&]() -> QCoro::Task<> {
        QCoro::Task<QString> speaking = speech.generateSpeech(text, *voice, speed);
        const QString generated = co_await speaking;
        deliver(speech.cacheService(), generated, destination);
        printTo(stdout, destination);
    });
}

int runSummarizeCommand(OpenAIClient &client, const QStringList &arguments, qint64 maxTextLength)
{
    const QString command = QStringLiteral("summarize");
    const QString usage = QStringLiteral("[--length short|medium|long] [TEXT | -]");
    QCommandLineParser parser;
    const QCommandLineOption lengthOption(QStringLiteral("length"), QStringLiteral("Summary length"),
                                          QStringLiteral("LENGTH"), QStringLiteral("medium"));
    parser.addOption(lengthOption);
    if (!parser.parse(QStringList{QStringLiteral("parlino")} + arguments))
        return usageError(command, parser.errorText(), usage);

    const auto length = summaryLengthFromName(parser.value(lengthOption));
    if (!length)
        return usageError(command, QStringLiteral("unknown length \"") + parser.value(lengthOption) + u'"', usage);
    const QString text = readCommandText(parser.positionalArguments());
    if (text.trimmed().isEmpty())
        return usageError(command, QStringLiteral("no text to summarize"), usage);
    if (const QString refusal = tooLongToReadMessage(characterCount(text), maxTextLength); !refusal.isEmpty())
        return usageError(command, refusal, usage);

    return runToCompletion([&]() -> QCoro::Task<> {
        QCoro::Task<QString> summarizing = client.summarize(text, *length);
        const QString summary = co_await summarizing;
        printTo(stdout, summary);
    });
}

} // namespace parlino
