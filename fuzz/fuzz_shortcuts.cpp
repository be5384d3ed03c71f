// The stored shortcut bindings ("customKeyboardShortcuts").
#include "FuzzSupport.h"
#include "core/Defaults.h"
#include "input/KeyboardShortcutPreferences.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace parlino;
    Defaults defaults(fuzz::emptyFolder() + QStringLiteral("/settings.conf"));
    defaults.set(KeyboardShortcutPreferences::userDefaultsKey, fuzz::bytes(data, size));
    KeyboardShortcutPreferences preferences(defaults);
    for (const KeyboardShortcut &shortcut : preferences.shortcuts())
        (void)shortcut.displayString();
    return 0;
}
