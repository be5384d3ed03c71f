#pragma once

#include <QString>

namespace parlino {

// The title and two-sentence summary the chat model writes for a finished podcast script.
struct PodcastMetadata {
    QString title;
    QString summary;

    friend bool operator==(const PodcastMetadata &, const PodcastMetadata &) = default;
};

} // namespace parlino
