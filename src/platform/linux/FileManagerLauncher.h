#pragma once

#include <QString>

namespace parlino {

// Shows a file in the desktop's file manager, selected, through org.freedesktop.FileManager1; when no
// file manager answers on the session bus, opens the file's folder with the desktop's default handler.
class FileManagerLauncher final {
public:
    // Returns at once; the answer of the file manager arrives later.
    static void showItem(const QString &path);
};

} // namespace parlino
