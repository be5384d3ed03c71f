#pragma once

#include "input/TextCaptureService.h"

#include <memory>

namespace parlino {

class HotKeyBackend;

// The window system's pieces that the input layer runs on. The platform layer provides one and the
// application installs it at start-up, before the first use of the shared input services.
class InputPlatform {
public:
    virtual ~InputPlatform() = default;

    // Services that live as long as the platform object.
    [[nodiscard]] virtual TextCaptureService::Platform textCapturePlatform() = 0;
    [[nodiscard]] virtual std::unique_ptr<HotKeyBackend> createHotKeyBackend() = 0;

    // `platform` must live until the process ends.
    static void install(InputPlatform &platform);
    // The installed platform; stops the program when none was installed.
    [[nodiscard]] static InputPlatform &installed();
};

} // namespace parlino
