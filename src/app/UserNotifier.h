#pragma once

#include <QString>

namespace parlino {

// Tells the user something outside any window (a desktop notification).
class UserNotifier {
public:
    virtual ~UserNotifier() = default;
    virtual void notify(const QString &title, const QString &body) = 0;
};

} // namespace parlino
