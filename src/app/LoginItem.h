#pragma once

#include <QString>

namespace parlino {

// Whether Parlino starts with the user's desktop session.
class LoginItem {
public:
    virtual ~LoginItem() = default;

    [[nodiscard]] virtual bool isEnabled() const = 0;
    // Nothing on success, else why it could not be changed.
    [[nodiscard]] virtual QString setEnabled(bool enabled) = 0;
};

} // namespace parlino
