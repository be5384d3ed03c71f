#pragma once

#include "app/UserNotifier.h"

namespace parlino {

// Desktop notifications through org.freedesktop.Notifications; falls back to a log line when no
// notification server is running.
class DesktopNotifier final : public UserNotifier {
public:
    void notify(const QString &title, const QString &body) override;
};

} // namespace parlino
