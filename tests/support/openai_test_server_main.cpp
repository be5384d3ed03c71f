// parlino-openai-test-server: the local OpenAI stand-in as its own process, for end-to-end runs.
// Prints its base URL on the first line of standard output and serves until it is killed.
//   OPENAI_BASE_URL=$(first line) parlino ...
// Options: --chat-content TEXT (the content of every chat answer).

#include "OpenAITestServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption chatContent(QStringLiteral("chat-content"), QStringLiteral("Content of chat answers"),
                                         QStringLiteral("TEXT"));
    parser.addOption(chatContent);
    parser.addHelpOption();
    parser.process(app);

    parlino::test::OpenAITestServer server;
    if (server.serverPorts().isEmpty())
        return 1;
    if (parser.isSet(chatContent))
        server.setChatContent(parser.value(chatContent));

    std::printf("%s\n", qPrintable(server.baseUrlString()));
    std::fflush(stdout);
    return QCoreApplication::exec();
}
