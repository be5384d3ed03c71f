#pragma once

#include <QString>

namespace parlino::Paths {

// Every location honours the XDG variables, so a test or a second profile never touches a user's files.

// $XDG_CONFIG_HOME/Parlino/Parlino.conf — the user-defaults store.
[[nodiscard]] QString defaultsFile();
// $XDG_CONFIG_HOME/Parlino/openai-api-key — the OpenAI key entered in the app, readable by the user only.
[[nodiscard]] QString apiKeyFile();
// $XDG_DATA_HOME (default ~/.local/share): the counterpart of the "Application Support" folder.
[[nodiscard]] QString applicationSupport();
// The user's Downloads folder, or an empty string when the desktop reports none.
[[nodiscard]] QString downloads();
// Where generated speech files are written before they are handed to a caller.
[[nodiscard]] QString temporary();

} // namespace parlino::Paths
