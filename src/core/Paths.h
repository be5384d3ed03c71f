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
// Where generated speech files are written before they are handed to a caller: $XDG_RUNTIME_DIR/parlino,
// or $XDG_CACHE_HOME/parlino/tmp when there is no runtime folder of this user. Created readable by the
// user only; never the shared /tmp.
[[nodiscard]] QString temporary();
// A fresh path in temporary() whose name carries this process's id ("parlino-<pid>-<uuid><suffix>"), so
// a later start can tell a left-over from a file another running Parlino still uses.
[[nodiscard]] QString newTemporaryFile(const QString &suffix);
// Removes the files in temporary() that no running Parlino process made (left by a crash or a kill).
void removeTemporaryLeftovers();
// The file lies in temporary().
[[nodiscard]] bool isTemporary(const QString &path);

// Private storage: folders 0700, files 0600, so no other user of the machine reads what was spoken.
// Creates folder (and its parents) when missing; false when it cannot be created.
bool makePrivateFolder(const QString &folder);
// Makes an existing file readable and writable by the user only.
void makePrivateFile(const QString &file);
// makePrivateFolder, and every file below it private too: tightens what earlier versions left open.
void makePrivateTree(const QString &folder);
// True when path, with every symbolic link resolved, lies inside folder (which must exist). A path
// that does not exist counts by its folder's real location.
[[nodiscard]] bool isInside(const QString &path, const QString &folder);

} // namespace parlino::Paths
