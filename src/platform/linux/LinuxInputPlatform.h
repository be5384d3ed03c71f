#pragma once

#include "input/InputPlatform.h"
#include "input/QtSelectionClipboard.h"
#include "platform/linux/AtSpiTextReader.h"
#include "platform/linux/X11ActiveWindow.h"
#include "platform/linux/XTestKeySender.h"

namespace parlino {

// The input layer on a Linux desktop: AT-SPI for the focused element's text, the X selections,
// XTest for the copy command and X key grabs for the hot keys. Create it after the application object.
class LinuxInputPlatform final : public InputPlatform {
public:
    LinuxInputPlatform();

    // Creates the process's platform and installs it for the shared input services.
    static void install();

    [[nodiscard]] TextCaptureService::Platform textCapturePlatform() override;
    [[nodiscard]] std::unique_ptr<HotKeyBackend> createHotKeyBackend() override;

private:
    X11ActiveWindow m_windows;
    AtSpiTextReader m_accessibility;
    QtSelectionClipboard m_clipboard;
    XTestKeySender m_keys;
};

} // namespace parlino
