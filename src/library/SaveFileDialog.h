#pragma once

#include <QString>

#include <functional>
#include <optional>

namespace parlino {

// Asks the user where to save a file (a save dialog), without blocking: `done` receives the chosen
// path, or nothing when the user cancels. The desktop implementation lives above; tests answer it.
class SaveFileDialog {
public:
    using Completion = std::function<void(std::optional<QString> path)>;

    virtual ~SaveFileDialog() = default;
    // message: the dialog's prompt; only MP3 files are offered and the extension is shown.
    virtual void askForSaveLocation(const QString &suggestedFilename, const QString &message, Completion done) = 0;
};

} // namespace parlino
