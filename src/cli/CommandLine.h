#pragma once

#include <QString>
#include <QStringList>

namespace parlino {

// What the user asked for on the command line.
struct LaunchRequest {
    enum class Kind {
        run, // start the tray app (or bring the running one forward)
        help,
        version,
        play,       // hand a local audio file to the running app
        openUrls,   // parlino:// URLs from the desktop's URL handler
        subcommand, // a command that runs without the tray app (synthesize, summarize, ...)
        service,    // --read-aloud / --read-summary / podcast: a text flow of the running app (started if needed)
        invalid,
    };

    Kind kind = Kind::run;
    QString command;       // the subcommand's name, or the service method (ReadAloud, ReadSummary, CreatePodcast)
    QStringList arguments; // file, URLs, or the subcommand's own arguments
    QString error;         // for invalid requests
};

[[nodiscard]] LaunchRequest parseCommandLine(const QStringList &arguments);
[[nodiscard]] QString usageText();

} // namespace parlino
