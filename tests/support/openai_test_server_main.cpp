// parlino-openai-test-server: the local OpenAI stand-ins as their own process, for end-to-end runs.
// Prints the HTTP base URL on the first line of standard output and the Realtime (WebSocket) base URL
// on the second, and serves until it is killed.
//   OPENAI_BASE_URL=$(first line) OPENAI_WEBSOCKET_BASE_URL=$(second line) parlino ...
// Options: --chat-content TEXT (the content of every chat answer), --realtime-first-audio-ms N (time
// before a Realtime response's first audio), --realtime-pace CPS (Realtime audio spread over the text's
// length at CPS characters per second; 0 sends it at once), --accepted-key KEY (refuse every other key).

#include "OpenAITestServer.h"
#include "RealtimeTestServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption chatContent(QStringLiteral("chat-content"), QStringLiteral("Content of chat answers"),
                                         QStringLiteral("TEXT"));
    const QCommandLineOption firstAudio(QStringLiteral("realtime-first-audio-ms"),
                                        QStringLiteral("Milliseconds before a Realtime response's first audio"),
                                        QStringLiteral("N"), QStringLiteral("0"));
    const QCommandLineOption pace(QStringLiteral("realtime-pace"),
                                  QStringLiteral("Realtime audio pace in characters of text per second (0: at once)"),
                                  QStringLiteral("CPS"), QStringLiteral("0"));
    const QCommandLineOption acceptedKey(QStringLiteral("accepted-key"),
                                         QStringLiteral("The only API key accepted (default: any)"),
                                         QStringLiteral("KEY"));
    parser.addOptions({chatContent, firstAudio, pace, acceptedKey});
    parser.addHelpOption();
    parser.process(app);

    bool firstAudioValid = false;
    bool paceValid = false;
    const int firstAudioMs = parser.value(firstAudio).toInt(&firstAudioValid);
    const double charactersPerSecond = parser.value(pace).toDouble(&paceValid);
    if (!firstAudioValid || firstAudioMs < 0 || !paceValid || charactersPerSecond < 0) {
        std::fprintf(stderr, "--realtime-first-audio-ms and --realtime-pace take numbers of 0 or more\n");
        return 2;
    }

    parlino::test::OpenAITestServer server;
    if (server.serverPorts().isEmpty())
        return 1;
    if (parser.isSet(chatContent))
        server.setChatContent(parser.value(chatContent));
    if (parser.isSet(acceptedKey))
        server.setAcceptedKey(parser.value(acceptedKey));
    parlino::test::RealtimeTestServer realtime;
    if (!realtime.isListening())
        return 1;
    realtime.setFirstAudioDelay(std::chrono::milliseconds(firstAudioMs));
    realtime.setPace(charactersPerSecond);

    std::printf("%s\n%s\n", qPrintable(server.baseUrlString()), qPrintable(realtime.baseUrlString()));
    std::fflush(stdout);
    return QCoreApplication::exec();
}
