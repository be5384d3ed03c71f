#include "cli/CommandLine.h"

namespace parlino {

namespace {

// Subcommands that other parts of the app register with this parser.
const QStringList kSubcommands{QStringLiteral("synthesize"), QStringLiteral("summarize"), QStringLiteral("library"),
                               QStringLiteral("account"), QStringLiteral("usage")};

} // namespace

LaunchRequest parseCommandLine(const QStringList &arguments)
{
    LaunchRequest request;
    if (arguments.isEmpty())
        return request;

    const QString &first = arguments.first();
    if (first == u"--help" || first == u"-h" || first == u"help") {
        request.kind = LaunchRequest::Kind::help;
        return request;
    }
    if (first == u"--version" || first == u"-v") {
        request.kind = LaunchRequest::Kind::version;
        return request;
    }
    if (first == u"play") {
        if (arguments.size() != 2) {
            request.kind = LaunchRequest::Kind::invalid;
            request.error = QStringLiteral("play takes exactly one audio file");
            return request;
        }
        request.kind = LaunchRequest::Kind::play;
        request.arguments = arguments.mid(1);
        return request;
    }
    if (first == u"--read-aloud" || first == u"--read-summary") {
        if (arguments.size() > 2) {
            request.kind = LaunchRequest::Kind::invalid;
            request.error = QStringLiteral("%1 takes one text (quote it) or - for standard input").arg(first);
            return request;
        }
        request.kind = LaunchRequest::Kind::service;
        request.command = first == u"--read-aloud" ? QStringLiteral("ReadAloud") : QStringLiteral("ReadSummary");
        request.arguments = arguments.mid(1);
        return request;
    }
    if (first == u"podcast") {
        request.kind = LaunchRequest::Kind::service;
        request.command = QStringLiteral("CreatePodcast");
        request.arguments = arguments.mid(1);
        return request;
    }
    if (kSubcommands.contains(first)) {
        request.kind = LaunchRequest::Kind::subcommand;
        request.command = first;
        request.arguments = arguments.mid(1);
        return request;
    }
    if (first.contains(u':') && !first.startsWith(u'-')) {
        // A URL from the desktop's URL handler (the desktop file passes %u); the app decides whether
        // it is one of its own.
        request.kind = LaunchRequest::Kind::openUrls;
        request.arguments = arguments;
        return request;
    }
    request.kind = LaunchRequest::Kind::invalid;
    request.error = QStringLiteral("unknown argument: %1").arg(first);
    return request;
}

QString usageText()
{
    return QStringLiteral(
        "Usage: parlino [COMMAND]\n"
        "\n"
        "Parlino reads selected text aloud. Without a command it starts in the system tray;\n"
        "select text in any application and press Super+Shift+R.\n"
        "\n"
        "Commands:\n"
        "  --read-aloud [TEXT|-]     read TEXT (or standard input) aloud in the running app\n"
        "  --read-summary [TEXT|-]   play a spoken summary of TEXT (or standard input)\n"
        "  play FILE                 play an audio file in the floating player of the running app\n"
        "  podcast [--type NAME] [TEXT|-]\n"
        "                            make a podcast of TEXT (or standard input) in the running app,\n"
        "                            keep it in the library and play it; NAME is Educational,\n"
        "                            \"Fictional Narrative\", \"Business Analysis\", \"Interview Style\",\n"
        "                            \"Deep Dive\" or \"Quick Summary\" (default: your setting)\n"
        "  synthesize [OPTIONS] [TEXT|-]\n"
        "                            speak TEXT (or standard input) to an MP3 file and print its path\n"
        "      --provider NAME       openai-speech, openai-realtime or offline (default: your setting;\n"
        "                            the offline voice when no OpenAI key is configured)\n"
        "      --voice NAME          alloy, echo, fable, onyx, nova or shimmer (default alloy); for the\n"
        "                            offline voice also one of its voices, such as en-us, de or fr\n"
        "      --speed RATE          speaking rate, for example 1.25 (default 1.0)\n"
        "      --output FILE         where to write the MP3 (default: a new file in the current folder)\n"
        "  summarize [--length short|medium|long] [TEXT|-]\n"
        "                            print a spoken-style summary of TEXT (or standard input)\n"
        "  library list [--json]     list the saved audio and the podcasts, newest first\n"
        "  account link EMAIL        link your Parlino account (the running app follows at once)\n"
        "  account unlink            forget the linked account\n"
        "  account status            show the linked account\n"
        "  usage [--json]            this month's characters, estimated cost and breakdowns\n"
        "  parlino://library         open the library window (parlino://podcasts: on its Podcasts tab)\n"
        "  parlino://...             hand a parlino link to the running app\n"
        "  -h, --help                show this help\n"
        "  -v, --version             show the version\n"
        "\n"
        "Environment:\n"
        "  OPENAI_API_KEY            your OpenAI key (else the keyring item user=openai_api_key\n"
        "                            server=com.parlino.app, else the setting openai_api_key)\n"
        "  OPENAI_BASE_URL           an OpenAI-compatible server (default https://api.openai.com/v1)\n"
        "  PARLINO_BACKEND_URL       the web backend for account linking (default https://api.parlino.app)\n");
}

} // namespace parlino
