#pragma once

#include <QStringList>

namespace parlino {

class PodcastStorageService;
class SavedAudioStorageService;

// Command-line access to the library, read straight from its index files (no running app needed).
// `arguments` are those after the subcommand word. Exit codes: 0 success, 1 an index could not be
// read (its error on standard error), 2 bad usage.
//
//   parlino library list [--json]
//     prints the saved audio and the podcasts, newest first: date, length, title and file; with
//     --json one object {"savedAudio": [...], "podcasts": [...]} whose items carry the index's keys.
int runLibraryCommand(const SavedAudioStorageService &savedAudio, const PodcastStorageService &podcasts,
                      const QStringList &arguments);

} // namespace parlino
