#pragma once

#include "input/HotKeyBackend.h"
#include "input/QtSelectionClipboard.h"
#include "input/TextCaptureService.h"
#include "platform/linux/AtSpiTextReader.h"
#include "platform/linux/X11ActiveWindow.h"
#include "platform/linux/XTestKeySender.h"

#include <memory>

namespace parlino {

// The input layer on a Linux desktop: AT-SPI for the focused element's text, the X selections,
// XTest for the copy command and X key grabs for the hot keys. Create it after the application object.
class LinuxInputPlatform final {
public:
    LinuxInputPlatform();

    // Services that live as long as this object.
    [[nodiscard]] TextCaptureService::Platform textCapturePlatform();
    [[nodiscard]] static std::unique_ptr<HotKeyBackend> createHotKeyBackend();

private:
    X11ActiveWindow m_windows;
    AtSpiTextReader m_accessibility;
    QtSelectionClipboard m_clipboard;
    XTestKeySender m_keys;
};

} // namespace parlino
