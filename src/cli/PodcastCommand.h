#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace parlino {

// Hands text and a style name to the running app (started when none runs), which makes, stores and plays the
// podcast; true with the podcast's title once it is made, else false with `error` set.
using PodcastCall = std::function<bool(const QString &text, const QString &type, QString *title, QString *error)>;

// `parlino podcast [--type NAME] [TEXT|-]`: NAME is one of the six styles in any case ("deep-dive" for
// "Deep Dive"; default the user's choice in the settings); TEXT is the words given, or standard input for "-" or
// none. An unknown style prints the names and exits with 2; a failure in the app prints its text and exits with 1.
int runPodcastCommand(const QStringList &arguments, const PodcastCall &call);

// "Unknown podcast type “NAME”. Choose one of: Educational, …".
[[nodiscard]] QString unknownPodcastTypeMessage(const QString &name);

} // namespace parlino
