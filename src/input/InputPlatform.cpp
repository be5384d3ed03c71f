#include "input/InputPlatform.h"

#include <QtGlobal>

namespace parlino {

namespace {
InputPlatform *g_installed = nullptr;
}

void InputPlatform::install(InputPlatform &platform)
{
    g_installed = &platform;
}

InputPlatform &InputPlatform::installed()
{
    if (!g_installed)
        qFatal("No input platform installed: install one before using the shortcut or capture services");
    return *g_installed;
}

} // namespace parlino
