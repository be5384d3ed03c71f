#include "cli/PodcastCommand.h"

#include "ai/PodcastType.h"
#include "cli/CommandText.h"

#include <cstdio>

namespace parlino {

QString unknownPodcastTypeMessage(const QString &name)
{
    QStringList names;
    for (PodcastType type : allPodcastTypes)
        names.append(rawValue(type));
    return QStringLiteral("Unknown podcast type “%1”. Choose one of: %2.").arg(name, names.join(QStringLiteral(", ")));
}

int runPodcastCommand(const QStringList &arguments, const PodcastCall &call)
{
    QString type;
    QStringList positional;
    for (qsizetype index = 0; index < arguments.size(); ++index) {
        const QString &argument = arguments.at(index);
        if (argument == u"--type" || argument.startsWith(QStringLiteral("--type="))) {
            if (argument == u"--type" && index + 1 >= arguments.size()) {
                std::fprintf(stderr, "parlino: --type needs a podcast type\n%s\n",
                             qPrintable(unknownPodcastTypeMessage(QString())));
                return 2;
            }
            type = argument == u"--type" ? arguments.at(++index) : argument.mid(7);
            if (!podcastTypeNamed(type)) {
                std::fprintf(stderr, "parlino: %s\n", qPrintable(unknownPodcastTypeMessage(type)));
                return 2;
            }
            type = rawValue(*podcastTypeNamed(type));
        } else if (argument.startsWith(QStringLiteral("--"))) {
            std::fprintf(stderr, "parlino: podcast: unknown option %s\n", qPrintable(argument));
            return 2;
        } else {
            positional.append(argument);
        }
    }
    const QString text = readCommandText(positional).trimmed();
    if (text.isEmpty()) {
        std::fprintf(stderr, "parlino: podcast: no text to make a podcast from\n");
        return 2;
    }
    QString title;
    QString error;
    if (!call(text, type, &title, &error)) {
        std::fprintf(stderr, "parlino: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("Podcast made and playing: %s\n", qPrintable(title));
    return 0;
}

} // namespace parlino
