#pragma once

#include "app/PermissionDialogs.h"

namespace parlino {

// The permission alerts as modal message boxes.
class MessageBoxPermissionDialogs final : public PermissionDialogs {
public:
    Answer askForAccessibility() override;
    Answer askForQuestionPermissions(bool microphoneGranted, bool speechGranted) override;
};

} // namespace parlino
