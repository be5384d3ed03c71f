#pragma once

#include "library/SaveFileDialog.h"

#include <QPointer>

class QFileDialog;

namespace parlino {

// The desktop's save dialog, modeless and titled with the message, starting in the music folder (else home) and kept
// above the floating player: the answer arrives when the user closes it. A second request while one is open replaces it
// (the first then counts as cancelled).
class QtSaveFileDialog final : public SaveFileDialog {
public:
    QtSaveFileDialog() = default;
    ~QtSaveFileDialog() override;
    QtSaveFileDialog(const QtSaveFileDialog &) = delete;
    QtSaveFileDialog &operator=(const QtSaveFileDialog &) = delete;

    void askForSaveLocation(const QString &suggestedFilename, const QString &message, Completion done) override;

private:
    QPointer<QFileDialog> m_dialog;
};

} // namespace parlino
