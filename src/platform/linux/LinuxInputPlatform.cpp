#include "platform/linux/LinuxInputPlatform.h"

#include "platform/linux/X11HotKeyBackend.h"

namespace parlino {

LinuxInputPlatform::LinuxInputPlatform()
    : m_accessibility([this] { return m_windows.activeWindowProcessId(); })
{
}

TextCaptureService::Platform LinuxInputPlatform::textCapturePlatform()
{
    return {&m_accessibility, &m_clipboard, &m_keys, &m_windows};
}

std::unique_ptr<HotKeyBackend> LinuxInputPlatform::createHotKeyBackend()
{
    // Without an X server (a Wayland session) the back end registers nothing and says so.
    return std::make_unique<X11HotKeyBackend>();
}

} // namespace parlino
