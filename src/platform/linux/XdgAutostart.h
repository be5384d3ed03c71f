#pragma once

#include "app/LoginItem.h"

#include <QString>

namespace parlino {

// Start at login the freedesktop way: a desktop entry in $XDG_CONFIG_HOME/autostart, which every desktop
// environment that follows the XDG autostart rules (GNOME, KDE, Xfce, LXQt, ...) starts at login.
class XdgAutostart final : public LoginItem {
public:
    // executable: what the entry starts (the running program by default).
    explicit XdgAutostart(QString entryPath = defaultEntryPath(), QString executable = QString());

    [[nodiscard]] static QString defaultEntryPath();

    [[nodiscard]] bool isEnabled() const override;
    [[nodiscard]] QString setEnabled(bool enabled) override;

private:
    QString m_entryPath;
    QString m_executable;
};

} // namespace parlino
